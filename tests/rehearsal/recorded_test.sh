#!/bin/bash
# SPDX-License-Identifier: MIT
# recorded_test.sh BUILD: what is told of a boot that was recorded once (recordings/boot.pcap), of one that broke off, and
# of a file that is none. No daemon is needed. Ends with "N passed, N failed".
set -u
build=$1
here=$(dirname "$(readlink -f "$0")")
recording=$here/recordings/boot.pcap
[ "${HOSTADM_SANDBOX:-}" = 1 ] || { echo "run this with in-sandbox: it writes into /etc"; exit 2; }
passed=0 failed=0
check() { # check TITLE COMMAND...
    local title=$1
    shift
    if "$@" >/tmp/checked 2>&1; then
        passed=$((passed + 1)) && echo "ok      $title"
    else
        failed=$((failed + 1)) && echo "FAILED  $title" && sed 's/^/        /' /tmp/checked /tmp/told
    fi
}
watch() { # its exit status goes to $watched
    "$build/libexec/hostadm/watch" --read "$@" >/tmp/told 2>&1
    watched=$?
}
refused() { ! "$@"; }
told() { sed 's/^ *[0-9.]*  //' /tmp/told | grep -Eqx "$1"; }

printf '192.168.1.1 server\n192.168.1.10 client1\n192.168.1.11 client2\n' >/etc/hosts
echo '08:00:20:aa:bb:01 client1' >/etc/ethers
echo 'client1 root=server:/export/root/client1' >/etc/bootparams

watch "$recording"
check "the client came as far as its root" test $watched = 0
while IFS= read -r line; do
    check "told: $line" told "$line"
done <<'END'
client1 asks for its address \(reverse ARP\)
client1 gets the address 192.168.1.10 from 192.168.1.1
client1 asks for the file C0A8010A \(TFTP\)
client1 has the file C0A8010A, 3000 bytes
client1 asks for its name, by broadcast
client1 learns that it is client1, router 192.168.1.1
client1 asks for the root of client1
client1 learns where the root of client1 is: server \(192.168.1.1\):/export/root/client1
client1 asks to mount /export/root/client1
client1 mounts /export/root/client1
client1 works with the files of its root \(NFS\)
client1 came as far as: start .*
END
check "in the order of the boot" diff <(grep -o 'asks for its address\|C0A8010A, \|by broadcast\|asks for the root\|mounts /export/root/client1$\|works with\|came as far' /tmp/told) \
    <(printf '%s\n' 'asks for its address' 'C0A8010A, ' 'by broadcast' 'asks for the root' 'mounts /export/root/client1' 'works with' 'came as far')

watch "$recording" client2
check "nothing is told of another client" refused told 'client1 .*'
check "another client started nothing" test $watched = 1

echo 'other 02:00:00:00:00:01' >/etc/ethers
: >/etc/bootparams
watch "$recording"
check "an Ethernet address that is in no table is told with the command that adds it" \
    told '08:00:20:aa:bb:01 is unknown here.*client/add_diskless .*ethernet=08:00:20:aa:bb:01.*'

# A recording that was cut off in the middle of a packet.
head -c 700 "$recording" >/tmp/cut.pcap
watch /tmp/cut.pcap
check "a recording that was cut off is told as that" grep -q truncated /tmp/told
check "and does not count as a boot" test $watched = 1
echo 'no recording' >/tmp/none.pcap
watch /tmp/none.pcap
check "a file that is no recording is refused" test $watched = 1
echo "$passed passed, $failed failed"
[ $failed = 0 ]
