#!/usr/bin/env bash
# Every promise of docs/reliability.md names a test, and every test that it names exists; so does every function of the list
# of what no test reaches.
set -euo pipefail
cd "$1"
bad=0
fail() { echo "$1" >&2; bad=1; }

tests=$(grep -rhoE '^(TEST|TEST_F|TEST_P|RC_GTEST_PROP|RC_GTEST_FIXTURE_PROP)\([A-Za-z_0-9]+, *[A-Za-z_0-9]+' tests --include='*.cpp' |
  sed -E 's/^[A-Z_]+\(//; s/, */./')
proofs=$(scripts/prove --list | cut -d' ' -f1)
promises=0
while read -r row; do
  shown=$(sed -E 's/.*\| ([^|]*) \|$/\1/' <<<"$row")
  named=$(grep -oE '`[^`]+`' <<<"$shown" | tr -d '`' || true)
  [[ -n $named ]] || fail "no test is named for: $row"
  ((++promises))
  while read -r name; do
    case $name in
    tests/*) [[ -x $name ]] || fail "there is no script $name" ;;
    "scripts/prove "*) grep -qx -- "${name#scripts/prove }" <<<"$proofs" || fail "there is no proof: $name" ;;
    *) grep -qxF -- "$name" <<<"$tests" || fail "there is no test $name" ;;
    esac
  done <<<"$named"
done < <(grep '^|' docs/reliability.md | grep -vE '^\|(---| promise )')
while IFS=$'\t' read -r file function _; do
  name=${function##*::}
  [[ $name == '?' ]] || grep -qF -- "$name" "$file" || fail "tests/not-reached.tsv: there is no $function in $file"
done < <(grep -v '^#' tests/not-reached.tsv)
((promises > 20)) || fail "only $promises promises were found"
exit "$bad"
