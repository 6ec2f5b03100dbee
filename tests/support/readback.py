#!/usr/bin/env python3
"""Reads a written graph as another program does, and prints it as JSON: nodes (names) and edges (pairs of names).

readback.py csv|dot|svg|markdown FILE
"""
import csv
import html
import json
import re
import subprocess
import sys


def from_csv(path):
    with open(path, newline="", encoding="utf-8") as file:
        rows = list(csv.DictReader(file))
    edges = [[row["from_name"], row["to_name"]] for row in rows]
    return sorted({name for edge in edges for name in edge}), edges


def unescaped(label):
    """A label as Graphviz shows it: escapes, then names of characters."""
    return html.unescape(re.sub(r"\\(.)", lambda found: "\n" if found[1] == "n" else found[1], label))


def from_dot(path):
    drawn = subprocess.run(["dot", "-Tjson", path], check=True, capture_output=True)
    if drawn.stderr:
        sys.exit(drawn.stderr.decode())
    graph = json.loads(drawn.stdout)
    names = {node["_gvid"]: unescaped(node["label"]) for node in graph.get("objects", [])}
    return sorted(names.values()), [[names[edge["tail"]], names[edge["head"]]] for edge in graph.get("edges", [])]


def from_svg(path):
    """What stands in the nodes, line by line; blanks after blanks are no-break ones there."""
    ids = xpath(path, '//*[local-name()="g"][starts-with(@class, "node ")]/@id')
    names = []
    for node in re.findall(r'id="([^"]*)"', ids):
        lines = []
        count = int(float(xpath(path, f'count(//*[@id="{node}"]//*[local-name()="text"])')))
        for number in range(1, count + 1):
            lines.append(xpath(path, f'string((//*[@id="{node}"]//*[local-name()="text"])[{number}])'))
        names.append("\n".join(lines).replace("\u00a0", " "))
    return sorted(names), []


def xpath(path, expression):
    found = subprocess.run(["xmllint", "--nonet", "--xpath", expression, path], check=True, capture_output=True)
    return found.stdout.decode("utf-8").removesuffix("\n")


def from_markdown(path):
    """The names in a table, as cmark makes text of its cells, which it does not know to be cells."""
    names = []
    with open(path, encoding="utf-8", newline="\n") as file:
        rows = [line for line in file.read().split("\n") if line.startswith("| came | ")]
    for row in rows:
        cell = row.removesuffix(" |").split(" | ", 2)[2]
        shown = subprocess.run(["cmark", "--to", "xml"], input=cell.encode(), check=True, capture_output=True).stdout
        names.append("".join(re.findall(r"<text[^>]*>([^<]*)</text>", shown.decode("utf-8"))))
    return sorted(html.unescape(name) for name in names), []


nodes, edges = {"csv": from_csv, "dot": from_dot, "svg": from_svg, "markdown": from_markdown}[sys.argv[1]](sys.argv[2])
json.dump({"nodes": nodes, "edges": edges}, sys.stdout)
