#!/usr/bin/env bash
# Every command of the host tool that README.md, the documents and the examples of its help show does what it should: it
# ends with status 0 in a copy of the project's examples. The name of a command alone is a mention, and has to be one.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$source/examples" "$work"
mkdir "$work/tmp"
cd "$work"
export PATH=$build/bin:$PATH TMPDIR=$work/tmp
bad=0
refuse() { echo "$1" >&2; bad=1; }

manual=$(qvrepos generate man)
names=$(sed -nE 's/^\.SS \\fB(qvrepos [a-z ]+)\\fR.*/\1/p' <<<"$manual")
documented=$(grep -hoE '`qvrepos [^`]+`|^ {4}qvrepos .*' "$source/README.md" "$source"/docs/*.md | sed -E 's/^`|`$|^ +//g')
examples=$(sed -n '/^\.SH EXAMPLES/,$p' <<<"$manual" | sed -n '/^\.nf/,/^\.fi/{/^\./!p}' |
  sed -e 's/\\-/-/g; s/\\(dq/"/g; s/\\(aq/'\''/g; s/\\e/\\/g')
footers=$(grep -hc 'Example: qvrepos' "$source"/tools/qvrepos/*.cpp | awk '{ n += $1 } END { print n }')
(($(wc -l <<<"$examples") == footers && footers > 5)) || refuse "the manual page does not have $footers examples"
(($(wc -l <<<"$documented") > 5)) || refuse "the documents show no commands"

run() {
  local command=${1//COMMAND/lineage} status=0 # one for all
  command=${command//\/tmp\//$work/tmp/}
  bash -c "$command" >"$work/out" 2>"$work/err" </dev/null || status=$?
  ((status == 0)) || { cat "$work/err" >&2; refuse "status $status: $1"; }
}

while read -r command; do
  grep -qxF -- "$command" <<<"$names" || run "$command"
done <<<"$documented"
while read -r command; do
  run "$command"
done <<<"$examples"
exit "$bad"
