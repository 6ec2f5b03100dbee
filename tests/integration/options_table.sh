#!/usr/bin/env bash
# The table of options in docs/options.md and that of log categories in docs/logging.md say what the code says, no more
# and no less; and an option is declared in one place alone.
set -euo pipefail
cd "$1"
build=$2
bad=0
same() { # same WHAT DOCUMENTED CODED
  [[ -n $2 && -n $3 ]] || { echo "nothing found: $1" >&2; bad=1; }
  diff --label documented --label code <(sort -u <<<"$2") <(sort -u <<<"$3") >&2 || { echo "differ: $1" >&2; bad=1; }
}
rows() { sed -n "/^## $2/,/^## /p" "$1" | grep '^| `'; } # rows DOCUMENT SECTION
names() { sed -E 's/^\| `([^`]*)`.*/\1/'; }
coded() { cat src/*.cpp src/*.h platform/*/*.cpp platform/*/*.h | grep -v '^ *//'; }

same "options" "$(grep '^|' docs/options.md)" "$("$build/bin/qvrepos" generate options)"
declared=$(grep -oE 'constexpr Qvb[A-Za-z]*Option [A-Za-z]+' platform/qvxbase/qvboptions.h | cut -d' ' -f3)
shown=$(sed -n '/All\[\]/,/};/p' platform/qvxbase/qvboptions.h | grep -oE '&[A-Za-z]+' | tr -d '&')
same "options in the list of all" "$shown" "$declared"
elsewhere=$(grep -nE '"[A-Z]+/[A-Z_]+"|qvbGetConfigOption\("|getOption\("' src/*.cpp src/*.h platform/*/*.cpp tools/qvrepos/*.cpp || true)
[[ -z $elsewhere ]] || { echo "options that are not declared in qvboptions.h: $elsewhere" >&2; bad=1; }

categories=$(rows docs/logging.md Categories)
same "log categories" "$(names <<<"$categories")" "$(coded | grep -oE '("QV\.[^"]+", "|qvlogGetLogger\("[^"]+")' | grep -oE 'QV[^"]+')"

# Levels by source name, which is the source's path; the sources of a service share the name of the first one.
declare -A number=([trace]=1 [lifecycle]=2 [success]=3 [anomaly]=4 [error]=5 [critical]=6)
documented=$(sed -E 's/^\| `[^`]*` \| `([^`]*)` \| ([0-9, ]*) \|.*/\1 \2/; s/,//g' <<<"$categories" |
  while read -r name levels; do printf "$name %s\n" $levels; done)
used=$(for file in src/*.cpp platform/*/*.cpp; do
  name=${file%.cpp}
  for level in $(tr '\n' ' ' <"$file" |
    grep -oE '[lL]og(\(\)|\("[^)]*"\))?\. *[a-z]+\(|(unchecked\( *|return )QvLoggingLevel::[A-Z][a-z]+' |
    sed -E 's/.*::(.*)/\L\1/; s/.*\. *(.*)\(/\1/'); do
    [[ -z ${number[$level]:-} ]] || echo "${name%%_*} ${number[$level]}"
  done
done)
same "log levels" "$documented" "$used"
exit "$bad"
