#!/usr/bin/env python3
"""Checks events, each a line of JSON, against the schemas of a folder: openlineage_check.py SCHEMAS < EVENTS

Prints how many there are. Every facet that names one of the schemas has to keep to it, too.
"""
import json
import pathlib
import sys
import warnings

warnings.simplefilter("ignore", DeprecationWarning)
import jsonschema  # noqa: E402

folder = pathlib.Path(sys.argv[1])
schemas = {}
for path in folder.rglob("*.json"):
    schema = json.loads(path.read_text())
    schemas[schema["$id"]] = schema


def check(value, reference):
    schema = schemas[reference.split("#")[0]]
    resolver = jsonschema.RefResolver.from_schema(schema, store=dict(schemas))
    jsonschema.Draft202012Validator({"$ref": reference}, resolver=resolver).validate(value)


def facets(value):
    if isinstance(value, dict):
        if "_schemaURL" in value:
            yield value
        for part in value.values():
            yield from facets(part)
    elif isinstance(value, list):
        for part in value:
            yield from facets(part)


count = 0
for line in sys.stdin:
    event = json.loads(line)
    check(event, event["schemaURL"])
    for facet in facets(event):
        check(facet, facet["_schemaURL"])
    count += 1
print(count)
