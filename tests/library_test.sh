#!/usr/bin/env bash
# The library as packagers and other programs meet it: headers that compile alone, exactly the declared
# symbols, nothing that a real-time thread or a cautious system would refuse, and an installed copy that serves find_package and pkg-config.
#
# usage: library_test.sh headers|symbols|install|subproject SOURCE_DIR BUILD_DIR C_COMPILER CXX_COMPILER
set -euo pipefail
part=$1 source=$2 build=$3 cc=$4 cxx=$5
library=$build/brisel.clap live=$build/brisel-live.clap api=$build/libbrisel-live
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

test_headers() {
    local header name program example
    for header in "$source"/include/brisel/*.h*; do
        name=brisel/${header##*/}
        # Twice, so that a missing include guard shows.
        program=$(printf '#include <%s>\n#include <%s>\nint unit;\n' "$name" "$name")
        for compiler in "$cc -std=c11 -x c" "$cxx -std=c++20 -x c++"; do
            [[ $name != *.hpp || $compiler == "$cxx"* ]] || continue
            $compiler "${warnings[@]}" -I "$source/include" -fsyntax-only - <<<"$program" ||
                fail "$name does not compile alone: $compiler"
        done
    done
    # The example at the head of reverb.h: from its #include to the call that frees the object.
    example=$(sed -n '1,/\*\//{/#include </,/qv_reverb_destroy/s/^ \* \{0,3\}//p}' "$source/include/brisel/reverb.h")
    printf '%s\nint main(void) {\n%s\nreturn frames < 0;\n}\n' "${example%%$'\n'*}" "${example#*$'\n'}" |
        "$cc" -std=c11 -x c "${warnings[@]}" -I "$source/include" -fsyntax-only - || fail "the example of reverb.h"
    # That of live.h is a program; linked to the static library it needs nothing of C++.
    sed -n '/^ \*   #include </,/^ \*   }$/s/^ \*   //p' "$source/include/brisel/live.h" >"$work/example.c"
    "$cc" -std=c11 "${warnings[@]}" -I "$source/include" "$work/example.c" "$api.a" -lm -o "$work/example" ||
        fail "the example of live.h"
    [[ $("$work/example") == "Decay 4.50 s" ]] || fail "the example of live.h does not run"
    ! command -v qemu-x86_64 >/dev/null || test_old_processor
}

# One without AVX2, emulated: who meets it says so, and ends in order.
test_old_processor() {
    local program message='processor (has no AVX2 or no FMA|with AVX2 and FMA)'
    for program in "$work/example" "$build/brisel-render --version" "$build/bench/bench_table --help"; do
        [[ -e ${program%% *} ]] || continue
        # shellcheck disable=SC2086  # a program and its option
        ! qemu-x86_64 -cpu Nehalem $program >"$work/log" 2>&1 || fail "$program runs without AVX2"
        grep -qE "$message" "$work/log" || fail "$program without AVX2: $(cat "$work/log")"
    done
    cat >"$work/host.c" <<'END'
#include <dlfcn.h>
#include <stddef.h>
struct entry { unsigned version[3]; _Bool (*init)(const char*); };
int main(int count, char** files) {
    void* clap = dlopen(files[1], RTLD_NOW);
    struct entry* entry = clap ? dlsym(clap, "clap_entry") : NULL;
    if (!entry || entry->init(files[1])) return 1;
    void* lv2 = count > 2 ? dlopen(files[2], RTLD_NOW) : NULL;
    void* (*descriptor)(unsigned) = NULL;
    if (lv2) *(void**)&descriptor = dlsym(lv2, "lv2_descriptor");
    return count > 2 && (!descriptor || descriptor(0));
}
END
    "$cc" "$work/host.c" -o "$work/host"
    qemu-x86_64 -cpu Nehalem "$work/host" "$live" "$build"/brisel-live.lv2/brisel-live.so 2>"$work/log" ||
        fail "the plug-ins without AVX2: $(cat "$work/log")"
    grep -qE "$message" "$work/log" || fail "the plug-ins do not say why they decline"
}

# Relies on the form of a declaration: BRISEL_API, a type, a name, an opening parenthesis; and on the
# exact engine's headers being those that do not begin with an l.
test_symbols() {
    local declared exported imported own dynamic segments mutable
    declared=$({
        echo clap_entry
        sed '/^#/d' "$source"/include/brisel/[!l]*.h | tr '\n' ' ' |
            grep -oP 'BRISEL_API [^(;]*?\w+(?=\()' | grep -oP '\w+$'
    } | LC_ALL=C sort)
    exported=$(nm -D --defined-only "$library" | awk '{print $3}' | LC_ALL=C sort)
    diff <(echo "$declared") <(echo "$exported") || fail "declared (<) and exported (>) symbols differ"
    diff <(echo "$declared" | sed /clap_entry/d) <(nm -g --defined-only "$build/core/libbrisel.a" |
        awk 'NF == 3 {print $3}' | LC_ALL=C sort) || fail "the static library's symbols differ"
    declared=$(tr '\n' ' ' <"$source/include/brisel/live.h" | grep -oP 'BRISEL_API [^(;]*?\w+(?=\()' |
        grep -oP '\w+$' | LC_ALL=C sort)
    for file in "-D $api.so" "$api.a"; do
        # shellcheck disable=SC2086  # an option and a file
        diff <(echo "$declared") <(nm -g --defined-only $file | awk 'NF == 3 {print $3}' | LC_ALL=C sort) ||
            fail "declared (<) symbols and those of $file (>) differ"
    done
    [[ $(readelf -d "$api.so") == *'soname: [libbrisel-live.so.0.1]'* ]] || fail "no soname"
    # All that it calls: memory at creation, numbers, texts of the plug-in. No lock, no thread, no file.
    imported=$(nm -D --undefined-only "$library" | awk '{print $2}' | sed 's/@.*//' |
        grep -vxE '(calloc|aligned_alloc|free|mem(cpy|set|move|cmp)|str(cmp|tod)|(__)?snprintf(_chk)?)' |
        grep -vxE '(sin|cos|exp|log|pow|fmod|sqrt|floor|round|lround|log10|exp2|sincos)f?' |
        grep -vxE '__stack_chk_fail|__cxa_finalize|__gmon_start__|_ITM_\w+' || true)
    [[ -z $imported ]] || fail "the library calls $imported"
    # Brisel Live shows its entry alone, and needs nothing but the C library; nor do programs with it.
    [[ $(nm -D --defined-only "$live" | awk '{print $3}') == clap_entry ]] || fail "Live exports more"
    imported=$(readelf -d "$live" "$api.so" | grep NEEDED | grep -vE '\[lib[cm]\.so\.6\]' || true)
    [[ -z $imported ]] || fail "Live needs $imported"
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
    # Names of the compiler's start-up files, and what its run-time library finds out about the processor.
    mutable=$(objdump -t "$library" | grep -P ' \.(t?data|t?bss)\t' |
        grep -vE ' (completed\.[0-9]+|__dso_handle|__TMC_END__|(\.hidden )?__cpu_(model|features2)|\.data|\.bss)$' || true)
    [[ -z $mutable ]] || fail "mutable static data: $mutable"
    # The linker would give every processor the one copy of a function that it keeps.
    local shared
    shared=$(nm -C "$build"/core/CMakeFiles/brisel_core.dir/avx512/{wide_loop,ffdn_er_avx512}.cpp.o |
        grep -E ' [VWu] ' || true)
    [[ -z $shared ]] || fail "compiled for AVX-512 and shared: $shared"
}

# The copy is moved after the installation, into a folder whose name holds a space.
test_install() {
    local prefix="$work/moved here" flags
    unset LD_LIBRARY_PATH
    cmake --install "$build" --prefix "$work/first" >"$work/log" || fail "installation: $(cat "$work/log")"
    mv "$work/first" "$prefix"
    [[ -f $prefix/lib/clap/brisel.clap && -f $prefix/lib/clap/brisel-live.clap ]] ||
        fail "no plug-ins in lib/clap"
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
    (cd / && "$work/examples/impulse_static") | cmp - "$work/response" || fail "the static program differs"
    "$work/examples/jack_style" >"$work/played" || fail "jack_style: $(cat "$work/played")"
    flags=$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs brisel-live) || fail "pkg-config"
    eval "'$cc' -std=c11 ${warnings[*]} '$source/examples/jack_style.c' $flags -lm -o '$work/jack_style'" ||
        fail "compilation with: $flags"
    (cd / && "$work/jack_style") | cmp - "$work/played" || fail "the two programs of Live differ"
    # Four files, each the same, whichever thread renders it and whatever its reverb has heard before.
    for k in 1 2 3 4; do tail -c 400000 "$source/examples/dry.wav" >"$work/$k.raw"; done
    "$work/examples/offline_batch" "Grand Hall" 48000 "$work"/?.raw || fail "offline_batch"
    for k in 2 3 4; do cmp "$work/1.raw.wet" "$work/$k.raw.wet" || fail "one of the batch differs"; done
    [[ $(stat -c %s "$work/1.raw.wet") -gt 800000 ]] || fail "the batch without its tail"
    # With a decay time of 3.5 s, and less at high frequencies, the response falls by at least 60 / 3.5 dB
    # a second.
    awk '{ energy[int((NR - 1) / 48000)] += $1 * $1 + $2 * $2 }
        END { fall = 10 * log(energy[1] / energy[2]) / log(10); exit !(fall > 16.5 && fall < 60) }' \
        "$work/response" || fail "not the decay that was set"
    [[ ! -e $build/brisel-render ]] ||
        (cd / && "$prefix/bin/brisel-render" "$source/examples/dry.wav" "$work/wet.wav") ||
        fail "the installed renderer"
}

# As a part of another project: only what that links is built, not optimised, which changes no bit.
test_subproject() {
    { cmake -S "$source/examples" -B "$work/all" -G Ninja "-DCMAKE_C_COMPILER=$cc" "-DCMAKE_CXX_COMPILER=$cxx" \
        -DCMAKE_BUILD_TYPE=Debug "-DBRISEL_SOURCE=$source" && cmake --build "$work/all" -j 2; } >"$work/log" 2>&1 ||
        fail "add_subdirectory: $(cat "$work/log")"
    cmp <("$work/all/impulse" | head -1000) <("$work/all/impulse_static" | head -1000) || fail "exact engines"
    "$work/all/jack_style" >"$work/log" || fail "jack_style: $(cat "$work/log")"
}

"test_$part"
