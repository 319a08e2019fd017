#!/bin/bash
# SPDX-License-Identifier: MIT
# session.sh BUILD: prints a session at a server with one client, as it is seen in a terminal. In a throwaway root.
set -u
build=$1
# shellcheck source=tests/rehearsal/good_server.sh
. "$(dirname "$(readlink -f "$0")")/../../tests/rehearsal/good_server.sh"
make_good_server >&2 || exit 1
export COLUMNS=100
hostadm() { "$build/bin/hostadm" "$@"; }
# A command as an administrator types it, and what is answered. Another status than what is meant ends it all.
type_in() { # type_in STATUS WORD...
    local wanted=$1 status=0
    shift
    printf '$ %s\n' "$*"
    "$@" 2>&1 || status=$?
    echo
    [ $status = "$wanted" ] || { echo "$*: status $status" >&2; exit 1; }
}
type_in 0 hostadm rehearse client1
type_in 0 hostadm preview client/change hostname=client1 ethernet=8:0:20:aa:bb:2
type_in 0 rm "${root:?}/sbin/init"
type_in 1 hostadm rehearse client1
