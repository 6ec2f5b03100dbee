#!/usr/bin/env bash
# The arrows of the layout: tools -> include -> platform; src -> include, platform; nothing in platform knows src, and
# nothing in src reaches the operating system, the XML parser, the HTTP client or the standard file streams directly.
set -euo pipefail
cd "$1"
bad=0
refuse() { # refuse WHAT PATTERN PATH...
  local what=$1 pattern=$2
  shift 2
  if grep -rnE --include='*.cpp' --include='*.h' "$pattern" "$@"; then
    echo "refused: $what" >&2
    bad=1
  fi
}
refuse "the library reaches past the platform" \
  '#include *<(unistd|fcntl|dirent|sys/|pthread|dlfcn|fstream|filesystem|cstdio|stdio|xercesc|curl|uuid|uriparser|spdlog|ini\.h)' src
refuse "the library calls the operating system" '\b(fopen|opendir|getenv|setenv|pthread_|std::(i|o)?fstream|std::getenv)\b' src
refuse "the platform knows the library" '#include *["<](qvreposres/|lineage|qvresource|qvrepos|qvfilecache|guards\.h|listcursor\.h)' platform
refuse "a public header knows the library's sources" '#include *"(lineage|guards|listcursor)' include
refuse "the host tool knows the library's sources" '#include *"(guards|listcursor|lineage(factory|serialization)|qvresourcemgrimpl|qvreposconfigmgrimpl)' tools examples
for folder in src platform include tools; do
  [[ -n $(find "$folder" -name '*.cpp' -o -name '*.h') ]] || { echo "nothing was found in $folder" >&2; bad=1; }
done
exit "$bad"
