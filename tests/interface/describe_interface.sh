#!/bin/sh
# SPDX-License-Identifier: MIT
# describe_interface.sh C-COMPILER INCLUDE-DIRECTORY LIBRARY HEADER
# What programs outside can depend on, a line each: the names that the library gives away with their versions, the types
# of its functions (without the names of arguments), and the structures, enumerators, objects and constants of its header.
set -eu
cc=$1 include=$2 library=$3 header=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf '#include "%s"\n' "$header" >"$work/unit.c"
"$cc" -std=c11 -I"$include" -fsyntax-only -aux-info "$work/functions" "$work/unit.c"
"$cc" -std=c11 -I"$include" -E -dD "$work/unit.c" >"$work/text"

echo "# SPDX-License-Identifier: MIT"
echo "# exported names"
# Sanitizers add symbols of their own.
nm -D --defined-only "$library" | awk '$2 != "A" { print $NF }' |
    grep -vE '^(__asan_|__odr_asan|__ubsan_|__sanitizer_|__start_|__stop_|_init$|_fini$)' | LC_ALL=C sort
echo "# functions"
sed -n "s|^/\* $include/$header:[0-9]*:[A-Z]* \*/ extern ||p" "$work/functions" | LC_ALL=C sort
echo "# types and objects"
awk -v file="\"$include/$header\"" '
    /^# [0-9]+ "/ { inside = $3 == file; next }
    /^#/ { next }
    inside { text = text " " $0 }
    END {
        gsub(/extern "C" [{]/, "", text)
        depth = 0
        for (i = 1; i <= length(text); i++) {
            c = substr(text, i, 1)
            if (c == "{") depth++
            if (c == "}") depth--
            statement = statement c
            if (c == ";" && depth <= 0) {
                gsub(/[ \t]+/, " ", statement)
                sub(/^ /, "", statement)
                if (statement ~ /[{]/ || statement !~ /\(/) print statement
                statement = ""
            }
        }
    }' "$work/text"
echo "# constants"
awk -v file="\"$include/$header\"" '
    /^# [0-9]+ "/ { inside = $3 == file; next }
    inside && /^#define / && !/_H ?$/ && !/_VERSION_(MAJOR|MINOR|PATCH) / { sub(/^#define /, ""); print }' "$work/text" | LC_ALL=C sort
