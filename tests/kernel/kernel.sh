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
{ make_tree && make_initramfs /tmp/initrd.img boot_reverse_arp boot_bootparams; } >>/tmp/prepare.log 2>&1 && start_daemons >/tmp/daemons.log 2>&1 ||
    die "not ready"
note "everything is ready"

run() { hostadm run "$@"; }

# ---- clients of the old way --------------------------------------------------------------------------------------

old() { check "$1 is added" add "$@" boot_program=$boot_program; }
old client1 10
old before 12
check "before gets another name and other addresses" \
    run client/change hostname=before new_hostname=after address=192.168.1.22 ethernet="$(ethernet 22)"
check "after is disabled" run client/disable hostname=after
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

# ---- PCs ---------------------------------------------------------------------------------------------------------

modern() { check "$1, a PC, is added" add "$@" boot=pc kernel_words="$kernel_words"; }
add_kernel || die "no kernel for PCs"
please_the_firmware
check "PCs are set up" run netboot/setup_pc interface=br0
modern pcbefore 31
check "pcbefore gets another name and other addresses" \
    run client/change hostname=pcbefore new_hostname=pcafter address=192.168.1.41 ethernet="$(ethernet 41)"
check "pcafter is disabled" run client/disable hostname=pcafter
modern pcremoved 32
check "pcremoved is removed" run client/remove hostname=pcremoved purge=yes
modern menuless 33
rm /tftpboot/grub/grub.cfg-C0A80121
version=2.6 modern kernelless 34
rm /tftpboot/linux/Quorvel_2.6/vmlinuz
modern pcshareless 35
check "pcshareless: its root is no longer shared" unshare /export/root/pcshareless

# ---- all are switched on -----------------------------------------------------------------------------------------

silent="22 12 13 14 15 16 31 32 99"
pc pcafter 41 BIOS
# All that stop before their own init, as the cards of one machine; the last has a root, but no init there.
# shellcheck disable=SC2086 # several words
old_way many $silent 17 18 19 20 23 21
check "the disabled PC: asks, and nothing is for it" soon ignored 41
check "the disabled PC: no offer" refused seen 41 "dhcp offer"
check "pcafter is enabled while its firmware still asks" run client/enable hostname=pcafter
pc menuless 33 BIOS
pc kernelless 34 BIOS
old_way client1 10
pc_directly pcshareless 35
soon told many "$(ethernet 22): no answer by DHCP"
check "after is enabled" run client/enable hostname=after
old_way after 22
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

silence() { # silence TITLE NUMBER: it asks, and nobody answers
    check "$1: asks" seen "$2" "reverse-arp asked"
    check "$1: no answer by reverse ARP" told many "$(ethernet "$2"): no answer by reverse ARP"
}
silence "the disabled client" 22
silence "the changed client with its old Ethernet address" 12
silence "the removed client" 13
silence "without a boot link" 14
silence "without an Ethernet address in the tables" 15
silence "without an IP address in the tables" 16
silence "a stranger" 99

stops() { # stops TITLE NUMBER STAGE-BEFORE TEXT: so far it comes, and no farther
    check "$1: comes to its $3" told many "$(ethernet "$2"): $3: "
    check "$1: stops there" told many "$(ethernet "$2"): stops, $4"
}
stops programless 23 "reverse ARP" "no boot program C0A80117 by TFTP"
stops unknown 17 "boot program" "whoami: no answer"
stops astray 19 "whoami" "getfile: no answer"
stops lost 18 "getfile" "cannot mount $server:/export/root/nowhere"
stops shareless 20 "getfile" "cannot mount $server:/export/root/shareless"
check "initless: comes to its root" told many "root: $server:/export/root/initless"
check "initless: stops there" told many "Kernel panic - not syncing: Attempted to kill init"

check "pcafter: address by DHCP" seen 41 "dhcp ack"
check "pcafter: its menu by TFTP" seen 41 "tftp done /grub/grub.cfg-C0A80129"
check "pcafter: its own init runs on its root, as root, under its name" \
    told pcafter "MARKER $server:/export/root/pcafter as pcafter, for root only"
check "pcafter: what it wrote is there, as root's" wrote pcafter pcafter
pc_silence() { # pc_silence TITLE NUMBER: it asks, and nobody answers
    check "$1: asks, and nothing is for it" ignored "$2"
    check "$1: no offer" refused seen "$2" "dhcp offer"
    check "$1: no answer by DHCP" told many "$(ethernet "$2"): no answer by DHCP"
}
pc_silence "the changed PC with its old Ethernet address" 31
pc_silence "the removed PC" 32
pc_silence "a strange PC" 99
check "menuless: asks for its menu" seen 33 "tftp refused /grub/grub.cfg-C0A80121"
check "menuless: stops at the boot loader's prompt" told menuless "grub> "
check "kernelless: asks for its kernel" seen 34 "tftp refused /linux/Quorvel_2.6/vmlinuz"
check "kernelless: the boot loader says so" told kernelless "error: File not found"
check "pcshareless: comes to its network" told pcshareless "the network is up"
check "pcshareless: stops there" told pcshareless "FAILED cannot mount $server:/export/root/pcshareless"

# ---- how long each stage took ------------------------------------------------------------------------------------

for machine in "$consoles"/*; do
    note "${machine##*/} was on from $(($(head -n 1 "$machine" | cut -d' ' -f1) - start)) ms on, for $(tail -n 1 "$machine" | cut -d' ' -f1) ms"
done
for machine in "client1 10" "pcafter 41"; do
    read -r name number <<<"$machine"
    note "stages of $name, in milliseconds:"
    python3 "$here/stages.py" "$consoles/$name" $wire "$(ethernet "$number")" | sed 's/^/           /'
done
finish
