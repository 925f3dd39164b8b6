#!/usr/bin/env bash
# An installed copy serves C programs: examples/impulse.c, built with find_package and with
# pkg-config, finds the library without further ado and renders a decaying response. The copy is
# moved after the installation, into a folder whose name holds a space.
#
# usage: install_test.sh SOURCE_DIR BUILD_DIR C_COMPILER
set -euo pipefail
source=$1 build=$2 cc=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
unset LD_LIBRARY_PATH

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

cmake --install "$build" --prefix "$work/first" >"$work/log" ||
    fail "installation: $(cat "$work/log")"
prefix="$work/moved here"
mv "$work/first" "$prefix"

[[ -f $prefix/lib/clap/brisel.clap ]] || fail "no plug-in in lib/clap"
diff -r "$source/include/brisel" "$prefix/include/brisel" || fail "the installed headers differ"

cmake -S "$source/examples" -B "$work/examples" -G Ninja "-DCMAKE_C_COMPILER=$cc" \
    "-DCMAKE_PREFIX_PATH=$prefix" "-DCMAKE_C_FLAGS=${warnings[*]}" >"$work/log" 2>&1 ||
    fail "find_package: $(cat "$work/log")"
cmake --build "$work/examples" >"$work/log" 2>&1 || fail "its build: $(cat "$work/log")"
(cd / && "$work/examples/impulse") >"$work/response.txt" || fail "the find_package program"

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
flags=$(pkg-config --cflags --libs brisel) || fail "pkg-config"
# eval, as a shell or make would: pkg-config escapes the space.
eval "'$cc' -std=c11 ${warnings[*]} '$source/examples/impulse.c' $flags -o '$work/impulse'" ||
    fail "compilation with: $flags"
(cd / && "$work/impulse") >"$work/response-2.txt" || fail "the pkg-config program"
cmp "$work/response.txt" "$work/response-2.txt" || fail "the two programs differ"

# With a decay time of 3.5 s, and less at high frequencies, the response falls by at least 60 / 3.5
# dB from one second to the next.
awk '
    { energy[int((NR - 1) / 48000)] += $1 * $1 + $2 * $2 }
    NF != 2 || $1 - $1 != 0 || $2 - $2 != 0 { bad = NR }
    END {
        if (bad) { print "FAILED: line " bad " is no frame"; exit 1 }
        if (!(energy[2] > 0)) { print "FAILED: no tail after " NR " frames"; exit 1 }
        fall = 10 * log(energy[1] / energy[2]) / log(10)
        printf "%d frames, %.1f dB quieter in the third second than in the second\n", NR, fall
        if (!(fall > 16.5 && fall < 60)) { print "FAILED: not the decay that was set"; exit 1 }
    }' "$work/response.txt"

if [[ -e $build/brisel-render ]]; then
    (cd / && "$prefix/bin/brisel-render" "$source/examples/dry.wav" "$work/wet.wav") ||
        fail "the installed renderer"
    [[ -s $work/wet.wav ]] || fail "the installed renderer wrote nothing"
fi
