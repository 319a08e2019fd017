#!/bin/sh
# SPDX-License-Identifier: MIT
# headers_test.sh INCLUDE-DIRECTORY C-COMPILER C++-COMPILER [CLANG CLANG++]
# Each header compiles alone and twice over, in C11 (those for C) and in C++20, with all warnings on.
set -eu
include=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0 compiled=0
check() { # COMPILER LANGUAGE STANDARD HEADER
    printf '#include "%s"\n#include "%s"\n' "$4" "$4" >"$work/unit"
    if "$1" -x "$2" "-std=$3" -I"$include" -Wall -Wextra -Wpedantic -Wshadow -Werror -fsyntax-only "$work/unit"; then
        compiled=$((compiled + 1))
    else
        echo "FAILED: $4 with $1 in $3"
        failures=$((failures + 1))
    fi
}
while [ $# -ge 2 ]; do
    for path in "$include"/*.h "$include"/hostadm/*.h; do
        check "$1" c c11 "${path#"$include"/}"
        check "$2" c++ c++20 "${path#"$include"/}"
    done
    for path in "$include"/hostadm/*.hpp; do
        check "$2" c++ c++20 "${path#"$include"/}"
    done
    shift 2
done
echo "$compiled headers compiled, $failures did not"
[ "$failures" = 0 ] && [ "$compiled" -ge 10 ]
