#!/bin/sh
# SPDX-License-Identifier: MIT
# package_test.sh SYMBOLS-FILE LIBRARY...: the Debian package tells of each exported name the version that brought it.
set -eu
symbols=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for library; do
    name=$(readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
    awk -v name="$name" '/^[^ #*]/ { ours = $1 == name } /^ / && ours { print $1 }' "$symbols" | sort >"$work/told"
    # Sanitizers add symbols of their own. A version is a symbol, too.
    nm -D --defined-only --with-symbol-versions "$library" | awk '{ print $NF }' | sed 's/@@/@/; s/^[^@]*$/&@&/' |
        grep -vE '^(__asan_|__odr_asan|__ubsan_|__sanitizer_|__start_|__stop_|_init@|_fini@)' | sort -u >"$work/exported"
    test -s "$work/told" || { echo "$symbols tells nothing of $name"; exit 1; }
    diff -u --label "$symbols: $name" "$work/told" --label exported "$work/exported"
done
