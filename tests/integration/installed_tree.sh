#!/usr/bin/env bash
# Installs the build into an empty folder and uses it as an application does: every public header compiles on its own
# with all warnings in both compilers, and a host program is built and run through find_package and through pkg-config.
set -euo pipefail
source=$1 build=$2 version=${3%.*}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
includes=$(echo "$prefix"/include/qvreposres-*)
warnings=(-std=c++20 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

headers=$(cd "$includes" && find . -name '*.h' -printf '%P\n')
(($(wc -l <<<"$headers") > 20)) || { echo "only these headers were installed: $headers" >&2; exit 1; }
for compiler in g++ clang++; do
  # shellcheck disable=SC2016
  xargs -P "$(nproc)" -I{} sh -c 'header=$1; shift; echo "#include <$header>" | "$@" -x c++ -' - {} \
    "$compiler" "${warnings[@]}" -I"$includes" -fsyntax-only <<<"$headers"
done
if grep -rlE '#include +[<"](xercesc|curl|fmt|spdlog|uriparser|uuid|simdjson|nlohmann|ini\.h)' "$includes"; then
  echo "an installed header includes a third-party one" >&2
  exit 1
fi
if find "$includes" -path '*private*' | grep .; then
  echo "a private header was installed" >&2
  exit 1
fi

# The tool starts where it was put.
mv "$prefix" "$work/elsewhere"
"$work/elsewhere/bin/qvrepos" version >/dev/null || { echo "the installed tool does not start" >&2; exit 1; }
mv "$work/elsewhere" "$prefix"

program=$source/examples/programs/job_lineage.cpp
job=$source/examples/repository/batch_jobs/clean_orders.djf
expect() { grep 'label="clean_orders"' >/dev/null || { echo "$1: no lineage was printed" >&2; exit 1; }; }

mkdir "$work/app"
cat >"$work/app/CMakeLists.txt" <<EOF
cmake_minimum_required(VERSION 3.25)
project(App CXX)
find_package(QvReposRes $version REQUIRED)
add_executable(app $program)
target_link_libraries(app PRIVATE QvReposRes::qvreposres)
EOF
cmake -G Ninja -S "$work/app" -B "$work/app/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS="${CXXFLAGS:-}" >/dev/null
ninja -C "$work/app/build" --quiet
"$work/app/build/app" "$job" | expect find_package

cat >"$work/app/folder.cpp" <<EOF
#include "qvlineagegraph/jobfolders.h"
#include <iostream>
int main(int, char** arguments) {
  qvreposres::Lineage lineage;
  for (const auto& error : qvlineagegraph::recordJobs(lineage, arguments[1]))
    std::cout << error << '\n';
  for (const auto& job : lineage.jobs())
    std::cout << job << '\n';
}
EOF
cat >"$work/app/graph.cpp" <<EOF
#include "qvlineagegraph/scan.h"
#include <cstdio>
int main(int, char** arguments) {
  const std::string path = arguments[1];
  const auto graph = qvlineagegraph::scan(std::span(&path, 1));
  std::printf("%zu jobs\\n", graph->counts().jobs);
}
EOF
cat >>"$work/app/CMakeLists.txt" <<EOF
add_executable(graph graph.cpp)
target_link_libraries(graph PRIVATE QvReposRes::qvlineagegraph)
add_executable(folder folder.cpp)
target_link_libraries(folder PRIVATE QvReposRes::qvlineagegraph)
EOF
ninja -C "$work/app/build" --quiet
[[ $("$work/app/build/graph" "$job") == "1 jobs" ]] || { echo "the lineage graph found no job" >&2; exit 1; }

[[ $("$work/app/build/folder" "$(dirname "$job")") == *broken_export.djf:9:1:*"ProcessJob clean_orders"* ]] ||
  { echo "no folder of jobs was recorded" >&2; exit 1; }

export PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name qvreposres.pc)")
libdir=$(pkg-config --variable=libdir qvreposres)
for compiler in g++ clang++; do
  [[ -n ${CXXFLAGS:-} && $CXX != */"$compiler" ]] && continue # one compiler's sanitizer runtime does not serve the other
  # shellcheck disable=SC2046,SC2086
  "$compiler" -std=c++20 ${CXXFLAGS:-} "$program" $(pkg-config --cflags --libs qvreposres) -o "$work/app/$compiler"
  LD_LIBRARY_PATH=$libdir "$work/app/$compiler" "$job" | expect "pkg-config with $compiler"
  # shellcheck disable=SC2046,SC2086
  "$compiler" -std=c++20 ${CXXFLAGS:-} "$work/app/graph.cpp" $(pkg-config --cflags --libs qvlineagegraph) -o "$work/app/graph"
  [[ $(LD_LIBRARY_PATH=$libdir "$work/app/graph" "$job") == "1 jobs" ]] || { echo "$compiler: no job" >&2; exit 1; }
done
