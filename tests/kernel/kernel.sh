#!/bin/bash
# SPDX-License-Identifier: MIT
# kernel.sh BUILD: real kernels, in emulated machines, boot from what hostadm provisioned, or stop where it is missing.
# Run by "run" in a throwaway root. Ends with "N passed, N failed"; exit status 0 only if nothing failed.
set -u
build=$1
here=$(dirname "$(readlink -f "$0")")
# shellcheck source=tests/kernel/machines.sh
. "$here/machines.sh"
boot_program=/usr/lib/PXELINUX/pxelinux.0

prepare >/tmp/prepare.log 2>&1 || die "not prepared"
{ make_tree && make_initramfs /tmp/initrd.img; } >>/tmp/prepare.log 2>&1 && start_daemons >/tmp/daemons.log 2>&1 ||
    die "not ready"
note "everything is ready"

add() { # add NAME NUMBER [WORD]...
    local name=$1 number=$2
    shift 2
    hostadm run client/add_diskless hostname="$name" address="192.168.1.$number" ethernet="$(ethernet "$number")" \
        instruction_set=kel4 implementation_arch="${architecture:-kel4m}" os_name=Quorvel os_version=2.5 tree=/export/tree \
        swap_size=1m server=server "$@"
}
run() { hostadm run "$@"; }

# ---- clients of the old way --------------------------------------------------------------------------------------

old() { check "$1 is added" add "$@" boot_program=$boot_program; }
old client1 10
old switched 11
check "switched is disabled" run client/disable hostname=switched
old before 12
check "before gets another name and other addresses" \
    run client/change hostname=before new_hostname=after address=192.168.1.22 ethernet="$(ethernet 22)"
old removed 13
check "removed is removed" run client/remove hostname=removed purge=yes

# Each of these lacks one thing.
old linkless 14
rm /tftpboot/C0A8010E /tftpboot/C0A8010E.KEL4M
old etherless 15
check "etherless: its Ethernet address is forgotten" run database/remove_ether hostname=etherless
old nameless 16
check "nameless: its name has no address" run database/remove_host hostname=nameless
old unknown 17
check "unknown: its boot parameters are forgotten" run database/remove_bootparams client=unknown
old lost 18
sed -i '/^lost/s,root=server:[^ \t]*,root=server:/export/root/nowhere,' /etc/bootparams
old astray 19
sed -i '/^astray/s,root=server:,root=nobody:,' /etc/bootparams
old shareless 20
check "shareless: its root is no longer shared" unshare /export/root/shareless
old initless 21
rm /export/root/initless/sbin/init
architecture=kel4c old programless 23 # by itself with its boot program
chmod 600 /tftpboot/inetboot.kel4c.Quorvel_2.5

old_way client1 10
old_way nobody 11 12 13 14 15 16 99 # all that get no address, as the cards of one machine
old_way after 22
old_way unknown 17
old_way lost 18
old_way astray 19
old_way shareless 20
old_way initless 21
old_way programless 23
wait
check "switched is enabled" run client/enable hostname=switched
old_way switched 11
wait

boots() { # boots NAME NUMBER DIGITS: every stage
    check "$1: address by reverse ARP" told "$1" "reverse ARP: address 192.168.1.$2 from server $server"
    check "$1: boot program by TFTP" told "$1" "boot program: $3 $(md5sum <$boot_program)"
    check "$1: name by broadcast" told "$1" "whoami: name $1 "
    check "$1: root by broadcast" told "$1" "getfile: .*address $server path /export/root/$1"
    check "$1: its own init runs on its root, as root" \
        told "$1" "MARKER $server:/export/root/$1 as $1, for root only"
    check "$1: what it wrote is there, as root's" wrote "$1" "$1"
}
boots client1 10 C0A8010A
boots after 22 C0A80116
boots switched 11 C0A8010B

silence() { # silence TITLE NUMBER: it asks, and nobody answers
    check "$1: asks" seen "$2" "reverse-arp asked"
    check "$1: no answer by reverse ARP" told nobody "$(ethernet "$2"): no answer by reverse ARP"
}
silence "the disabled client" 11
silence "the changed client with its old Ethernet address" 12
silence "the removed client" 13
silence "without a boot link" 14
silence "without an Ethernet address in the tables" 15
silence "without an IP address in the tables" 16
silence "a stranger" 99

stops() { # stops NAME STAGE-BEFORE TEXT: so far it comes, and no farther
    check "$1: comes to its $2" told "$1" "$2:"
    check "$1: stops there" told "$1" "$3"
}
stops programless "reverse ARP" "FAILED no boot program C0A80117 by TFTP"
stops unknown "boot program" "FAILED whoami: no answer"
stops astray "whoami" "FAILED getfile: no answer"
stops lost "getfile" "FAILED cannot mount $server:/export/root/nowhere"
stops shareless "getfile" "FAILED cannot mount $server:/export/root/shareless"
stops initless "root" "Kernel panic - not syncing: Attempted to kill init"

finish
