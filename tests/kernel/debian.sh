#!/bin/bash
# SPDX-License-Identifier: MIT
# debian.sh BUILD TREE: clients of a whole Debian, the tree, come to their login prompts. Run by "run" in a throwaway root.
# Ends with "N passed, N failed"; exit status 0 only if nothing failed.
set -u
build=$1 tree=$2
here=$(dirname "$(readlink -f "$0")")
# shellcheck source=tests/kernel/machines.sh
. "$here/machines.sh"
limit=600 memory=512 width=2

prepare >/tmp/prepare.log 2>&1 || die "not prepared"
make_initramfs /tmp/initrd.img boot_reverse_arp boot_bootparams >>/tmp/prepare.log 2>&1 || die "no initramfs"
start_daemons >/tmp/daemons.log 2>&1 || die "no daemons"
please_the_firmware
note "everything is ready"

add() { # add NAME NUMBER [WORD]...
    local name=$1 number=$2
    shift 2
    hostadm run client/add_diskless hostname="$name" address="192.168.1.$number" ethernet="$(ethernet "$number")" \
        instruction_set=amd64 implementation_arch=amd64 os_name=Debian os_version=12.0 swap_size=1m server=server "$@"
}
check "the service is added, of the tree" hostadm run service/add os_name=Debian os_version=12.0 instruction_set=amd64 \
    implementation_arch=amd64 tree="$tree" boot_program=/usr/lib/PXELINUX/pxelinux.0
check "client1 is added" add client1 10
check "PCs are set up" hostadm run netboot/setup_pc interface=br0
check "pc1 is added" add pc1 11 boot=pc kernel_words="$kernel_words"
check "pc2 is added, with a root by version 4 of NFS" add pc2 12 boot=pc nfs=4 kernel_words="$kernel_words"

# To its login prompt, or to what stops it.
until='(^| )[a-z0-9]+ login: |NETBOOT [^ ]* FAILED|Kernel panic|grub> |\(initramfs\)'
old_way client1 10
pc pc1 11 BIOS
pc pc2 12 UEFI
wait
for client in "client1 10" "pc1 11" "pc2 12"; do
    read -r name number <<<"$client"
    check "$name: its login prompt, under its own name" told "$name" " $name login: "
    note "stages of $name, in milliseconds:"
    python3 "$here/stages.py" "$consoles/$name" $wire "$(ethernet "$number")" | sed 's/^/           /'
done
finish
