#!/usr/bin/env bash
# The plug-in is the same, to the bit of its object code, whichever headers declare the plug-in
# interface to it: our own, a header tree or an installed package given by clap_ROOT. The version that
# headers state for themselves does not show; headers of another layout are refused by the compiler.
# The header tree is made of our own header.
#
# usage: clap_root_test.sh SOURCE_DIR CXX_COMPILER
set -euo pipefail
source=$1 cxx=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unit=plugin/CMakeFiles/brisel_plugin.dir/brisel_clap.cpp.o

fail() {
    echo "FAILED: $*" >&2
    exit 1
}
configure() { # BUILD ARGUMENT...
    cmake -S "$source" -B "$work/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        "-DCMAKE_CXX_COMPILER=$cxx" -DCMAKE_CXX_COMPILER_WORKS=1 -DCMAKE_C_COMPILER_WORKS=1 \
        -DBRISEL_BUILD_TESTS=OFF -DBRISEL_BUILD_BENCH=OFF -DBRISEL_BUILD_RENDER=OFF "${@:2}" \
        >"$work/$1.log" 2>&1
}
compile() { # BUILD; the unit's object code goes to BUILD.o
    cmake --build "$work/$1" --target "$unit" >>"$work/$1.log" 2>&1 && cp "$work/$1/$unit" "$work/$1.o"
}
build() { # BUILD WORDS ARGUMENT...; WORDS is what the configuration says about the headers
    { configure "$1" "${@:3}" && compile "$1"; } || fail "$1: $(cat "$work/$1.log")"
    grep -q -- "-- Plug-in interface: $2" "$work/$1.log" || fail "$1: $(grep Plug-in "$work/$1.log")"
}

# Headers of an earlier interface version, in a folder of their own with the header one level deeper.
tree=$work/tree
mkdir -p "$tree/include/clap"
sed 's/\(CLAP_VERSION_REVISION\) 8/\1 2/' "$source/compat/clap/clap.h" >"$tree/include/clap/all.h"
echo '#include "all.h"' >"$tree/include/clap/clap.h"
grep -q 'REVISION 2' "$tree/include/clap/all.h" || fail "the header has no version to change"

# The same as an installed package.
package=$work/package
mkdir -p "$package/lib/cmake/clap"
cp -r "$tree/include" "$package"
cat >"$package/lib/cmake/clap/clap-config.cmake" <<'END'
add_library(clap INTERFACE IMPORTED)
set_target_properties(clap PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES "${CMAKE_CURRENT_LIST_DIR}/../../../include")
END
cat >"$package/lib/cmake/clap/clap-config-version.cmake" <<'END'
set(PACKAGE_VERSION 1.2.2)
set(PACKAGE_VERSION_COMPATIBLE TRUE)
END

build ours compat/clap/clap.h
build tree "$tree/include/clap/clap.h" "-Dclap_ROOT=$tree"
build package 'official headers 1.2.2' "-Dclap_ROOT=$package"
for other in tree package; do
    grep -q "$work/$other/include\|$work/$other/lib" "$work/$other/build.ninja" ||
        fail "$other: its headers are not on the include path"
    cmp "$work/ours.o" "$work/$other.o" || fail "the plug-in differs with the headers of: $other"
done

# Two fields of one size change places: nothing but the pinned offsets can tell.
sed -i 's/^\( *\)clap_id id;/\1SWAPPED/; s/^\( *\)clap_param_info_flags flags;/\1clap_id id;/
    s/^\( *\)SWAPPED/\1clap_param_info_flags flags;/' "$tree/include/clap/all.h"
! compile tree || fail "headers of another layout pass"
grep -q 'static assertion failed\|static_assert failed' "$work/tree.log" ||
    fail "other layout: $(cat "$work/tree.log")"

! configure nowhere "-Dclap_ROOT=$work/nowhere" || fail "a clap_ROOT without headers passes"
grep -q "clap_ROOT=$work/nowhere" "$work/nowhere.log" || fail "nowhere: $(cat "$work/nowhere.log")"
echo "identical: $(stat -c %s "$work/ours.o") bytes of object code"
