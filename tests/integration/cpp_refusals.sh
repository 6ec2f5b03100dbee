#!/usr/bin/env bash
# What include/qvreposres/cpp.h must keep a program from does not compile, and says why where that is ours to say; the
# same lines with what is allowed do.
set -euo pipefail
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bad=0
compile() { # compile STATEMENT
  printf '#include "qvreposres/cpp.h"\nusing namespace qvreposres;\nvoid f() {\n  Lineage lineage;\n  auto list = %s;\n  %s\n}\n' \
    'own<&QvImpactAnalysis::createResourceList>(lineage.interface())' "$1" |
    "$CXX" -std=c++20 -I"$source/include" -I"$source/platform" -fsyntax-only -x c++ - 2>"$work/log"
}
allow() { compile "$1" || { cat "$work/log" >&2; echo "does not compile: $1" >&2; bad=1; }; }
refuse() { # refuse STATEMENT [MESSAGE]
  if compile "$1"; then
    echo "compiles: $1" >&2
    bad=1
  elif ! grep -qF -- "${2:-error}" "$work/log"; then
    cat "$work/log" >&2
    echo "is refused for another reason: $1" >&2
    bad=1
  fi
}
others="what this operation returns is not the caller's"

allow '(void)own<createQvResourceManager>();'
refuse '(void)own<getRepositoryEventManager>();' "$others"
refuse '(void)own<getFileCache>();' "$others"
refuse '(void)own<&QvResourceList::getValue>(list);' "$others"
refuse '(void)own<&QvResource::getProperties>(*list->getValue());' "$others"
refuse '(void)own<&QvImpactAnalysis::getDefaultResourceFactory>(lineage.interface());' "$others"
refuse 'Owned<QvReposEventManager> manager(getRepositoryEventManager());' private
refuse 'Owned<QvResource> row(list->getValue());' private
allow 'auto moved = std::move(list);'
refuse 'auto copy = list;' deleted
allow 'Definitions d; for (const Definition& one : d.all()) (void)one.name();'
refuse 'Definitions d; auto all = d.all(); auto copy = all;' deleted
exit "$bad"
