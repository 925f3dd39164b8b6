#!/usr/bin/env bash
# brisel-render --live: Brisel Live's own parameters and presets, automation at its exact time, a tail that is
# not cut.
#
# usage: render_test.sh BRISEL_RENDER INPUT
set -euo pipefail
render=("$1" --live -q) input=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAILED: $*" >&2
    exit 1
}
to_raw() { # NAME ARGUMENT...; headerless, 8 bytes a frame
    "${render[@]}" "$input" "$work/$1.raw" --bits 32f "${@:2}"
}

[[ $("${render[@]}" --list-parameters --json | grep -c '"option"') == 26 ]] || fail "not 26 parameters"

# Values as the exact plug-in's options take them, and those of Live alone; out again as the plug-in's text.
"${render[@]}" --brisel 3 --modulate off --low-cut 0.1kHz --high-cut off --predelay-sync 1/16d --mod-rate 2x \
    --save-state "$work/state"
for line in 'brisel = 3' 'modulate = Off' 'low-cut = 100 Hz' 'predelay-sync = 1/16D' 'mod-rate = 2'; do
    grep -qxF "$line" "$work/state" || fail "the state lacks '$line': $(cat "$work/state")"
done
"${render[@]}" --predelay-sync 1/7 --list-parameters 2>/dev/null && fail "a step that is none passes"

# Each preset, by its name; what is saved is what it says.
presets=$("${render[@]}" --list-presets | cut -d' ' -f1)
[[ $(wc -w <<<"$presets") -ge 8 ]] || fail "presets: $presets"
for preset in $presets; do
    "${render[@]}" --preset "$preset" --save-preset "$work/one" --save-state "$work/saved"
    "${render[@]}" --preset "$work/one" --save-state "$work/again"
    cmp "$work/saved" "$work/again" || fail "preset $preset"
done

# The same bytes whatever the blocks; a change acts within eight frames of its time.
printf '0.1003s mix 0.9\n0.5s size 90ms\n0.7s decay 0.5s\n' >"$work/changes"
to_raw constant --tail 1s
for block in 64 1000 4096; do to_raw "$block" --tail 1s --block "$block" --automation "$work/changes"; done
{ cmp "$work/64.raw" "$work/1000.raw" && cmp "$work/64.raw" "$work/4096.raw"; } || fail "blocks show"
rate=$(od -An -tu4 -j24 -N4 "$input")
first=$({ cmp "$work/constant.raw" "$work/64.raw" || true; } | grep -oP 'byte \K\d+')
late=$(awk "BEGIN { print int(($first - 1) / 8) - int(0.1003 * $rate + 0.5) }")
((late >= 0 && late < 16)) || fail "the change acts $late frames after its time"

# What follows an automatic tail is below -120 dBFS.
to_raw auto --decay 2
to_raw long --decay 2 --tail 12s
size=$(stat -c %s "$work/auto.raw")
cmp -n "$size" "$work/auto.raw" "$work/long.raw" || fail "the tail differs"
tail -c "+$((size + 1))" "$work/long.raw" | od -An -v -w4 -tf4 |
    awk '$1 > 1e-6 || $1 < -1e-6 { exit 1 } END { exit NR < 1000 }' || fail "the tail is cut"
