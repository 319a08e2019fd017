#!/bin/sh
# SPDX-License-Identifier: MIT
# exports_test.sh C-COMPILER INCLUDE-DIRECTORY LIBRARY HEADER
# A library exports exactly what its header declares.
set -eu
cc=$1 include=$2 library=$3 header=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$(dirname "$0")/declared_names.sh" "$cc" "$include" "$header" >"$work/declared"
# Sanitizers add symbols of their own.
nm -D --defined-only "$library" | awk '$2 != "A" { print $NF }' | sed 's/@.*//' |
    grep -vE '^(__asan_|__odr_asan|__ubsan_|__sanitizer_|__start_|__stop_|_init$|_fini$)' | sort -u >"$work/exported"
test -s "$work/declared" || { echo "no declarations were found in $header"; exit 1; }
diff -u --label declared "$work/declared" --label exported "$work/exported"
