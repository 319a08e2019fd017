#!/bin/bash
# SPDX-License-Identifier: MIT
# stages.sh BUILD REPETITIONS: how long each stage of a boot takes, as a table, the medians; the machines one after another.
# Run by "run" in a throwaway root.
set -u
build=$1 repetitions=$2
here=$(dirname "$(readlink -f "$0")")
# shellcheck source=tests/kernel/machines.sh
. "$here/machines.sh"

prepare >/tmp/prepare.log 2>&1 || die "not prepared"
{ make_tree && make_initramfs /tmp/initrd.img boot_reverse_arp boot_bootparams && add_kernel; } >>/tmp/prepare.log 2>&1 ||
    die "nothing to boot"
start_daemons >/tmp/daemons.log 2>&1 || die "no daemons"
please_the_firmware
{
    hostadm run netboot/setup_pc interface=br0 &&
        add old 10 boot_program=/usr/lib/PXELINUX/pxelinux.0 &&
        add pc 11 boot=pc kernel_words="$kernel_words"
} >>/tmp/prepare.log 2>&1 || die "the clients are not added"

measure() { # measure COLUMN NUMBER COMMAND...: the stages of one boot, in this column of the table
    local column=$1 number=$2
    shift 2
    "$@"
    wait
    told machine MARKER >&2 || die "$column: no boot"
    python3 "$here/stages.py" $consoles/machine $wire "$(ethernet "$number")" | sed "s/^/$column\t/" >>/tmp/stages
}
for _ in $(seq "$repetitions"); do
    measure "reverse ARP" 10 old_way machine 10
    measure "PC, BIOS" 11 pc machine 11 BIOS
    measure "PC, UEFI" 11 pc machine 11 UEFI
    measure "floor" 11 pc_directly machine 11
done
python3 "$here/stages.py" /tmp/stages
