#!/bin/bash
# SPDX-License-Identifier: MIT
# watch_test.sh BUILD: a client boots on the wire while it is watched, live and from the recording of it, and one that
# nobody knows asks for its address. Ends with "N passed, N failed".
set -u
build=$1
here=$(dirname "$(readlink -f "$0")")
# shellcheck source=tests/rehearsal/good_server.sh
. "$here/good_server.sh"
watch=$build/libexec/hostadm/watch
passed=0 failed=0
check() { # check TITLE COMMAND...
    local title=$1
    shift
    if "$@" >/tmp/checked 2>&1; then
        passed=$((passed + 1)) && echo "ok      $title"
    else
        failed=$((failed + 1)) && echo "FAILED  $title" && sed 's/^/        /' /tmp/checked /tmp/live
    fi
}
client() { nsenter --net=/run/netns/client timeout 30 "$@"; }
begin_watching() { # begin_watching OPTION...
    "$watch" "$@" >/tmp/live 2>&1 &
    watching=$!
    soon grep -q listening /tmp/live
}
end_watching() { kill -INT $watching; wait $watching; watched=$?; }
boot() {
    client "$build/bin/boot_reverse_arp" cli0 250 20
    client ip addr add $address/24 brd + dev cli0
    client curl -sS -m 5 -o /tmp/fetched "tftp://$server/$digits"
    client "$build/bin/boot_bootparams" -b 192.168.1.255 whoami $address
    client "$build/bin/boot_bootparams" $server getfile $name root
    client nfs-ls nfs://$server$root
    client nfs-cat nfs://$server$root/etc/vfstab
}
told() { grep -Eq "$1" "${2:-/tmp/live}"; }

make_good_server || { echo "no good server"; exit 2; }
begin_watching --record /tmp/boot.pcap
boot >/tmp/boot.log 2>&1
soon told "$name works with the files of its root"
end_watching
check "the boot is told as a good one" test $watched = 0
for line in "asks for its address" "gets the address $address from $server" "asks for the file $digits" \
    "has the file $digits, 3000 bytes" "asks for its name, by broadcast" "learns that it is $name, router $server" \
    "learns where the root of $name is: server \($server\):$root" "mounts $root" "works with the files of its root" \
    "came as far as"; do
    check "told: $line" told "$name $line"
done
"$watch" --read /tmp/boot.pcap >/tmp/recorded 2>&1
check "the recording tells the same" diff \
    <(sed -n 's/^ *[0-9.]*  //p' /tmp/live | grep -v '^log:') <(sed -n 's/^ *[0-9.]*  //p' /tmp/recorded)

stop in.tftpd
begin_watching $name
client timeout 3 curl -sS -m 3 -o /tmp/fetched "tftp://$server/$digits" >/dev/null 2>&1
soon told "$name gets no answer: it asked for the file $digits"
check "a silence is told with its meaning" told "gets no answer: it asked for the file $digits.*(TFTP|tftpd)"
end_watching
check "nobody started" test $watched = 1

begin_watching
client sh -c "ip link set cli0 down; ip link set cli0 address 08:00:20:00:00:42; ip link set cli0 up"
client "$build/bin/boot_reverse_arp" cli0 100 5 >/dev/null 2>&1
check "who is unknown is told with the command that adds him" \
    soon told "08:00:20:00:00:42 is unknown here.*client/add_diskless .*ethernet=08:00:20:00:00:42"
end_watching

echo "$passed passed, $failed failed"
[ $failed = 0 ]
