#!/usr/bin/env bash
# Walks README.md on a bare Debian: its first command for a fresh machine, and then every command of its console blocks,
# which has to print what stands there. QV_BARE_ROOT names a folder with such a root, for example one made by
#   mmdebstrap --variant=minbase bookworm DIR
# and without it, or without root's rights, the test is skipped: it installs packages and compiles for minutes.
set -euo pipefail
source=$1
skip() { echo "skipped: $1"; exit 77; }
root=${QV_BARE_ROOT:-}
[[ -n $root ]] || skip "QV_BARE_ROOT names no bare root"
[[ -x $root/bin/sh ]] || skip "$root holds no root"
((EUID == 0)) || skip "entering a root needs root's rights"
work=$(mktemp -d)
trap 'rm -rf "$work" "$root/project"' EXIT
fail() { echo "$1" >&2; exit 1; }

rm -rf "$root/project"
mkdir "$root/project"
(cd "$source" && git ls-files -z | xargs -0 cp --parents -t "$root/project")
inside() { chroot "$root" env -i PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin HOME=/root LC_ALL=C.UTF-8 bash -c "cd /project && $1"; }

grep -q '^    scripts/demo ' "$source/README.md" || fail "README.md does not begin with scripts/demo"
inside scripts/demo >"$work/demo" 2>"$work/log" || { tail -n 40 "$work/log" >&2; fail "scripts/demo failed"; }
grep -q '^Warehouse.mart.customer_value$' "$work/demo" || fail "scripts/demo shows no table"
grep -q 'broken_export.djf, is malformed on purpose' "$work/demo" || fail "scripts/demo does not tell of its malformed file"
sed -n '/^Try next:$/,$p' "$work/demo" | sed -n 's/^  \(build.*\)/\1/p' >"$work/next"
(($(wc -l <"$work/next") == 2)) || fail "scripts/demo ends without two commands"
while read -r command; do
  inside "$command" >"$work/out" 2>&1 </dev/null || (($? == 1)) || fail "this fails: $command" # 1: the malformed file
done <"$work/next"

# A command's output goes to the block as a terminal shows it.
awk -v folder="$work" '
  /^```console$/ { inside = 1; next }
  /^```$/ { inside = 0; file = "" }
  inside && /^\$ / { file = folder "/" ++n ".txt"; print substr($0, 3) > (folder "/" n ".sh"); printf "" > file; next }
  inside && file { print > file }' "$source/README.md"
commands=0
for command in "$work"/*.sh; do
  inside "PATH=/project/build/release/bin:\$PATH; $(<"$command")" >"$work/out" 2>&1 </dev/null || (($? == 1)) ||
    fail "this fails: $(<"$command")"
  diff "${command%.sh}.txt" "$work/out" || fail "README.md says what is not printed: $(<"$command")"
  commands=$((commands + 1))
done
((commands > 0)) || fail "README.md shows no command"
