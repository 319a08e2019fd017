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

# ---- PCs ---------------------------------------------------------------------------------------------------------

modern() { check "$1, a PC, is added" add "$@" boot=pc kernel_words="$kernel_words"; }
add_pcs() {
    add_kernel || die "no kernel for PCs"
    please_the_firmware
    check "PCs are set up" run netboot/setup_pc interface=br0
    modern pc1 30
    check "pc1 is disabled" run client/disable hostname=pc1
    modern pcbefore 31
    check "pcbefore gets another name and other addresses" \
        run client/change hostname=pcbefore new_hostname=pcafter address=192.168.1.41 ethernet="$(ethernet 41)"
    modern pcremoved 32
    check "pcremoved is removed" run client/remove hostname=pcremoved purge=yes
    modern menuless 33
    rm /tftpboot/grub/grub.cfg-C0A80121
    version=2.6 modern kernelless 34
    rm /tftpboot/linux/Quorvel_2.6/vmlinuz
    modern pcshareless 35
    check "pcshareless: its root is no longer shared" unshare /export/root/pcshareless
}
# Two boot, the first one after it was silent; the others stop before their kernels do much.
switch_pcs_on() {
    pc pcafter 41 UEFI
    off_when="ignored 30" pc pcoff 30 BIOS
    soon told pcoff "switched off"
    check "pc1 is enabled" run client/enable hostname=pc1
    pc pc1 30 BIOS
    off_when="ignored 31" pc pcold 31 BIOS
    off_when="ignored 32" pc pcgone 32 BIOS
    off_when="ignored 98" pc pcstranger 98 BIOS
    pc menuless 33 BIOS
    pc kernelless 34 BIOS
    pc_directly pcshareless 35
}

# ---- all are switched on -----------------------------------------------------------------------------------------

has_pcs=$(hostadm list netboot | grep -c setup_pc)
[ "$has_pcs" = 0 ] || add_pcs
[ "$has_pcs" = 0 ] || switch_pcs_on
old_way client1 10
old_way nobody 11 12 13 14 15 16 99 # all that get no address, as the cards of one machine
for name in "after 22" "unknown 17" "lost 18" "astray 19" "shareless 20" "initless 21" "programless 23"; do
    # shellcheck disable=SC2086 # two words
    old_way $name
done
soon told nobody "switched off"
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

pc_boots() { # pc_boots NAME NUMBER DIGITS: every stage
    check "$1: address by DHCP" seen "$2" "dhcp ack"
    check "$1: its menu by TFTP" seen "$2" "tftp done /grub/grub.cfg-$3"
    check "$1: its own init runs on its root, as root, under its name" \
        told "$1" "MARKER $server:/export/root/$1 as $1, for root only"
    check "$1: what it wrote is there, as root's" wrote "$1" "$1"
}
pc_silence() { # pc_silence TITLE CONSOLE NUMBER: its firmware asks, and nobody answers
    check "$1: asks" seen "$3" "dhcp discover"
    check "$1: nothing for it" ignored "$3"
    check "$1: finds no boot loader" refused told "$2" "GRUB"
}
look_at_pcs() {
    pc_boots pcafter 41 C0A80129
    pc_boots pc1 30 C0A8011E
    pc_silence "the disabled PC" pcoff 30
    pc_silence "the changed PC with its old Ethernet address" pcold 31
    pc_silence "the removed PC" pcgone 32
    pc_silence "a strange PC" pcstranger 98
    for number in 31 32 98; do
        check "a PC of another Ethernet address, $(ethernet $number): no offer" refused seen $number "dhcp offer"
    done
    check "menuless: asks for its menu" seen 33 "tftp refused /grub/grub.cfg-C0A80121"
    check "menuless: stops at the boot loader's prompt" told menuless "grub> "
    check "kernelless: asks for its kernel" seen 34 "tftp refused /linux/Quorvel_2.6/vmlinuz"
    check "kernelless: the boot loader says so" told kernelless "error: File not found"
    check "pcshareless: comes to its network" told pcshareless "the network is up"
    check "pcshareless: stops there" told pcshareless "FAILED cannot mount $server:/export/root/pcshareless"
}
[ "$has_pcs" = 0 ] || look_at_pcs

# ---- how long each stage took ------------------------------------------------------------------------------------

for machine in "client1 10" "pc1 30" "pcafter 41"; do
    read -r name number <<<"$machine"
    [ -e "$consoles/$name" ] || continue
    note "stages of $name, in milliseconds:"
    python3 "$here/stages.py" "$consoles/$name" $wire "$(ethernet "$number")" | sed 's/^/           /'
done
finish
