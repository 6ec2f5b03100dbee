#!/usr/bin/env bash
# The page that is checked in is what its sources and the pinned packages make, and it names no place to load from.
set -euo pipefail
source=$1
page=$source/graph/page
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$page/build" "$work/bundle"
for file in page.html LICENCES; do
  cmp "$work/bundle/$file" "$page/bundle/$file" || { echo "make it anew with graph/page/build" >&2; exit 1; }
done
[[ $(ls "$work/bundle") == $(ls "$page/bundle") ]]
! grep -nE '"resolved"|://' "$page/package-lock.json" || { echo "the lock file names a host" >&2; exit 1; }
! grep -noE '(src|href)="?(https?:)?//[^"]*' "$page/bundle/page.html" || { echo "the page loads from elsewhere" >&2; exit 1; }
