#!/usr/bin/env bash
# The table that scripts/bench makes of measurements, and a short run of its own with stand-ins for the programs.
set -euo pipefail
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
report=$source/tests/data/bench-report.json golden=$source/tests/data/bench-table.md
bench=$source/scripts/bench
fail() { echo "$1" >&2; exit 1; }

# Every row with its figures, ratios and verdict; between the markers of a page, whatever else it holds.
printf 'before\n<!-- scripts/bench writes this table -->\nold\n<!-- end of the table -->\nafter\n' >"$work/page.md"
"$bench" --from "$report" --write "$work/page.md" --json "$work/made.json"
[[ -z ${QV_REGENERATE_GOLDENS:-} ]] || cp "$work/page.md" "$golden"
diff "$golden" "$work/page.md"
jq -e '[.rows[] | select(.reached != null) | .reached] == [true, true, true, false, true, false]' "$work/made.json" >/dev/null ||
  fail "not every verdict is the one that the figures give"
"$bench" --from "$report" --cpu | grep -q '| 600 ms | by hand 300 ms (2.00)' || fail "CPU time cannot count"
! "$bench" --from "$report" --write "$source/README.md" 2>"$work/errors" || fail "a page without markers was written"
grep -q 'no place for the table' "$work/errors"

# Who makes something else of the same work is named.
sed '0,/127 bytes, 1/s//126 bytes, 1/' "$report" >"$work/other.json"
! "$bench" --from "$work/other.json" >/dev/null 2>"$work/errors" || fail "results that differ went unnoticed"
grep -q 'library has "126 bytes, 1", but .* "127 bytes, 1"' "$work/errors"

stand_in() { # stand_in PROGRAM RESULT OF EACH: one who does it faster each time that it is asked
  printf '#!/bin/sh\ncase $1 in\n"") printf "library\\nby hand\\n" ;;\n' >"$work/bin/$1"
  printf '*) echo "$0 $*" >>"%s/asked"; echo "{\\"seconds\\": 2, \\"cpu_seconds\\": 1, \\"peak_kb\\": 1000, \\"result\\": \\"%s\\"}" ;;\nesac\n' \
    "$work" "$2" >>"$work/bin/$1"
  chmod +x "$work/bin/$1"
}
mkdir "$work/bin"
stand_in bench_definition_lookup '2 of 2 found'
stand_in bench_unheard_of ''
"$bench" --short --bin "$work/bin" --only definition_lookup unheard_of --json "$work/short.json" >"$work/table"
grep -q '| lookup among 1,000 unchanged definitions | 2 s | by hand 2 s (1.00) | 1.1 times by hand | 1.00: yes |' "$work/table"
grep -q '| unheard_of | 2 s | by hand 2 s (1.00) |  |  |' "$work/table"
(($(grep -c -- '--short$' "$work/asked") == 4 && $(wc -l <"$work/asked") == 4)) || fail "not each was asked once"
"$bench" --bin "$work/bin" --only unheard_of --repeat 3 >/dev/null
(($(wc -l <"$work/asked") == 10)) || fail "not each was asked three times"
[[ $(tail -n 6 "$work/asked" | cut -d' ' -f2- | tr '\n' ',') == 'library,by hand,by hand,library,library,by hand,' ]] ||
  fail "they did not take turns"

# Short runs have no agreement to fall back on either.
sed -i 's/2 of 2/$#$1 of 2/' "$work/bin/bench_definition_lookup"
! "$bench" --short --bin "$work/bin" --only definition_lookup >/dev/null 2>"$work/errors" || fail "short runs need not agree"
! "$bench" --short --bin "$work/none" --only definition_lookup >/dev/null 2>"$work/errors" || fail "nothing was measured, and nobody told"

# The graph of packages that is made up is the same at every run, whatever the machine knows.
"$source/benchmarks/package_graph" --generate --times 2 | awk -F'\t' '
  { ++edges; names[$1]; names[$2]; seen[$0]++ }
  END { print edges, length(names), length(seen) }' >"$work/size"
[[ $(cat "$work/size") == '566322 127332 566322' ]] || fail "another graph: $(cat "$work/size")"
