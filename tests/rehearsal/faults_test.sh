#!/bin/bash
# SPDX-License-Identifier: MIT
# faults_test.sh BUILD: breaks a good server in one way after another; each time the rehearsal must fail at the stage
# where the client would stop, say why, and pass again after the repair. Ends with "N passed, N failed".
set -u
build=$1
here=$(dirname "$(readlink -f "$0")")
# shellcheck source=tests/rehearsal/good_server.sh
. "$here/good_server.sh"
rehearse=$build/libexec/hostadm/rehearse
passed=0 failed=0
ok() { passed=$((passed + 1)); printf 'ok      %s\n' "$1"; }
wrong() { failed=$((failed + 1)); printf 'FAILED  %s: %s\n' "$1" "$2"; sed 's/^/        /' /tmp/rehearsed; }

rehearse_client() { timeout 60 "$rehearse" $name >/tmp/rehearsed 2>&1; }
boots() { # boots TITLE
    if rehearse_client && grep -q 'nothing is wrong' /tmp/rehearsed; then ok "$1"; else wrong "$1" "it does not boot"; fi
}

# fault TITLE STAGE PATTERN BREAK REPAIR: STAGE is "live" where only the running daemons are broken.
fault() {
    local title=$1 stage=$2 pattern=$3 break=$4 repair=$5
    eval "$break"
    rehearse_client
    local status=$?
    if [ $status != 1 ]; then
        wrong "$title" "status $status"
    elif [ "$stage" != live ] && ! grep -Eq "^$stage +FAILED" /tmp/rehearsed; then
        wrong "$title" "the stage \"$stage\" did not fail"
    elif ! grep -Eq "$pattern" /tmp/rehearsed; then
        wrong "$title" "it is not named by /$pattern/"
    else
        ok "$title"
    fi
    eval "$repair"
    boots "$title, repaired"
}

make_good_server || { echo "no good server"; exit 2; }
boots "a good server"

fault "no Ethernet address" address "/etc/ethers" ": >/etc/ethers" write_tables
fault "another Ethernet address" address "/etc/ethers" "echo 08:00:20:00:00:99 other >/etc/ethers" write_tables
fault "no address" address "." "sed -i /$name/d /etc/hosts" write_tables
fault "no boot links" address "no answer to the reverse ARP" \
    "rm /tftpboot/$digits*" "ln -s $program /tftpboot/$digits; ln -s $program /tftpboot/$digits.KEL4M"
fault "rarpd for another boot directory" address "in.rarpd runs|boot directory|-b" \
    "stop in.rarpd; mkdir -p /srv/other; start_rarpd -b /srv/other srv0" "stop in.rarpd; start_rarpd"
fault "no rarpd" live "in.rarpd: it does not run|rarpd" "stop in.rarpd" start_rarpd
fault "a stopped rarpd" live "in.rarpd.*stopped|stopped" 'kill -STOP $(pidof in.rarpd)' 'kill -CONT $(pidof in.rarpd)'
fault "interface down" address "." "ip link set srv0 down" "ip link set srv0 up"
fault "server in another network" address "." "ip addr flush dev srv0; ip addr add 10.1.1.1/24 brd + dev srv0" \
    "ip addr flush dev srv0; ip addr add $server/24 brd + dev srv0"

fault "dangling links" "boot program" "no such file" "mv /tftpboot/$program /tftpboot/x" "mv /tftpboot/x /tftpboot/$program"
fault "link of the architecture dangles" "boot program" "$digits.KEL4M" \
    "ln -sfn nowhere /tftpboot/$digits.KEL4M" "ln -sfn $program /tftpboot/$digits.KEL4M"
fault "unreadable boot program" "boot program" "access is denied|refuses it" "chmod 600 /tftpboot/$program" "chmod 644 /tftpboot/$program"
fault "empty boot program" "boot program" "empty" "cp /tftpboot/$program /tmp/keep; : >/tftpboot/$program" \
    "cp /tmp/keep /tftpboot/$program"
fault "TFTP from another directory" "boot program" "in.tftpd|/srv/tftp" \
    "stop in.tftpd; mkdir -p /srv/tftp; start_tftpd /srv/tftp" "stop in.tftpd; start_tftpd"
fault "no TFTP daemon" live "in.tftpd" "stop in.tftpd" start_tftpd
fault "a stopped TFTP daemon" live "in.tftpd.*stopped|stopped" 'kill -STOP $(pidof in.tftpd)' 'kill -CONT $(pidof in.tftpd)'

fault "broadcasts are not handed on" name "rpcbind" "stop_rpc; start_rpc -l" "stop_rpc; start_rpc"
fault "no entry in bootparams" name "bootparam" ": >/etc/bootparams" write_tables
fault "no boot-parameter daemon" live "rpc.bootparamd" "stop rpc.bootparamd" start_bootparamd
fault "a router that is none" live "127.0.0.1" "stop rpc.bootparamd; start_bootparamd -s" \
    "stop rpc.bootparamd; start_bootparamd"

fault "a server without address" parameters "nowhere" "sed -i s/=server:/=nowhere:/ /etc/bootparams" write_tables
fault "a server with a loopback address" parameters "127.0.1.1" \
    "sed -i 's/^$server server/127.0.1.1 server/' /etc/hosts" write_tables
fault "no root in the entry" parameters "root" "echo $name swap=server:$swap >/etc/bootparams" write_tables

fault "root exported to somebody else" root "cannot be mounted" "write_exports RW no_root_squash 192.168.1.77; reread_exports" \
    "write_exports; reread_exports"
fault "another path in bootparams" root "cannot be mounted" "sed -i s,$root,/export/root/none, /etc/bootparams" write_tables
fault "a stopped NFS server" live "ganesha.nfsd.*stopped|stopped" 'kill -STOP $(cat /run/ganesha.pid)' \
    'kill -CONT $(cat /run/ganesha.pid)'

fault "no first process" start "first process" "mv $root/sbin/init $root/sbin/x" "mv $root/sbin/x $root/sbin/init"
fault "a first process that cannot run" start "executed by nobody" "chmod 644 $root/sbin/init" "chmod 755 $root/sbin/init"
fault "an empty first process" start "empty" "cp -p $root/sbin/init /tmp/init; : >$root/sbin/init" "cp -p /tmp/init $root/sbin/init"
fault "its interpreter is missing" start "/bin/sh" "mv $root/bin/sh $root/bin/x" "mv $root/bin/x $root/bin/sh"
fault "a console that is a file" start "console" "rm $root/dev/console; touch $root/dev/console" \
    "rm $root/dev/console; mknod $root/dev/console c 5 1"
fault "a mount that is not exported" live "/export/none" \
    "printf 'server:/export/none\t-\t/usr\tnfs\t-\tyes\tro\n' >>$root/etc/vfstab" "sed -i /none/d $root/etc/vfstab"

fault "the root user is nobody" write "." "chmod 755 $root; write_exports RW root_squash; reread_exports" \
    "write_exports; reread_exports"
fault "a root that is read-only" write "." "write_exports RO; reread_exports" "write_exports; reread_exports"
fault "no swap file" swap "$swap" "mv $swap $swap.x" "mv $swap.x $swap"
fault "an empty swap file" swap "empty" "mv $swap $swap.x; touch $swap; chmod 600 $swap" "mv $swap.x $swap"

fault "a route that leads nowhere" "boot program" "the route to $address" \
    "ip route add blackhole $address" "ip route del blackhole $address"
if command -v nft >/dev/null; then
    drop() { nft "add table inet f; add chain inet f i { type filter hook input priority 0; }; add rule inet f i $* drop"; }
    fault "TFTP is filtered" "boot program" "packet filter" "drop iif srv0 udp dport 69" "nft flush ruleset"
    fault "the port mapper is filtered" name "packet filter" "drop iif srv0 udp dport 111" "nft flush ruleset"
    fault "NFS is filtered" root "packet filter" "drop iif srv0 tcp dport 2049" "nft flush ruleset"
fi

echo "$passed passed, $failed failed"
[ $failed = 0 ]
