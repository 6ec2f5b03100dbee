#!/usr/bin/env bash
# Opens pages in a browser without a window and uses them by mouse and keys. The distribution's Python has selenium.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
HOME=$work TMPDIR=$work /usr/bin/python3 -B "$source/tests/integration/lineage_page.py" "$build" "$work"
