#!/bin/sh
# SPDX-License-Identifier: MIT
# interface_test.sh C-COMPILER INCLUDE-DIRECTORY LIBRARY HEADER DESCRIPTION
# The interface is the one that is written down: no name, type or constant of it changes by accident.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$(dirname "$0")/describe_interface.sh" "$1" "$2" "$3" "$4" >"$work/now"
grep -q '(' "$work/now" || { echo "no function was found in $4"; exit 1; }
if ! diff -u --label "$(basename "$5")" "$5" --label "the interface as built" "$work/now"; then
    echo "The interface has changed. What programs use already must stay as it is; a new name needs a node of its own"
    echo "in cmake/exports/. If it is meant, say so in CHANGELOG.md and write the description anew:"
    echo "    $(dirname "$0")/describe_interface.sh $1 $2 $3 $4 >$5"
    exit 1
fi
