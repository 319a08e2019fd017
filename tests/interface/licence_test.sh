#!/bin/sh
# SPDX-License-Identifier: MIT
# licence_test.sh SOURCES: every file whose form has comments names its licence at its beginning.
set -eu
cd "$1"
unnamed=$(find . \( -name .git -o -name 'build*' -o -path ./fuzz/corpus \
    -o -path ./tests/framework/scripts -o -path ./debian/source -o -path ./debian/changelog -o -path ./debian/copyright \) -prune -o -type f ! -name '*.json' ! -name LICENSE \
    ! -name '*.pot' ! -name '*.pcap' -exec sh -c 'for file; do
        head -n 5 "$file" | grep -q "SPDX-License-Identifier: MIT" || echo "$file"
    done' licence {} +)
if [ -n "$unnamed" ]; then
    echo "These files do not name their licence in their first five lines:"
    echo "$unnamed"
    exit 1
fi
