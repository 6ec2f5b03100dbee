#!/usr/bin/env bash
# Makes the Debian packages of the build, looks at what they say and hold, and uses them as an application and a user
# do. They are unpacked into a root of their own with dpkg-deb -x: installing them would need every package that they
# depend on in that root too, and root's rights. All that leaves out is the libraries' call of ldconfig.
set -euo pipefail
source=$1 build=$2 version=$3
work=$(mktemp -d)
trap 'rm -rf "$work" "$build"/install_manifest_{runtime,development,qvrepos}.txt' EXIT # cpack writes those too
cd "$work"
mkdir control
fail() { echo "$*" >&2; exit 1; }

cpack --config "$build/packaging/CPackConfig.cmake" -B "$work/packages" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log" >&2; exit 1; }
architecture=$(dpkg --print-architecture)
major=${version%%.*}
runtime=libqvreposres$major
multiarch=$(find packages -path '*_CPack_Packages*' -prune -o -name "${runtime}_*.deb" -exec dpkg-deb -c {} \; |
  sed -n 's|.* \./usr/lib/\([^/]*\)/$|\1|p')
lib=usr/lib/$multiarch
[[ $multiarch == *-linux-* ]] || fail "the libraries are not in a multiarch folder: $multiarch"

package() { echo "$work/packages/$1_${version}_$architecture.deb"; }
field() { dpkg-deb -f "$(package "$1")" "$2"; }
# What a package holds, without its folders: "<mode> <path>[ -> <target>]".
files() { dpkg-deb -c "$(package "$1")" | awk '!/^d/ { sub(/^[.]\//, "", $6); print $1, $6 ($7 ? " -> " $8 : "") }'; }
says() { # PACKAGE FIELD PATTERN
  grep -qxE -- "$3" <<<"$(field "$1" "$2")" || fail "$1: $2 is '$(field "$1" "$2")', not '$3'"
}
holds() { # PACKAGE LINE...
  local name=$1 held line
  held=$(files "$name")
  for line in "${@:2}"; do
    grep -qxF -- "$line" <<<"$held" || fail "$name lacks '$line'"
  done
}
holds_only() { # PACKAGE PATTERN
  ! files "$1" | cut -d' ' -f2- | grep -vE -- "^($2)" || fail "$1 holds what is not its own"
}

[[ $(find packages -maxdepth 1 -name '*.deb' | wc -l) == 3 ]] || fail "not three packages: $(ls packages)"
for name in "$runtime" libqvreposres-dev qvrepos; do
  says "$name" Package "$name"
  says "$name" Version "${version//./\\.}"
  says "$name" Architecture "$architecture"
  says "$name" Maintainer "The library's developers <developers@localhost>"
  grep -qx 'Repository Resource Library - [a-z ]*' <<<"$(field "$name" Description)" || fail "$name has no description"
  ! dpkg-deb -c "$(package "$name")" | grep -vE '^(d|-|l)rw[x-]r[w-][x-]r[w-][x-] root/root ' ||
    fail "$name has special permissions or owners"
  dpkg-deb -e "$(package "$name")" "$work/control/$name"
done

# Of maintainer scripts there are only the libraries' two, and those only run ldconfig.
scripts=$(cd "$work/control" && find . -name '*inst' -o -name '*rm' | sort | xargs)
[[ $scripts == "./$runtime/postinst ./$runtime/postrm" ]] || fail "maintainer scripts: $scripts"
for script in postinst postrm; do
  commands=$(sed -E 's/^ *(if .*; then|fi)$//; /^(#.*|set -e|)$/d; s/^[[:space:]]+//' "$work/control/$runtime/$script")
  [[ $commands == ldconfig ]] || fail "$script runs more than ldconfig: $commands"
done

says "$runtime" Section libs
says libqvreposres-dev Section libdevel
says qvrepos Section utils
for library in libc6 libxerces-c3 libcurl libfmt libspdlog libinih liburiparser libuuid libsimdjson libstdc++6; do
  grep -q -- "$library" <<<"$(field "$runtime" Depends)" || fail "$runtime does not depend on $library"
done
says libqvreposres-dev Depends "$runtime \(= $version\)"
says qvrepos Depends "(.*, )?$runtime \(= $version\)(, .*)?"
grep -q libc6 <<<"$(field qvrepos Depends)" || fail "qvrepos does not depend on libc6"

for library in libqvreposres libqvplatform libqvlineagegraph; do
  holds "$runtime" "-rw-r--r-- $lib/$library.so.$version" "lrwxrwxrwx $lib/$library.so.$major -> $library.so.$version"
  holds libqvreposres-dev "lrwxrwxrwx $lib/$library.so -> $library.so.$major"
done
headers=usr/include/qvreposres-${version%.*}
holds libqvreposres-dev "-rw-r--r-- $headers/qvreposres/qvreposres.h" "-rw-r--r-- $headers/qvxbase/qvbstring.h" \
  "-rw-r--r-- $headers/qvlineagegraph/graph.h" "-rw-r--r-- $lib/pkgconfig/qvlineagegraph.pc" \
  "-rw-r--r-- $lib/pkgconfig/qvreposres.pc" "-rw-r--r-- $lib/cmake/QvReposRes/QvReposResConfig.cmake" \
  "-rw-r--r-- usr/share/doc/libqvreposres-dev/examples/programs/job_lineage.cpp"
holds qvrepos "-rwxr-xr-x usr/bin/qvrepos" "-rw-r--r-- usr/share/man/man1/qvrepos.1.gz" \
  "-rw-r--r-- usr/share/bash-completion/completions/qvrepos" "-rw-r--r-- usr/share/zsh/vendor-completions/_qvrepos"
for name in "$runtime" libqvreposres-dev qvrepos; do
  holds "$name" "-rw-r--r-- usr/share/doc/$name/changelog.gz" "-rw-r--r-- usr/share/doc/$name/copyright"
done
holds "$runtime" "-rw-r--r-- usr/share/doc/$runtime/LICENCES.page"
holds_only "$runtime" "$lib/lib|usr/share/(doc/$runtime|lintian/overrides)/"
holds_only libqvreposres-dev "$lib/|$headers/|usr/share/(doc/libqvreposres-dev|lintian/overrides)/"
holds_only qvrepos 'usr/bin/qvrepos|usr/share/(man|bash-completion|zsh|doc/qvrepos|lintian/overrides)/'

grep -qx "libqvreposres $major $runtime (>= $version)" "$work/control/$runtime/shlibs" ||
  fail "$runtime does not tell dpkg-shlibdeps of its libraries"

root=$work/root
for name in "$runtime" libqvreposres-dev qvrepos; do
  dpkg-deb -x "$(package "$name")" "$root"
done
! grep -rlF -e "$source" -e "$work" "$root" || fail "a file names a folder of the build"
for binary in "$root/$lib"/lib*.so.*.*.* "$root/usr/bin/qvrepos"; do
  ! objdump -p "$binary" | grep -E 'R(UN)?PATH' || fail "$binary searches a folder of its own"
  ! objdump -h "$binary" | grep -F .debug_info || fail "$binary is not stripped"
done

examples=$root/usr/share/doc/libqvreposres-dev/examples
program=$examples/programs/job_lineage.cpp
job=$examples/repository/batch_jobs/clean_orders.djf
export LD_LIBRARY_PATH=$root/$lib
expect() { grep 'label="clean_orders"' >/dev/null || fail "$1: no lineage was printed"; }

# shellcheck disable=SC2046
g++ -std=c++20 "$program" -o "$work/with_pkg_config" \
  $(PKG_CONFIG_LIBDIR=$root/$lib/pkgconfig PKG_CONFIG_SYSROOT_DIR=$root pkg-config --cflags --libs qvreposres)
"$work/with_pkg_config" "$job" | expect pkg-config

mkdir "$work/app"
cat >"$work/app/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(App CXX)
find_package(QvReposRes ${version%.*} REQUIRED)
add_executable(app $program)
target_link_libraries(app PRIVATE QvReposRes::qvreposres)
END
cmake -G Ninja -S "$work/app" -B "$work/app/build" -DCMAKE_PREFIX_PATH="$root/usr" >/dev/null
ninja -C "$work/app/build" --quiet
"$work/app/build/app" "$job" | expect find_package

"$root/usr/bin/qvrepos" lineage "$job" | expect qvrepos
[[ $("$root/usr/bin/qvrepos" generate man) == "$(zcat "$root/usr/share/man/man1/qvrepos.1.gz")" ]] ||
  fail "the manual page is not this tool's"
grep -q 'the owner of the library, who sets the terms' "$root/usr/share/doc/qvrepos/copyright" ||
  fail "the copyright file does not say whose the terms are"
[[ $(zcat "$root/usr/share/doc/qvrepos/changelog.gz" | head -n 1) == "qvreposres ($version) unstable; urgency=medium" ]] ||
  fail "the changelog is not that of this version"

# The examples of the help work on the installed ones.
cp -r "$examples" "$work/examples"
tried=0
while read -r example; do
  (cd "$work" && PATH=$root/usr/bin:$PATH bash -c "$example" >"$work/out" 2>&1) || { cat "$work/out" >&2; fail "this fails: $example"; }
  tried=$((tried + 1))
done < <("$root/usr/bin/qvrepos" generate man | sed -n '/^\.SH EXAMPLES/,$p' | sed 's/\\-/-/g' | grep '^qvrepos .*examples/repository')
((tried > 5)) || fail "the help has no more than $tried examples with files"

# What is found in the packages stands in cmake/lintian with its reason.
lintian --allow-root --fail-on error,warning --tag-display-limit 0 "$work"/packages/*.deb || fail "lintian finds more than is listed"
