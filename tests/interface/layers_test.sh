#!/bin/sh
# SPDX-License-Identifier: MIT
# layers_test.sh SOURCE-DIRECTORY BUILD-DIRECTORY
# Each folder uses only the folders below it: in what it includes, and in what its libraries and programs need.
set -eu
source=$1 build=$2
failures=0
fail() {
    echo "FAILED: $1"
    failures=$((failures + 1))
}

# What a folder may include by quotes: its own headers, those of the rooms below it, and of include/ what is named.
rooms() { # FOLDER HEADERS-OF-INCLUDE [ROOM...]
    folder=$1 headers=$2
    shift 2
    allowed="$headers"
    for room in "$folder" "$@"; do
        allowed="$allowed|$room/[^\"]*"
    done
    wrong=$(grep -rnE '#include (["<]hostadm(\.h|/)|")' "$source/$folder" --include='*.cpp' --include='*.hpp' --include='*.h' |
        grep -vE "#include [\"<]($allowed)[\">]" || :)
    [ -z "$wrong" ] || fail "$folder includes what it may not: $wrong"
}
rooms base 'none'
rooms platform 'hostadm/platform\.h' base
rooms tables 'hostadm/(tables\.h|table_edit\.hpp)' base
rooms framework 'hostadm/(framework\.h|method\.hpp|runner\.hpp)' base
rooms sandbox 'hostadm/sandbox\.hpp' base
rooms compat 'none' base
rooms src 'hostadm\.h|hostadm/(framework|tables|platform)\.h' base
rooms server 'hostadm\.h|hostadm/(framework|tables|platform)\.h|hostadm/(method|table_edit)\.hpp' base
rooms rehearsal 'hostadm\.h|hostadm/(framework|tables|platform)\.h|hostadm/(method|table_edit|sandbox)\.hpp' server sandbox base
rooms methods 'hostadm\.h|hostadm/(framework|tables|platform)\.h|hostadm/(method|table_edit)\.hpp' server base
rooms cli 'hostadm/(method|runner|sandbox)\.hpp' base

[ ! -d "$source/rehearsal" ] || rooms rehearsal 'hostadm/sandbox\.hpp' server sandbox base

# A room that nobody has a rule for.
for folder in "$source"/*/; do
    case $(basename "$folder") in
    base | platform | tables | framework | sandbox | compat | src | server | methods | cli | rehearsal) ;;
    include | tests | fuzz | bench | build* | cmake | docs | po | scripts | debian) ;;
    *) [ -z "$(find "$folder" -name '*.cpp' -print -quit)" ] || fail "the folder $(basename "$folder") has no rule here" ;;
    esac
done

# One order of includes: the file's own header, the system's, the project's; each block in the order of the alphabet is
# clang-format's to keep. And one kind of guard: C headers, which others include, have a name of their own.
disorder=$(find "$source"/base "$source"/platform "$source"/tables "$source"/framework "$source"/sandbox "$source"/compat \
    "$source"/src "$source"/server "$source"/methods "$source"/cli \( -name '*.cpp' -o -name '*.hpp' \) -exec awk '
    FNR == 1 { project = 0; first = 1 }
    /^#include </ { if (project) { print FILENAME ":" FNR; project = 0 } first = 0 }
    /^#include "/ { if (!first) project = 1; first = 0 }' {} +)
[ -z "$disorder" ] || fail "the system's headers come before the project's: $disorder"
guards=$(grep -rlE '^ *# *ifndef [A-Z_]*_H(PP)?$' "$source" --include='*.hpp' --exclude-dir='build*' || :)
[ -z "$guards" ] || fail "these are guarded by #ifndef and not by #pragma once: $guards"
unguarded=$(find "$source" -path "$source/build*" -prune -o -name '*.hpp' ! -exec grep -q '^#pragma once$' {} \; -print)
[ -z "$unguarded" ] || fail "these have no #pragma once: $unguarded"

# The libraries of this project that a file needs.
needed() { # FILE
    readelf -d "$1" 2>/dev/null | sed -n 's/.*(NEEDED).*\[\(libhostadm[^.]*\)\.so.*/\1/p' | sort | tr '\n' ' '
}
needs() { # FILE LIBRARIES (in order, each followed by a blank)
    [ -e "$build/$1" ] || { fail "there is no $1"; return; }
    [ "$(needed "$build/$1")" = "$2" ] || fail "$1 needs $(needed "$build/$1")and not $2"
}
needs lib/libhostadm.so "libhostadm_framework libhostadm_platform libhostadm_tables "
needs lib/libhostadm_method.so ""
needs lib/libhostadm_framework.so "libhostadm_method "
needs lib/libhostadm_tables.so ""
needs lib/libhostadm_platform.so ""
needs bin/hostadm ""
for file in "$build"/compat/*; do
    [ ! -f "$file" ] || needs "${file#"$build"/}" ""
done
for file in "$build"/libexec/hostadm/methods/*/*; do
    case $(needed "$file") in
    *libhostadm_tables*) fail "$file goes past the library: $(needed "$file")" ;;
    esac
done

# Besides them, only the language's and the system's own libraries.
for name in hostadm hostadm_method hostadm_framework hostadm_tables hostadm_platform; do
    others=$(readelf -d "$build/lib/lib$name.so" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
        grep -vE '^lib(hostadm[a-z_]*|stdc\+\+|gcc_s|c|m|tirpc|asan|ubsan)\.so' || :)
    [ -z "$others" ] || fail "lib$name.so needs $others"
    # A program's own definition must win over the library's.
    ! readelf -d "$build/lib/lib$name.so" | grep -q SYMBOLIC || fail "lib$name.so is linked with -Bsymbolic"
done

# An empty entry of a search path stands for the current folder, whoever has put libraries there.
here=$(find "$build/bin" "$build/lib" "$build/libexec" "$build/compat" -type f \( -perm -u+x -o -name '*.so.*' \) -exec sh -c '
    for file; do ! readelf -d "$file" 2>/dev/null | grep -qE "R(UN)?PATH.*(\[:|::|:\])" || echo "$file"; done' sh {} +)
[ -z "$here" ] || fail "these look for libraries in the current folder: $here"
[ "$failures" = 0 ]
