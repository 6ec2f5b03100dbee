#!/usr/bin/env bash
# Every command of the host tool that README.md, the documents and the examples of its help show does what it should: it
# ends with status 0 in a copy of the project's examples. The name of a command alone is a mention, and has to be one; each
# command is shown.
# What a command of a console block prints is what stands there below it; QV_REGENERATE_GOLDENS=1 writes that anew.
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
leaves=$(grep '^\.SS ' <<<"$manual" | grep -vc SUBCOMMAND)
(($(wc -l <<<"$examples") == leaves && leaves > 5)) || refuse "the manual page does not have $leaves examples"
(($(wc -l <<<"$documented") > 5)) || refuse "the documents show no commands"
while read -r name; do
  grep -hqE "(\`|^ {4}|^\\$ )$name\>" "$source/README.md" "$source"/docs/*.md || refuse "no document shows $name"
done <<<"$names"

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

# The README's table of commands is that of the help.
diff <(grep -A 100 '^| command |' "$source/README.md" | sed '/^$/,$d') <(qvrepos generate commands) >&2 ||
  refuse "README.md lists other commands than \`qvrepos generate commands\` prints"

# A document with what its commands really print, in folders of a reader's own.
rendered() {
  local block= line
  while IFS= read -r line; do
    case $block$line in
      '```console' | console'```') [[ $block ]] && block= || block=console; printf '%s\n' "$line" ;;
      'console$ '*)
        printf '%s\n' "$line"
        line=${line//\/tmp\//$work/tmp/}
        { bash -c "${line#\$ }" </dev/null 2>&1 || true; } | sed "s|$work/tmp/|/tmp/|g; s|$work|/home/ann/qvreposres|g"
        ;;
      console*) ;;
      *) printf '%s\n' "$line" ;;
    esac
  done
}
for document in $(grep -lx '```console' "$source/README.md" "$source"/docs/*.md); do
  rendered <"$document" >"$work/rendered"
  [[ -z ${QV_REGENERATE_GOLDENS:-} ]] || cp "$work/rendered" "$document"
  diff "$document" "$work/rendered" >&2 || refuse "$(basename "$document") says what the tool does not print"
done
# Each command prints JSON there.
shown=$(grep '^\$ ' "$source/docs/command-line.md" | grep -e --json)
for name in lineage resources 'definitions show' 'definitions default' 'definitions set' 'definitions rename' 'definitions check' \
  'identity make' 'identity parse' path types 'cache get' version; do
  grep -q "qvrepos $name " <<<"$shown" || refuse "docs/command-line.md does not show the JSON of $name"
done
exit "$bad"
