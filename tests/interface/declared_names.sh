#!/bin/sh
# SPDX-License-Identifier: MIT
# declared_names.sh C-COMPILER INCLUDE-DIRECTORY HEADER
# The functions and data objects that a header itself declares, one a line, sorted. The compiler finds the functions; data
# objects are the "extern" declarations without parentheses that it leaves in the preprocessed text.
set -eu
cc=$1 include=$2 header=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf '#include "%s"\n' "$header" >"$work/unit.c"
"$cc" -std=c11 -I"$include" -fsyntax-only -aux-info "$work/functions" "$work/unit.c"
"$cc" -std=c11 -I"$include" -E "$work/unit.c" >"$work/text"
{
    sed -n "s|^/\* $include/$header:[0-9]*:[A-Z]* \*/ extern ||p" "$work/functions" |
        sed -e 's/ *(.*//' -e 's/.*[ *]//'
    awk -v file="\"$include/$header\"" '
        /^# [0-9]+ "/ { inside = $3 == file; next }
        inside { text = text " " $0 }
        END { count = split(text, statements, ";")
              for (i = 1; i <= count; i++) {
                  statement = statements[i]
                  sub(/[{}]/, "", statement)
                  if (statement !~ /(^| )extern /  || statement ~ /\(/ || statement ~ /extern "C"/) continue
                  gsub(/\[[^]]*\]/, "", statement)
                  words = split(statement, word, /[ *]+/)
                  print word[words] } }' "$work/text"
} | sort -u
