#!/usr/bin/env bash
# The reference of the interfaces is made without a warning, and the headers' comments are in it.
set -euo pipefail
cd "$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$1" >&2; exit 1; }

[[ $(scripts/docs "$work") == "$work/html/index.html" ]] || fail "scripts/docs does not tell where the reference begins"
for header in include/*/*.h; do
  name=$(basename "$header" .h)
  [[ -n $(find "$work/html" -name "*${name}_8h.html") ]] || fail "$header is not in the reference"
  grep -qF "${header#include/}" docs/mainpage.md || [[ $name == export ]] || fail "docs/mainpage.md leaves out $header"
done
says() { grep -rqF "$1" "$work/html" --include='*.html' || fail "the reference does not say: $1"; }
says "Repository events: who changed which object."             # of a file
says "One definition. Getters copy; setters store"              # of a class
says "The folder of the repository's files; stored without"     # of an operation
says "False, with the output untouched, when there is none"     # of an operation
says "The process-wide manager, made on the first call"         # of an entry point
says "<li><b>Ownership</b>: What a factory or an operation returns" # of the conventions of all headers
says "The text value that every interface of the library takes" # of a type of the platform
says "Write a host application"                                 # of a guide

# Every member of the interfaces has a text: its own, or that over the members that it stands among.
undocumented=$({ cat docs/Doxyfile; echo "OUTPUT_DIRECTORY = \"$work/strict\""
  printf '%s\n' EXTRACT_ALL=NO WARN_AS_ERROR=NO GENERATE_HTML=NO GENERATE_XML=YES; } | doxygen - 2>&1 |
  grep 'include/qvreposres/.* is not documented' | grep -vE 'operator|std::hash|Rows::Iterator' || true)
[[ -z $undocumented ]] || fail "$undocumented"
texts() { grep -oF "$2" "$work/html/$1.html" | wc -l; } # in the list of members, and with the member
(($(texts classQvReposConfiguration "The folder of the repository's files; stored without") == 4)) ||
  fail "the text over getVaultPath() is not that of setVaultPath(), too"
(($(texts classQvReposConfiguration "A new record with everything but the repository id") == 2)) ||
  fail "the text of copyOf() is that of others, too"
says 'auto manager = own&lt;getRepositoryConfigurationManager&gt;();' # an example as it is typed

# Who releases what, each operation once.
rows=$(grep -c '^inline constexpr bool handsOver<&' include/qvreposres/owned.h)
page=$work/html/ownership.html
((rows > 30)) && [[ $(grep -c '^<tr class="markdownTableRow' "$page") == "$rows" ]] ||
  fail "the table of who releases what does not have $rows rows"

# A comment that doxygen does not understand fails the build of the reference.
cp -r docs include platform scripts "$work"
echo '// Has no \such command.' >>"$work/include/qvreposres/qvlineage.h"
echo 'void undocumentable();' >>"$work/include/qvreposres/qvlineage.h"
! "$work/scripts/docs" "$work/again" 2>"$work/log" || fail "a warning does not fail scripts/docs"
grep -q "unknown command .*such" "$work/log" || fail "scripts/docs failed without the warning: $(<"$work/log")"
