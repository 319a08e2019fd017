#!/bin/sh
# SPDX-License-Identifier: MIT
# manual_pages_test.sh FOLDER...
# Every manual page in these folders is sound for mandoc as for man, tells how its program is called by an example, and
# fits a terminal of 80 columns.
set -eu
failures=0 pages=0
fail() {
    echo "FAILED: $1"
    failures=$((failures + 1))
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# shellcheck disable=SC2044 # our names hold no blanks
for page in $(find "$@" -name '*.[1-8]' -type f); do
    pages=$((pages + 1))
    mandoc -T lint "$page" >"$work/lint" 2>&1 || :
    [ ! -s "$work/lint" ] || fail "mandoc complains: $(cat "$work/lint")"
    ! grep -q '^\.so ' "$page" || fail "$page leads to another one by .so; make a link of it"
    grep -qE '^\.SH (EXAMPLES|BEISPIELE)$' "$page" || fail "$page has no EXAMPLES"
    LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" >"$work/shown" 2>"$work/complaints" || :
    [ ! -s "$work/complaints" ] || fail "man complains of $page: $(cat "$work/complaints")"
    [ "$(LC_ALL=C.UTF-8 wc -L <"$work/shown")" -le 80 ] || fail "$page is wider than 80 columns"
done
[ "$pages" -gt 0 ] || fail "there are no pages in $*"
echo "$pages pages looked at, $failures failures"
[ "$failures" = 0 ]
