#!/usr/bin/env bash
# The library exports exactly clap_entry and the functions that the public headers declare, needs
# nothing but libc, libm and the loader, calls its own functions without asking the loader for them,
# and holds neither mutable static data nor anything that a cautious system refuses to map.
#
# usage: exports_test.sh SOURCE_DIR LIBRARY
set -euo pipefail
include=$1/include/brisel library=$2

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# A declaration is BRISEL_API, a type, a name, an opening parenthesis, maybe over several lines.
declared=$({
    echo clap_entry
    sed '/^#/d' "$include"/*.h | tr '\n' ' ' |
        grep -oP 'BRISEL_API [^(;]*?\w+(?=\()' | grep -oP '\w+$'
} | LC_ALL=C sort)
exported=$(nm -D --defined-only "$library" | awk '{print $3}' | LC_ALL=C sort)

if ! diff <(echo "$declared") <(echo "$exported"); then
    fail "declared in the headers (<) and exported by the library (>) differ"
fi

needed=$(readelf -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd ' ')
foreign=$(grep -vxE 'libc\.so\.6|libm\.so\.6|ld-linux-x86-64\.so\.2' <<<"${needed// /$'\n'}" || true)
[[ -z $foreign ]] || fail "the library needs $foreign"

# A relocation against one of its own names would bind to any other library that offers the name.
own=$(readelf -rW "$library" | awk '{print $5}' | grep -Fx "$exported" || true)
[[ -z $own ]] || fail "bound by the loader, to whatever library comes first: $own"

# Bound and write-protected before the first call; nothing both writable and executable.
dynamic=$(readelf -dW "$library") segments=$(readelf -lW "$library")
[[ $dynamic == *'Flags: NOW'* ]] || fail "symbols are bound at their first call"
[[ $dynamic != *TEXTREL* ]] || fail "code is relocated"
[[ $segments == *GNU_RELRO* ]] || fail "relocated data stay writable"
[[ $segments != *' RWE '* ]] || fail "memory both writable and executable: $segments"
grep -q 'GNU_STACK .* RW ' <<<"$segments" || fail "no word about the stack: it may be executable"

# The first three names come with the compiler's start-up files.
mutable=$(objdump -t "$library" | grep -P ' \.(t?data|t?bss)\t' |
    grep -vE ' (completed\.[0-9]+|__dso_handle|__TMC_END__|\.data|\.bss)$' || true)
[[ -z $mutable ]] || fail "mutable static data: $mutable"

echo "$(wc -l <<<"$exported") symbols; needs $needed"
