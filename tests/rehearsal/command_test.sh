#!/bin/bash
# SPDX-License-Identifier: MIT
# command_test.sh BUILD: what `hostadm rehearse` prints and returns. Ends with "N passed, N failed".
set -u
build=$1
here=$(dirname "$(readlink -f "$0")")
# shellcheck source=tests/rehearsal/good_server.sh
. "$here/good_server.sh"
hostadm=$build/bin/hostadm
passed=0 failed=0
check() { # check TITLE COMMAND...
    local title=$1
    shift
    if "$@" >/tmp/checked 2>&1; then
        passed=$((passed + 1)) && echo "ok      $title"
    else
        failed=$((failed + 1)) && echo "FAILED  $title" && sed 's/^/        /' /tmp/checked
    fi
}
status_of() { # status_of STATUS COMMAND...
    local wanted=$1
    shift
    "$@"
    local status=$?
    # shellcheck disable=SC2053 # a pattern
    [[ $status == $wanted ]] || { echo "status $status"; return 1; }
}
says() { # says PATTERN STATUS COMMAND...
    local pattern=$1
    shift
    status_of "$@" >/tmp/said 2>&1
    local well=$?
    cat /tmp/said
    [ $well = 0 ] && grep -Eq "$pattern" /tmp/said
}
snapshot() { find /etc /tftpboot /export -xdev -newermt '1980-01-01' -printf '%p %s %m %T@\n' 2>/dev/null | sort; pidof in.rarpd in.tftpd rpcbind rpc.bootparamd ganesha.nfsd; ip -o link; ip -o -4 addr; }

make_good_server || { echo "no good server"; exit 2; }
snapshot >/tmp/before
check "a client that boots: status 0" says "nothing is wrong" 0 "$hostadm" rehearse client1
check "every stage is told" says "swap +passed" 0 "$hostadm" rehearse client1
check "the name in other letters" status_of 0 "$hostadm" rehearse CLIENT1
check "an unknown client: status 2, the nearest name" says "did you mean client1" 2 "$hostadm" rehearse clinet1
check "no client: status 2" status_of 2 "$hostadm" rehearse
check "JSON" says '"passed": true' 0 "$hostadm" rehearse client1 --json
check "as JSON it is one object" sh -c "'$hostadm' rehearse client1 --json | python3 -c 'import json,sys; o=json.load(sys.stdin); assert len(o[\"stages\"]) == 8, o'"
if command -v dot >/dev/null; then
    check "a picture" sh -c "'$hostadm' rehearse client1 --sequence /tmp/boot.svg && grep -q '</svg>' /tmp/boot.svg && grep -q WHOAMI /tmp/boot.svg"
fi
check "a picture that cannot be written is a failure" \
    says "cannot be written" 1 "$hostadm" rehearse client1 --sequence /nowhere/boot.svg
check "without root it says what it needs" \
    says "root" 1 setpriv --reuid=65534 --regid=65534 --clear-groups "$hostadm" rehearse client1
snapshot >/tmp/after
check "nothing on the server has changed" diff /tmp/before /tmp/after

# A client that installs itself reads only.
mkdir -p /export/install && touch /export/install/system
echo "$name root=server:$root install=server:${swap%/*}" >/etc/bootparams
write_exports RO && reread_exports
check "a client that installs itself is not asked to write" says "write +skipped" "[01]" "$hostadm" rehearse client1
echo "$name root=server:$root install=server:/export/install" >/etc/bootparams
check "what it installs from must be exported" says "install of client1 cannot be mounted" 1 "$hostadm" rehearse client1
write_tables && write_exports && reread_exports

chmod 600 /tftpboot/$program
"$hostadm" rehearse client1 --watch >/tmp/watched 2>&1 &
watching=$!
soon grep -q "waiting for a change" /tmp/watched
chmod 644 /tftpboot/$program
check "--watch ends when the client boots" sh -c "timeout 20 tail --pid=$watching -f /dev/null"
check "it has told of both" sh -c "grep -q FAILED /tmp/watched && grep -q 'nothing is wrong' /tmp/watched"

# Where Debian's own files start the daemons.
mkdir -p /etc/default
printf 'TFTP_USERNAME="tftp"\nTFTP_DIRECTORY="/tftpboot"\nTFTP_ADDRESS="0.0.0.0:69"\nTFTP_OPTIONS="--secure"\n' >/etc/default/tftpd-hpa
echo 'OPTIONS="-w -r"' >/etc/default/rpcbind
echo 'OPTS="-a"' >/etc/default/rarpd
mkdir -p /etc/systemd/system/bootparamd.service.d
printf '[Service]\nExecStart=\nExecStart=/usr/sbin/rpc.bootparamd -r %s\n' $server >/etc/systemd/system/bootparamd.service.d/router.conf
check "as it is started at boot" says "client1 boots in the rehearsal: yes" 0 "$hostadm" rehearse client1 --at-boot
echo 'OPTIONS="-w"' >/etc/default/rpcbind
check "a setting that is wrong only after a reboot" \
    says "name +FAILED" 1 "$hostadm" rehearse client1 --at-boot
check "and is not wrong now" says "client1 boots in the rehearsal: yes" "[01]" "$hostadm" rehearse client1

echo "$passed passed, $failed failed"
[ $failed = 0 ]
