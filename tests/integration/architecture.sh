#!/usr/bin/env bash
# The arrows of the layout: tools -> graph -> include -> platform; src -> include, platform; nothing in platform knows src, and
# nothing in src reaches the operating system, the XML parser, the HTTP client or the standard file streams directly.
set -euo pipefail
cd "$1"
bad=0
report() { # report WHAT, of the lines of standard input, if any
  local lines
  lines=$(cat)
  [[ -z $lines ]] && return
  printf '%s\n' "$lines"
  echo "refused: $1" >&2
  bad=1
}
find_lines() { # find_lines PATTERN PATH...
  grep -rnE --include='*.cpp' --include='*.h' "$@" || true
}
refuse() { # refuse WHAT PATTERN PATH...
  report "$1" < <(find_lines "${@:2}")
}

# What of the standard library holds and computes, and nothing that reaches outside the process.
allowed='algorithm|array|chrono|cstddef|cstdint|deque|functional|initializer_list|iterator|limits|map|memory|mutex|new'
allowed+='|optional|span|string|string_view|typeinfo|unordered_map|unordered_set|utility|vector'
report "the library includes what is not on its list of standard headers" \
  < <(find_lines '^ *# *include *<' src | grep -vE "include *<($allowed)>")
refuse "the library calls the operating system" \
  '\b(fopen|opendir|getenv|setenv|(local|gm)time(_r)?|pthread_|std::(i|o)?fstream|std::getenv)\b' src
refuse "the platform knows the library" \
  '#include *["<](qvreposres/|lineage|qvresource|qvrepos|qvfilecache|guards\.h|listcursor\.h|allocation\.h|domchildren\.h)' platform
refuse "a public header knows the library's sources" '#include *"(lineage|guards|listcursor|allocation|domchildren)' include
refuse "the host tool knows the library's sources" \
  '#include *"(guards|listcursor|allocation|domchildren|lineage(factory|serialization)|qvresourcemgrimpl|qvreposconfigmgrimpl)' \
  tools examples
refuse "the lineage graph knows the library's or the tool's sources" \
  '#include *"(\.\.|guards|listcursor|allocation|domchildren|sqlstepwalk|lineage(factory|serialization)|qvresourcemgrimpl|host|jobs\.h)' graph
refuse "the library knows the lineage graph" '#include *["<]qvlineagegraph/' src platform include/qvreposres
refuse "the tool knows the lineage graph's sources" '#include *["<](joiner|jobfacts|wildcard|textpool|nodetable|jsonsplit)' tools
refuse "the platform's own headers are used outside it" '#include *["<][^">]*private/' src include graph tools examples

# The map is whole, and what is kept on purpose has its test.
for header in src/*.h platform/*/private/*.h graph/*.h tools/qvrepos/*.h; do
  grep -qF "\`$header\`" docs/architecture.md || { echo "docs/architecture.md does not list $header" >&2; bad=1; }
done
for header in $(grep -oE '`(src|platform|graph|tools)/[a-z/_]+\.(h|cpp)`' docs/architecture.md | tr -d '`' | sort -u); do
  [[ -f $header ]] || { echo "docs/architecture.md names $header, which is not there" >&2; bad=1; }
done
marks=$(grep -rhoE '// Kept:.*' src platform include graph tools | sort -u || true)
[[ -n $marks ]] || { echo "nothing is marked as kept" >&2; bad=1; }
while read -r _ _ test more; do
  [[ -z $more && $test == *.* ]] && grep -rqE "TEST(_F|_P)?\(${test%%.*}, ${test#*.}\)" tests ||
    { echo "no test holds what is kept: $test $more" >&2; bad=1; }
done <<<"$marks"
for folder in src platform include graph tools; do
  [[ -n $(find "$folder" -name '*.cpp' -o -name '*.h') ]] || { echo "nothing was found in $folder" >&2; bad=1; }
done
exit "$bad"
