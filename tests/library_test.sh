#!/usr/bin/env bash
# The library as packagers and other programs meet it: headers that compile alone, exactly the declared
# symbols, nothing that a real-time thread or a cautious system would refuse, the same plug-in whichever
# headers declare the interface to it, and an installed copy that serves find_package and pkg-config.
#
# usage: library_test.sh headers|symbols|clap_root|install SOURCE_DIR BUILD_DIR C_COMPILER CXX_COMPILER
set -euo pipefail
part=$1 source=$2 build=$3 cc=$4 cxx=$5
library=$build/brisel.clap
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

test_headers() {
    local header name program example
    for header in "$source"/include/brisel/*.h; do
        name=brisel/${header##*/}
        # Twice, so that a missing include guard shows.
        program=$(printf '#include <%s>\n#include <%s>\nint unit;\n' "$name" "$name")
        for compiler in "$cc -std=c11 -x c" "$cxx -std=c++20 -x c++"; do
            $compiler "${warnings[@]}" -I "$source/include" -fsyntax-only - <<<"$program" ||
                fail "$name does not compile alone: $compiler"
        done
    done
    # The example at the head of reverb.h: from its #include to the call that frees the object.
    example=$(sed -n '1,/\*\//{/#include </,/qv_reverb_destroy/s/^ \* \{0,3\}//p}' "$source/include/brisel/reverb.h")
    printf '%s\nint main(void) {\n%s\nreturn frames < 0;\n}\n' "${example%%$'\n'*}" "${example#*$'\n'}" |
        "$cc" -std=c11 -x c "${warnings[@]}" -I "$source/include" -fsyntax-only - || fail "the example of reverb.h"
}

# Relies on the form of a declaration: BRISEL_API, a type, a name, an opening parenthesis.
test_symbols() {
    local declared exported imported own dynamic segments mutable
    declared=$({
        echo clap_entry
        sed '/^#/d' "$source"/include/brisel/*.h | tr '\n' ' ' |
            grep -oP 'BRISEL_API [^(;]*?\w+(?=\()' | grep -oP '\w+$'
    } | LC_ALL=C sort)
    exported=$(nm -D --defined-only "$library" | awk '{print $3}' | LC_ALL=C sort)
    diff <(echo "$declared") <(echo "$exported") || fail "declared (<) and exported (>) symbols differ"
    # All that it calls: memory at creation, numbers, texts of the plug-in. No lock, no thread, no file.
    imported=$(nm -D --undefined-only "$library" | awk '{print $2}' | sed 's/@.*//' |
        grep -vxE '(calloc|aligned_alloc|free|mem(cpy|set|move|cmp)|str(cmp|tod)|(__)?snprintf(_chk)?)' |
        grep -vxE '(sin|cos|exp|log|pow|fmod|sqrt|floor|round|lround|log10|exp2|sincos)f?' |
        grep -vxE '__stack_chk_fail|__cxa_finalize|__gmon_start__|_ITM_\w+' || true)
    [[ -z $imported ]] || fail "the library calls $imported"
    dynamic=$(readelf -dW "$library") segments=$(readelf -lW "$library")
    ! grep -P 'NEEDED.*\[(?!libc\.so\.6|libm\.so\.6|ld-linux-x86-64\.so\.2)' <<<"$dynamic" || fail "needs more than libc and libm"
    # A relocation against one of its own names would bind to any other library that offers the name.
    own=$(readelf -rW "$library" | awk '{print $5}' | grep -Fx "$exported" || true)
    [[ -z $own ]] || fail "bound by the loader, to whatever library comes first: $own"
    [[ $dynamic == *'Flags: NOW'* ]] || fail "symbols are bound at their first call"
    [[ $dynamic != *TEXTREL* ]] || fail "code is relocated"
    [[ $segments == *GNU_RELRO* ]] || fail "relocated data stay writable"
    [[ $segments != *' RWE '* ]] || fail "memory both writable and executable: $segments"
    grep -q 'GNU_STACK .* RW ' <<<"$segments" || fail "no word about the stack: it may be executable"
    # The first three names come with the compiler's start-up files.
    mutable=$(objdump -t "$library" | grep -P ' \.(t?data|t?bss)\t' |
        grep -vE ' (completed\.[0-9]+|__dso_handle|__TMC_END__|\.data|\.bss)$' || true)
    [[ -z $mutable ]] || fail "mutable static data: $mutable"
}

# Compiles the plug-in's unit with the headers of a clap_ROOT; its object code goes to NAME.o.
compile_plugin() { # NAME CMAKE_ARGUMENT...
    local unit=plugin/CMakeFiles/brisel_plugin.dir/brisel_clap.cpp.o
    cmake -S "$source" -B "$work/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_COMPILER=$cxx" \
        -DCMAKE_CXX_COMPILER_WORKS=1 -DCMAKE_C_COMPILER_WORKS=1 -DBRISEL_BUILD_TESTS=OFF \
        -DBRISEL_BUILD_BENCH=OFF -DBRISEL_BUILD_RENDER=OFF "${@:2}" >"$work/log" 2>&1 &&
        cmake --build "$work/$1" --target "$unit" >>"$work/log" 2>&1 && cp "$work/$1/$unit" "$work/$1.o"
}

test_clap_root() {
    # Headers of an earlier interface version: as a tree, and as an installed package.
    local tree=$work/headers
    mkdir -p "$tree/include/clap" "$work/package/lib/cmake/clap"
    sed 's/\(CLAP_VERSION_REVISION\) 8/\1 2/' "$source/compat/clap/clap.h" >"$tree/include/clap/clap.h"
    cat >"$work/package/lib/cmake/clap/clap-config.cmake" <<END
add_library(clap INTERFACE IMPORTED)
set_target_properties(clap PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "$tree/include")
END
    echo 'set(PACKAGE_VERSION_COMPATIBLE TRUE)' >"$work/package/lib/cmake/clap/clap-config-version.cmake"
    compile_plugin ours || fail "ours: $(cat "$work/log")"
    for root in "$tree" "$work/package"; do
        compile_plugin theirs "-Dclap_ROOT=$root" || fail "$root: $(cat "$work/log")"
        grep -q "$tree/include" "$work/theirs/build.ninja" || fail "$root: not on the include path"
        cmp "$work/ours.o" "$work/theirs.o" || fail "the plug-in differs with the headers of $root"
        rm -r "$work/theirs"
    done
    # Two fields of one size change places: nothing but the pinned offsets can tell.
    sed -i 's/^\( *\)clap_id id;/\1SWAPPED/; s/^\( *\)clap_param_info_flags flags;/\1clap_id id;/
        s/^\( *\)SWAPPED/\1clap_param_info_flags flags;/' "$tree/include/clap/clap.h"
    ! compile_plugin swapped "-Dclap_ROOT=$tree" || fail "headers of another layout pass"
    grep -q 'static.assert' "$work/log" || fail "other layout: $(cat "$work/log")"
    ! compile_plugin nowhere "-Dclap_ROOT=$work/nowhere" || fail "a clap_ROOT without headers passes"
}

# The copy is moved after the installation, into a folder whose name holds a space.
test_install() {
    local prefix="$work/moved here" flags
    unset LD_LIBRARY_PATH
    cmake --install "$build" --prefix "$work/first" >"$work/log" || fail "installation: $(cat "$work/log")"
    mv "$work/first" "$prefix"
    [[ -f $prefix/lib/clap/brisel.clap ]] || fail "no plug-in in lib/clap"
    diff -r "$source/include/brisel" "$prefix/include/brisel" || fail "the installed headers differ"
    { cmake -S "$source/examples" -B "$work/examples" -G Ninja "-DCMAKE_C_COMPILER=$cc" \
        "-DCMAKE_PREFIX_PATH=$prefix" && cmake --build "$work/examples"; } >"$work/log" 2>&1 ||
        fail "find_package: $(cat "$work/log")"
    (cd / && "$work/examples/impulse") >"$work/response" || fail "the find_package program"
    flags=$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs brisel) || fail "pkg-config"
    # eval, as a shell or make would: pkg-config escapes the space.
    eval "'$cc' -std=c11 ${warnings[*]} '$source/examples/impulse.c' $flags -o '$work/impulse'" ||
        fail "compilation with: $flags"
    (cd / && "$work/impulse") | cmp - "$work/response" || fail "the two programs differ"
    # With a decay time of 3.5 s, and less at high frequencies, the response falls by at least 60 / 3.5 dB
    # a second.
    awk '{ energy[int((NR - 1) / 48000)] += $1 * $1 + $2 * $2 }
        END { fall = 10 * log(energy[1] / energy[2]) / log(10); exit !(fall > 16.5 && fall < 60) }' \
        "$work/response" || fail "not the decay that was set"
    [[ ! -e $build/brisel-render ]] ||
        (cd / && "$prefix/bin/brisel-render" "$source/examples/dry.wav" "$work/wet.wav") ||
        fail "the installed renderer"
}

"test_$part"
