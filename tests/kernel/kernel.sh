#!/bin/bash
# SPDX-License-Identifier: MIT
# kernel.sh BUILD: a real kernel, in an emulator, boots from what hostadm provisioned: the old way (reverse ARP, TFTP, boot
# parameters, NFS root) and the way of today's PCs (firmware, DHCP, TFTP, boot loader). Run by "run" in a throwaway root.
# Ends with "N passed, N failed"; exit status 0 only if nothing failed.
set -u
build=$1
here=$(dirname "$(readlink -f "$0")")
[ "${HOSTADM_SANDBOX:-}" = 1 ] || { echo "run this with in-sandbox: it installs into /usr"; exit 2; }
export PATH=/usr/local/bin:/usr/local/sbin:/usr/sbin:/usr/bin:/sbin:/bin
server=192.168.1.1 address=192.168.1.10 ethernet=08:00:20:aa:bb:01
boot_program=/usr/lib/PXELINUX/pxelinux.0
limit=${KERNEL_BOOT_LIMIT:-90} # seconds that one boot may take; 4 to 12 are usual
passed=0 failed=0 console=/tmp/console
start=$(date +%s%3N)
exec 3>&1
die() {
    { tail -n 5 /tmp/prepare.log; tail -n 5 /tmp/daemons.log; echo "the kernel test cannot run: $*"; } >&3 2>/dev/null
    exit 2
}
note() { printf '%6d ms  %s\n' $(($(date +%s%3N) - start)) "$*"; }
check() { # check TITLE COMMAND...: passes when COMMAND succeeds
    local title=$1 output
    shift
    if output=$("$@" 2>&1); then
        passed=$((passed + 1))
        note "ok      $title"
    else
        failed=$((failed + 1))
        note "FAILED  $title"
        printf '%s\n' "$output" | tail -15 | sed 's/^/        /'
    fi
}
soon() { # at most 30 s, 5 ms apart
    for _ in $(seq 6000); do "$@" >/dev/null 2>&1 && return; sleep 0.005; done
    "$@"
}
told() { grep -aq -- "$1" $console || { tail -12 $console | cut -c1-200; return 1; }; } # the console says so
# What this boot wrote stands on the server, as root's. (Not: the file is there. nfs-ganesha remembers names, and one that
# is removed on the server is still there for its clients.)
wrote() { # wrote [CLIENT]
    local file=/export/root/${1:-client1}/var/written
    told "MARKER .* boot $(cat "$file")" && [ "$(stat -c %u:%g "$file")" = 0:0 ]
}

# ---- the machine room --------------------------------------------------------------------------------------------

prepare() {
    cmake --install "$build" && cmake --install "$build" --component compat && ldconfig || die "no installation"
    # /dev itself lets no device be opened
    mkdir -p /dev/net && mount -t tmpfs -o mode=755 tun /dev/net && mknod /dev/net/tun c 10 200 || die "no /dev/net/tun"
    ip link add br0 type bridge forward_delay 0 stp_state 0 mcast_snooping 0 && ip addr add $server/24 brd + dev br0 &&
        ip link set br0 up && ip tuntap add dev tap0 mode tap && ip link set tap0 master br0 up || die "no bridge and tap"
    ip -6 addr add fd00:1::1/64 dev br0 nodad # an answer for the firmware, which else waits 16 s for a router
    # The NFS server cannot find files again on a layered file system.
    mkdir -p /export && mount -t tmpfs -o mode=755 export /export || die "no /export"
    # What the daemons' packages set up when they are installed.
    local user number=900
    for user in _rpc tftp statd dnsmasq; do
        getent passwd $user || echo "$user:x:$((number++)):65534::/run/$user:/usr/sbin/nologin" >>/etc/passwd
    done
    mkdir -p /run/rpcbind && chown _rpc /run/rpcbind
    printf '127.0.0.1 localhost\n%s server\n' $server >/etc/hosts
    : >/etc/ethers && : >/etc/bootparams
    ln -sfn ../proc/self/mounts /etc/mtab # nfs-ganesha needs it
}

# A client's system: busybox, an init that says what it sees, writes a file and switches off.
make_tree() {
    local tree=/export/tree applet
    mkdir -p $tree/{bin,sbin,dev,proc,sys,etc/init.d,tmp,var,root,usr}
    cp "$(command -v busybox)" $tree/bin/busybox
    for applet in sh cat mount grep hostname uname stat; do ln -s busybox $tree/bin/$applet; done
    ln -s ../bin/busybox $tree/sbin/init
    mknod $tree/dev/console c 5 1 && mknod $tree/dev/null c 1 3
    echo 'for root only' >$tree/etc/shadow && chmod 600 $tree/etc/shadow
    echo '::sysinit:/etc/init.d/rcS' >$tree/etc/inittab
    cat >$tree/etc/init.d/rcS <<'X'
#!/bin/sh
mount -t proc proc /proc
read -r boot </proc/sys/kernel/random/boot_id
echo "$boot" >/var/written
echo "MARKER $(grep ' / nfs' /proc/mounts | busybox cut -d' ' -f1) as $(hostname), $(cat /etc/shadow), boot $boot"
busybox poweroff -f
X
    chmod 755 $tree/etc/init.d/rcS
}

# From the unpacked kernel package: Debian's own tools for it are not asked for, and their "ip=rarp" sends nothing.
make_initramfs() {
    local d=/tmp/initramfs version n=100 module file program library
    version=$(basename /kernel/lib/modules/*)
    kernel=/kernel/boot/vmlinuz-$version
    depmod -b /kernel "$version" 2>/dev/null
    mkdir -p $d/{bin,dev,proc,sys,tmp,newroot,etc,run,m} && cp "$(command -v busybox)" $d/bin/ && ln -s busybox $d/bin/sh
    for module in virtio_pci virtio_net nfsv3; do
        for file in $(modprobe -d /kernel -S "$version" --show-depends -a $module | awk '$1 == "insmod" { print $2 }'); do
            ls $d/m/*-"${file##*/}" >/dev/null 2>&1 || cp "$file" $d/m/$((n++))-"${file##*/}"
        done
    done
    for program in boot_reverse_arp boot_bootparams; do
        cp "$build/bin/$program" $d/bin/ && for library in $(ldd "$build/bin/$program" | grep -o '/[^ ]*'); do
            mkdir -p $d"${library%/*}" && cp -Ln "$library" $d"$library"
        done
    done
    cp /etc/netconfig $d/etc/ && cp "$here/init" $d/init && chmod 755 $d/init
    mknod $d/dev/console c 5 1 && mknod $d/dev/null c 1 3
    (cd $d && find . | cpio -o -H newc --quiet) | gzip -1 >/tmp/initrd.img || die "no initramfs"
}

start_daemons() {
    rpcbind -r && soon rpcinfo -T udp 127.0.0.1 100000 2 || die "no rpcbind"
    rpc.bootparamd -r $server && mkdir -p /tftpboot && in.tftpd --listen --ipv4 --secure /tftpboot || die "no daemons"
    hostadm run host/start_daemon path=/usr/lib/nfs/mountd && hostadm run host/start_daemon path=/usr/lib/nfs/nfsd args="-a 16"
    soon rpcinfo -T udp $server 100003 3 && soon rpcinfo -T udp 127.0.0.1 100026 1 || die "the daemons do not answer"
}

# ---- the client --------------------------------------------------------------------------------------------------

add() {
    hostadm run client/add_diskless hostname=client1 address=$address ethernet=$ethernet instruction_set=kel4 \
        implementation_arch=kel4m os_name=Quorvel os_version=2.5 tree=/export/tree boot_program=$boot_program \
        swap_size=1m server=server "$@"
}
# power_on ETHERNET [ARGUMENT]...: until the client switches itself off or the time is up. The processor is always
# emulated: a /dev/kvm that opens may still be unable to run an ordinary kernel.
power_on() {
    local ethernet=$1
    shift
    timeout -k 1 "$limit" qemu-system-x86_64 -accel tcg,tb-size=256 -cpu max -m 256 -nodefaults -display none \
        -serial stdio -no-reboot -netdev tap,id=n,ifname=tap0,script=no,downscript=no \
        -device "virtio-net-pci,netdev=n,mac=$ethernet" "$@" </dev/null 2>&1 | tr -d '\r' >$console
    [ "${PIPESTATUS[0]}" = 0 ] || { echo "QEMU: status ${PIPESTATUS[0]}" >>$console; return 1; }
}
old_way() { power_on "$1" -kernel "$kernel" -initrd /tmp/initrd.img -append "console=ttyS0 panic=-1 quiet boot=old"; }

prepare >/tmp/prepare.log 2>&1 || die "not prepared"
make_tree >>/tmp/prepare.log 2>&1 && make_initramfs >>/tmp/prepare.log 2>&1 && start_daemons >/tmp/daemons.log 2>&1 ||
    die "not ready"
note "everything is ready"

# ---- the old way -------------------------------------------------------------------------------------------------

check "client1 is added" add
check "the old way: a kernel boots and switches off" old_way $ethernet
check "the old way: address by reverse ARP" told "reverse ARP: address $address from server $server"
check "the old way: boot program by TFTP" told "boot program: C0A8010A $(md5sum <$boot_program)"
check "the old way: name by broadcast" told "whoami: name client1 "
check "the old way: root by broadcast" told "getfile: .*address $server path /export/root/client1"
check "the old way: its own init runs on the root, as root" told "MARKER $server:/export/root/client1 as client1, for root only"
check "the old way: what it wrote is there, as root's" wrote

# ---- sabotage: each is seen at its stage -------------------------------------------------------------------------

# sabotage TITLE TEXT BREAK MEND: with BREAK done the kernel stops, saying TEXT.
sabotage() {
    eval "$3"
    check "$1: the kernel comes to its end" old_way $ethernet
    check "$1: at that stage" told "$2"
    eval "$4"
}
sabotage "without its boot link" "FAILED no answer by reverse ARP" \
    'rename=$(readlink /tftpboot/C0A8010A); rm /tftpboot/C0A8010A /tftpboot/C0A8010A.KEL4M' \
    'ln -s "$rename" /tftpboot/C0A8010A; ln -s "$rename" /tftpboot/C0A8010A.KEL4M'
sabotage "without its share" "FAILED cannot mount" \
    'unshare /export/root/client1' 'share -F nfs -o rw=client1,root=client1 /export/root/client1'

check "a stranger switches off" old_way 08:00:20:aa:bb:99
check "a stranger gets no address" told "FAILED no answer by reverse ARP"

# ---- the end of the client ---------------------------------------------------------------------------------------

check "client1 is removed" hostadm run client/remove hostname=client1 purge=yes
check "client1, removed, is switched on" old_way $ethernet
check "client1, removed, gets no address" told "FAILED no answer by reverse ARP"

note "the whole test"
echo "$passed passed, $failed failed"
[ $failed = 0 ]
