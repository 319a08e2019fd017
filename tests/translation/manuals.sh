#!/bin/sh
# SPDX-License-Identifier: MIT
# manuals.sh PAGES TRANSLATIONS: each translation has every paragraph of the manual pages that are written by hand.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for page in "$1"/*.8; do
    grep -q '^\.so ' "$page" || echo "--master $page"
done >"$work/masters"
# shellcheck disable=SC2046 # our names hold no blanks
po4a-updatepo --format man --master-charset UTF-8 $(cat "$work/masters") --po "$work/template.po" >"$work/said" 2>&1 || {
    cat "$work/said" >&2
    exit 1
}
[ "$(grep -c '^msgid' "$work/template.po")" -gt 100 ]
for translation in "$2"/*.po; do
    msgcmp "$translation" "$work/template.po"
done
