#!/usr/bin/env bash
# Every message of the tool stands in a test of the tool, which says when it comes and what it tells to do instead: a text
# of the tool's sources that begins as messages do, in lower case, and is longer than a name.
set -euo pipefail
cd "$1"
python3 - <<'END'
import glob, re, sys

# What no test can bring about, and what is no message: help, and what the parser says.
UNSEEN = {"out of memory", "the definition could not be changed"}
HELP = re.compile(r'(addJsonFlag|addDefinitionCommand|footer|description|add_option|add_flag|const std::string what|ends_with)\b[^;]*$')

def texts(path):
    """The literals of a source, each with those that it is strung together with, and what stands before it."""
    source = open(path, encoding="utf-8").read()
    for found in re.finditer(r'"(?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*', source):
        yield "".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', found[0])), source[:found.start()]

tested = "\n".join(text for path in glob.glob("tests/integration/qvrepos_*.cpp") + ["tests/support/tool.h"]
                   for text, _ in texts(path))
messages = 0
for path in sorted(glob.glob("tools/qvrepos/*.cpp")):
    if path.endswith("selfdescription.cpp"):
        continue
    for text, before in texts(path):
        if not re.match(r"[;:, ]*[a-z]", text) or len(text.split()) < 3 or text in UNSEEN or HELP.search(before):
            continue
        messages += 1
        longest = max(re.split(r"\{\d?\}", text), key=len).strip()
        if longest not in tested:
            sys.exit(f"{path}: no test has this message: {text}")
if messages < 50:
    sys.exit(f"only {messages} messages were found")
END
