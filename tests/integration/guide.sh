#!/usr/bin/env bash
# Every program of docs/host-application.md builds against this build's libraries and prints what stands below it, which
# QV_REGENERATE_GOLDENS=1 writes anew. The program of README.md lists what a job touches.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$1" >&2; exit 1; }

awk -v folder="$work" '
  /^```cpp$/ { begins = 1; next }
  /^```text$/ { file = folder "/" programs ".txt"; printf "" > file; next }
  /^```$/ { file = ""; next }
  begins { file = folder "/" ++programs ".cpp"; begins = 0 }
  file { print > file }' "$source/docs/host-application.md"

cd "$source"
export TMPDIR=$work
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
compile() { # compile PROGRAM
  # shellcheck disable=SC2086
  "$CXX" -std=c++20 "${warnings[@]}" ${CXXFLAGS:-} -I"$source/include" -I"$source/platform" "$1" -o "${1%.cpp}" \
    -L"$build/lib" -Wl,-rpath,"$build/lib" -lqvreposres -lqvplatform
}
programs=0
for program in "$work"/*.cpp; do
  name=${program%.cpp}
  compile "$program"
  "$name" >"$name.out" || fail "program $(basename "$name") of the guide failed"
  [[ ${QV_REGENERATE_GOLDENS:-} ]] || diff "$name.txt" "$name.out" ||
    fail "program $(basename "$name") of the guide prints something else"
  programs=$((programs + 1))
done
if [[ ${QV_REGENERATE_GOLDENS:-} ]]; then
  awk -v folder="$work" '
    /^```cpp$/ { ++programs }
    /^```text$/ { print; while ((getline line < (folder "/" programs ".out")) > 0) print line; skips = 1; next }
    /^```$/ { skips = 0 }
    !skips' docs/host-application.md >"$work/guide.md"
  cp "$work/guide.md" docs/host-application.md
fi
((programs == 5)) || fail "the guide has $programs programs"

mkdir "$work/readme"
sed -n '/^```cpp$/,/^```$/{/^```/!p}' "$source/README.md" >"$work/readme/host.cpp"
compile "$work/readme/host.cpp"
names=$("$work/readme/host" "$source/examples/repository/batch_jobs/load_calendar.djf")
[[ $names == *calendar*holidays* ]] || fail "the program of README.md lists something else: $names"
rm -r "$work/readme"
[[ -z $(find "$work" -mindepth 1 -type d) ]] || fail "a program of the guide leaves a folder behind"
