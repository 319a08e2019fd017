# shellcheck shell=bash
# SPDX-License-Identifier: MIT
# machines.sh: a server's machine room and the emulated machines in it, for tests in a throwaway root that boot real
# kernels. Sourced, not run; $build is the build that is installed, $here the folder of this file.
[ "${HOSTADM_SANDBOX:-}" = 1 ] || { echo "run this with in-sandbox: it installs into /usr"; exit 2; }
: "${build:?}" "${here:?}"
export PATH=/usr/local/bin:/usr/local/sbin:/usr/sbin:/usr/bin:/sbin:/bin
server=192.168.1.1
# To talk to us, to end, and to bear an emulator that loses ticks.
kernel_words="console=ttyS0 panic=-1 quiet no_timer_check"
shopt -s extglob
limit=${KERNEL_BOOT_LIMIT:-600} # seconds that one boot may take; 4 to 35 are usual
# Machines that are on at the same time. A boot loader waits for each piece of a file, and starves beside more of them.
width=$(nproc)
((width >= 2)) || width=2
((width <= 4)) || width=4
memory=256 # MB of each
until='MARKER .* boot |NETBOOT [^ ]* FAILED|Kernel panic|grub> ' # what a console says last
consoles=/tmp/consoles wire=/tmp/wire
passed=0 failed=0
now() { echo $((${EPOCHREALTIME/[.,]/} / 1000)); }
start=$(now)
exec 3>&1
die() {
    { tail -n 5 /tmp/prepare.log; tail -n 5 /tmp/daemons.log; echo "the test cannot run: $*"; } >&3 2>/dev/null
    exit 2
}
note() { printf '%6d ms  %s\n' $(($(now) - start)) "$*"; }
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
soon() { # at most two minutes, 5 ms apart
    for _ in $(seq 24000); do "$@" >/dev/null 2>&1 && return; sleep 0.005; done
    "$@"
}
refused() { ! "$@"; }
finish() {
    note "the whole test"
    echo "$passed passed, $failed failed"
    [ $failed = 0 ]
}

# ---- the machine room --------------------------------------------------------------------------------------------

prepare() {
    cmake --install "$build" && cmake --install "$build" --component compat && ldconfig || die "no installation"
    # /dev itself lets no device be opened
    mkdir -p /dev/net && mount -t tmpfs -o mode=755 tun /dev/net && mknod /dev/net/tun c 10 200 || die "no /dev/net/tun"
    ip link add br0 type bridge forward_delay 0 stp_state 0 mcast_snooping 0 && ip addr add $server/24 brd + dev br0 &&
        ip link set br0 up || die "no bridge"
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
    mkdir -p $consoles && : >$wire
    python3 "$here/wire.py" br0 >$wire 2>/tmp/wire.log &
    disown
    kernel=$(echo /kernel/boot/vmlinuz-*)
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

# A real operating system's tree brings its kernel, and an initramfs that can boot over the network.
add_kernel() {
    mkdir /export/tree/boot && cp "$kernel" /export/tree/boot/vmlinuz && make_initramfs /tmp/pc.img &&
        gzip -1 </tmp/pc.img >/export/tree/boot/initrd.img
}

# make_initramfs FILE [PROGRAM]...: from the unpacked kernel package, with these programs of the build. Debian's own tools
# for it are not asked for: their "ip=rarp" sends nothing.
make_initramfs() {
    local file=$1 d version n=100 module object program library
    shift
    d=$(mktemp -d)
    chmod 755 "$d"
    version=${kernel##*/vmlinuz-}
    depmod -b /kernel "$version" 2>/dev/null
    mkdir -p "$d"/{bin,dev,proc,sys,tmp,newroot,etc,run,m} && cp "$(command -v busybox)" "$d/bin/" && ln -s busybox "$d/bin/sh"
    for module in virtio_pci virtio_net nfsv3; do
        for object in $(modprobe -d /kernel -S "$version" --show-depends -a $module | awk '$1 == "insmod" { print $2 }'); do
            ls "$d"/m/*-"${object##*/}" >/dev/null 2>&1 || cp "$object" "$d/m/$((n++))-${object##*/}"
        done
    done
    for program; do
        cp "$build/bin/$program" "$d/bin/" && for library in $(ldd "$build/bin/$program" | grep -o '/[^ ]*'); do
            mkdir -p "$d${library%/*}" && cp -Ln "$library" "$d$library"
        done
    done
    cp /etc/netconfig "$d/etc/" && cp "$here/init" "$d/init" && chmod 755 "$d/init"
    mknod "$d/dev/console" c 5 1 && mknod "$d/dev/null" c 1 3
    (cd "$d" && find . | cpio -o -H newc --quiet) >"$file" || die "no initramfs"
}

start_daemons() {
    rpcbind -r && soon rpcinfo -T udp 127.0.0.1 100000 2 || die "no rpcbind"
    rpc.bootparamd -r $server && mkdir -p /tftpboot && in.tftpd --listen --ipv4 --secure /tftpboot || die "no daemons"
    hostadm run host/start_daemon path=/usr/lib/nfs/mountd && hostadm run host/start_daemon path=/usr/lib/nfs/nfsd args="-a 16"
    soon rpcinfo -T udp $server 100003 3 && soon rpcinfo -T udp 127.0.0.1 100026 1 || die "the daemons do not answer"
}

# add NAME NUMBER [WORD]...: a client of the tree
add() {
    local name=$1 number=$2
    shift 2
    hostadm run client/add_diskless hostname="$name" address="192.168.1.$number" ethernet="$(ethernet "$number")" \
        instruction_set=kel4 implementation_arch="${architecture:-kel4m}" os_name=Quorvel os_version="${version:-2.5}" \
        tree=/export/tree swap_size=1m server=server "$@"
}

# ---- a machine ---------------------------------------------------------------------------------------------------

ethernet() { echo "08:00:20:aa:bb:$1"; }
cards=0
# plug_in NUMBER...: QEMU's words, in "plugged", for a network card each, on the bridge.
plug_in() {
    local number
    plugged=()
    for number; do
        ip tuntap add dev tap$cards mode tap && ip link set tap$cards master br0 up || die "no network card"
        plugged+=(-netdev "tap,id=n$number,ifname=tap$cards,script=no,downscript=no"
            -device "virtio-net-pci,netdev=n$number,mac=$(ethernet "$number")")
        cards=$((cards + 1))
    done
}

# Without the network cards' own programs, which take longer than all else that a machine does before its kernel.
without_firmware() { plugged=("${plugged[@]/#virtio-net-pci,/virtio-net-pci,romfile=,}"); }

# power_on NAME UNTIL WORD...: an emulated machine, until its console says UNTIL, it switches itself off or the time is
# up. Each line of its console, $consoles/NAME, begins with the milliseconds since the machine was switched on; the first
# tells when that was. The processor is always emulated: a /dev/kvm that opens may still be unable to run an ordinary kernel.
power_on() {
    local name=$1 until=$2 line='' part begin machine out status
    shift 2
    begin=$(now)
    exec {out}< <(exec timeout -k 1 "$limit" qemu-system-x86_64 -accel tcg,tb-size=256 -cpu qemu64 -nodefaults \
        -display none -serial stdio -no-reboot "$@" 2>&1 </dev/null)
    machine=$!
    {
        echo "$begin switched on"
        while :; do
            IFS= read -r -t 0.2 -u "$out" part
            status=$?
            line+=${part//$'\r'/}
            [[ $line != *$'\e'* ]] || line=${line//$'\e['*([0-9;?=])[A-Za-z]/} # how a screen is drawn
            if [[ $line =~ $until ]] || { ((status)) && ((status <= 128)); }; then
                echo "$(($(now) - begin)) $line"
                break
            fi
            ((status)) || { echo "$(($(now) - begin)) $line"; line=''; }
        done
    } >"$consoles/$name"
    kill $machine 2>/dev/null
    wait $machine 2>/dev/null
    exec {out}<&-
    echo "$(($(now) - begin)) switched off" >>"$consoles/$name"
}
# side_by_side COMMAND...: in the background, once fewer than "width" others run.
side_by_side() {
    while (($(jobs -rp | wc -l) >= width)); do wait -n; done
    "$@" &
}
# told NAME PATTERN: its console says so
told() { grep -aqE -- "$2" "$consoles/$1" || { tail -12 "$consoles/$1" | cut -c1-200; return 1; }; }
# seen NUMBER EVENT: so it was on the wire
seen() { grep -q -- " $(ethernet "$1") $2" $wire || { grep -- " $(ethernet "$1") " $wire | tail -12; return 1; }; }
# What this boot wrote stands on the server, as root's. (Not: the file is there. nfs-ganesha remembers names, and one that
# is removed on the server is still there for its clients.)
wrote() { # wrote NAME CLIENT
    local file=/export/root/$2/var/written
    told "$1" "MARKER .* boot $(cat "$file")" && [ "$(stat -c %u:%g "$file")" = 0:0 ]
}

# ---- its boot, the old way -----------------------------------------------------------------------------------------

# old_way NAME NUMBER...: a kernel that knows nothing but its network cards' addresses, and has no firmware for them.
old_way() {
    local name=$1
    shift
    plug_in "$@"
    without_firmware
    side_by_side power_on "$name" "$until" -m "$memory" "${plugged[@]}" \
        -kernel "$kernel" -initrd /tmp/initrd.img -append "$kernel_words boot=old"
}

# ---- its boot, the way of today's PCs --------------------------------------------------------------------------------

# What the emulator's own firmware needs of the DHCP server, so as not to wait 16 s for a router and 3 s for a second
# DHCP server; and a log that tells whom it refuses.
please_the_firmware() {
    mkdir -p /etc/dnsmasq.d /var/lib/misc
    cat >/etc/dnsmasq.d/emulator.conf <<'X'
enable-ra
dhcp-range=fd00:1::,ra-only
dhcp-option=encap:175,176,1b
log-facility=/tmp/dnsmasq.log
X
}
# pc NAME NUMBER BIOS|UEFI: a PC without a disk, from its firmware on; what the boot loader cannot do ends at its prompt.
pc() {
    local name=$1 number=$2 firmware=$3
    plug_in "$number"
    if [ "$firmware" = UEFI ]; then # by itself, not by a program on the network card
        without_firmware
        plugged+=(-bios /usr/share/ovmf/OVMF.fd)
    fi
    side_by_side patiently "$name" "$until" -m "$memory" -machine "pc,graphics=off" "${plugged[@]}"
}
# On a busy machine the boot loader may lose its patience with TFTP: once more, as its user would.
patiently() {
    power_on "$@"
    ! told "$1" "error: timeout reading" >/dev/null || power_on "$@"
}
# The DHCP server has looked at what this machine asks, and has nothing for it.
ignored() { grep -q "DHCPDISCOVER(br0) $(ethernet "$1") no address available" /tmp/dnsmasq.log; }

# menu NUMBER WHAT: what a PC's menu gives the boot loader as "linux" or "initrd"
menu() {
    sed -n "s,^ *$2 *([^)]*)/,,p" "/tftpboot/grub/grub.cfg-$(printf 'C0A801%02X' "$1")"
}
# pc_directly NAME NUMBER: the same kernel and initramfs with the words of its menu, without firmware and boot loader.
pc_directly() {
    local file words
    plug_in "$2"
    without_firmware
    read -r file words <<<"$(menu "$2" linux)"
    side_by_side power_on "$1" "$until" -m "$memory" "${plugged[@]}" \
        -kernel "/tftpboot/$file" -initrd "/tftpboot/$(menu "$2" initrd)" -append "$words"
}
