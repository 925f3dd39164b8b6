#!/usr/bin/env bash
# Every public header compiles alone, as C11 and as C++20, without a warning; the life-cycle example
# at the head of reverb.h compiles as a C11 program.
#
# usage: headers_test.sh SOURCE_DIR C_COMPILER CXX_COMPILER
set -euo pipefail
include=$1/include cc=$2 cxx=$3
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
failures=0

compiles() { # WHAT COMPILER...; the program comes on standard input
    local what=$1
    shift
    "$@" "${warnings[@]}" -I "$include" -fsyntax-only - || {
        echo "FAILED: $what" >&2
        failures=$((failures + 1))
    }
}

headers=("$include"/brisel/*.h)
[[ -e ${headers[0]} ]] || { echo "no headers in $include/brisel" >&2; exit 1; }
for header in "${headers[@]}"; do
    name=brisel/$(basename "$header")
    # Twice, so that a missing include guard shows.
    program=$(printf '#include <%s>\n#include <%s>\nint unit;\n' "$name" "$name")
    compiles "$name as C11" "$cc" -std=c11 -x c <<<"$program"
    compiles "$name as C++20" "$cxx" -std=c++20 -x c++ <<<"$program"
done

# The example: the lines of the first comment from its #include to the call that frees the object.
example=$(sed -n '1,/\*\//{/#include </,/qv_reverb_destroy/s/^ \* \{0,3\}//p}' \
    "$include/brisel/reverb.h")
[[ $example == "#include <brisel/reverb.h>"*"qv_reverb_destroy(rev);" ]] || {
    echo "no example at the head of reverb.h; found: $example" >&2
    exit 1
}
compiles "the example of reverb.h" "$cc" -std=c11 -x c <<END
${example%%$'\n'*}
int main(void) {
${example#*$'\n'}
    return frames < 0;
}
END

echo "${#headers[@]} headers, $failures failures"
[[ $failures == 0 ]]
