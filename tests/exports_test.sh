#!/usr/bin/env bash
# The library exports exactly clap_entry and the functions that the public headers declare, and
# needs nothing but libc, libm and the loader.
#
# usage: exports_test.sh SOURCE_DIR LIBRARY
set -euo pipefail
include=$1/include/brisel library=$2

# A declaration is BRISEL_API, a type, a name, an opening parenthesis, maybe over several lines.
declared=$({
    echo clap_entry
    sed '/^#/d' "$include"/*.h | tr '\n' ' ' |
        grep -oP 'BRISEL_API [^(;]*?\w+(?=\()' | grep -oP '\w+$'
} | LC_ALL=C sort)
exported=$(nm -D --defined-only "$library" | awk '{print $3}' | LC_ALL=C sort)

if ! diff <(echo "$declared") <(echo "$exported"); then
    echo "FAILED: declared in the headers (<) and exported by the library (>) differ" >&2
    exit 1
fi

needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd ' ')
expected='libc\.so\.6|libm\.so\.6|ld-linux-x86-64\.so\.2'
foreign=$(grep -vxE "$expected" <<<"${needed// /$'\n'}" || true)
if [[ -n $foreign ]]; then
    echo "FAILED: the library needs $foreign" >&2
    exit 1
fi
echo "$(wc -l <<<"$exported") symbols; needs $needed"
