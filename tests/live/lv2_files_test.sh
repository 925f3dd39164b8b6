#!/usr/bin/env bash
# What hosts read about brisel-live.lv2 is valid, without a warning, and its library needs nothing but
# libc and libm and shows its one entry alone.
#
# usage: lv2_files_test.sh BUNDLE
set -euo pipefail
bundle=$1

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

library=$bundle/brisel-live.so
exported=$(nm -D --defined-only "$library" | awk '{print $3}')
[[ $exported == lv2_descriptor ]] || fail "exported: $exported"
needed=$(readelf -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
foreign=$(grep -vxE 'libc\.so\.6|libm\.so\.6|ld-linux-x86-64\.so\.2' <<<"$needed" || true)
[[ -z $foreign ]] || fail "the library needs $foreign"

if ! command -v lv2_validate >/dev/null; then
    echo "not validated: lv2_validate is missing (Debian: lv2-dev, sordi)"
    exit 77
fi
mapfile -t files < <(find "$bundle" -name '*.ttl')
report=$(lv2_validate "${files[@]}" 2>&1) || fail "$report"
[[ $report == *'Found 0 errors among'* ]] || fail "no verdict: $report"
! grep -iE '^(error|warning)' <<<"$report" || fail "$report"
echo "${#files[@]} files are valid"
