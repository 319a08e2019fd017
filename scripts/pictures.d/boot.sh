#!/bin/bash
# SPDX-License-Identifier: MIT
# boot.sh BUILD: prints the picture of a boot, as `hostadm rehearse` draws it, from a server with Debian's daemons. In a
# throwaway root.
set -u
build=$1
# shellcheck source=tests/rehearsal/good_server.sh
. "$(dirname "$(readlink -f "$0")")/../../tests/rehearsal/good_server.sh"
{ make_good_server && "$build/bin/hostadm" rehearse client1 --sequence /tmp/boot.svg; } >&2 || exit 1
cat /tmp/boot.svg
