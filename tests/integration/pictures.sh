#!/usr/bin/env bash
# The pictures of the documents are what the commands beside them draw; QV_REGENERATE_GOLDENS=1 draws them anew.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$source"
export PATH=$build/bin:$PATH
drawn=0
while read -r command; do
  name=$(basename "$command")
  bash -c "${command//\/tmp\//$work/} --quiet"
  [[ -z ${QV_REGENERATE_GOLDENS:-} ]] || { mkdir -p docs/pictures; cp "$work/$name" docs/pictures; }
  cmp "$work/$name" "docs/pictures/$name"
  xmllint --nonet --noout "docs/pictures/$name"
  ((++drawn))
done < <(sed -n 's/^\$ \(qvrepos graph .* -o \/tmp\/.*\.svg\)$/\1/p' docs/graph.md)
((drawn == $(find docs/pictures -name '*.svg' | wc -l) && drawn > 0)) || { echo "not every picture is drawn" >&2; exit 1; }
