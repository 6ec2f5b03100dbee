#!/usr/bin/env bash
# Opens pages in a browser without a window and uses them by mouse and keys.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The one that has the distribution's packages need not be the first.
for python in python3 /usr/bin/python3; do
  "$python" -c 'import selenium' 2>/dev/null && break
done
HOME=$work TMPDIR=$work "$python" -B "$source/tests/integration/lineage_page.py" "$build" "$work"
