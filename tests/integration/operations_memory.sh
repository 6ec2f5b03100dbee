#!/usr/bin/env bash
# Every entry point and virtual operation of include/qvreposres is called in a test that takes memory from what it tests.
set -euo pipefail
cd "$1"

# The names that are declared, without what is in comments.
operations=$(sed 's://.*::' include/qvreposres/qv*.h | tr '\n' ' ' | tr ';{}' '\n\n\n' |
  grep -E '\b(virtual|QVREPOSRES_API)\b' | grep -vE '\b(class|struct|define)\b|~' | sed -nE 's/^[^(]*\b([A-Za-z_]+)\(.*/\1/p' | sort -u)
[[ $(wc -l <<<"$operations") -gt 150 ]] || { echo "too few operations were found" >&2; exit 1; }
called=$(grep -lrE 'Allocations::|withEverMoreMemory|AfterEveryShortage' tests --include='*.cpp' | xargs grep -ohE '\b[A-Za-z_]+\(' | tr -d '(' | sort -u)
missing=$(comm -23 <(echo "$operations") <(echo "$called"))
[[ -z $missing ]] || { echo "no test takes memory from: $missing" >&2; exit 1; }
