# SPDX-License-Identifier: MIT
# server.sh: a good server in a throwaway root, for the tests of `hostadm check`: sourced. Its network namespace is the
# server; a second one, "client", joined to it by a virtual cable, is whichever client is switched on.
# shellcheck shell=bash disable=SC2034,SC2119,SC2120,SC2154 # who sources it sets $build and gives options of his own
[ "${HOSTADM_SANDBOX:-}" = 1 ] || { echo "run this with in-sandbox: it installs into /usr"; exit 2; }
export PATH=/usr/local/bin:/usr/local/sbin:/usr/sbin:/usr/bin:/sbin:/bin
address=192.168.1.1
patience=250 # milliseconds that silence is waited for; answers come within 20

die() { echo "cannot run: $*"; exit 2; }
soon() { # at most 30 s, 10 ms apart
    local _
    for _ in $(seq 3000); do "$@" >/dev/null 2>&1 && return; sleep 0.01; done
    return 1
}
soonest() { # at most 1 s, and what it takes itself: what may never come
    local _
    for _ in $(seq 100); do "$@" >/dev/null 2>&1 && return; sleep 0.01; done
    return 1
}
refused() { ! "$@"; }
client() { nsenter --net=/run/netns/client timeout 20 "$@"; }

install_hostadm() {
    cmake --install "$build" && cmake --install "$build" --component compat && ldconfig || die "no installation"
}
lay_cable() {
    ip link set lo up
    ip netns add client &&
        ip link add srv0 type veth peer name cli0 netns client &&
        ip addr add $address/24 brd + dev srv0 && ip link set srv0 up &&
        nsenter --net=/run/netns/client ip link set lo up &&
        nsenter --net=/run/netns/client ip link set cli0 up || die "no network namespaces"
}
make_users() {
    local user number=900
    for user in _rpc tftp statd; do
        getent passwd $user || echo "$user:x:$((number++)):65534::/run/$user:/usr/sbin/nologin" >>/etc/passwd
    done
    mkdir -p /run/rpcbind && chown _rpc /run/rpcbind
}
make_tables() {
    printf '127.0.0.1 localhost\n%s server\n' $address >/etc/hosts
    printf 'hosts: files dns\nethers: db files\nrpc: db files\nservices: db files\npasswd: files\n' >/etc/nsswitch.conf
    : >/etc/ethers && : >/etc/bootparams
    # The NFS server cannot find files again on a layered file system.
    # A change of a root is to be seen by the next client at once, not a minute later.
    mkdir -p /etc/ganesha
    cat >/etc/ganesha/share.conf <<'END'
NFS_CORE_PARAM { Protocols = 3; Enable_NLM = false; Enable_RQUOTA = false; }
NFSv4 { Graceless = true; }
EXPORT_DEFAULTS { Attr_Expiration_Time = 0; }
%include "/etc/ganesha/share-exports.conf"
END
    mkdir -p /export /tftpboot && mount -t tmpfs -o mode=755 export /export || die "no /export"
}
# A small system: what a client needs to start.
make_tree() {
    local tree=/export/tree
    mkdir -p $tree/{etc,dev,sbin,bin,usr,lib64,var,proc}
    cp /bin/true $tree/sbin/init && cp -L /bin/dash $tree/bin/sh && cp -L /lib64/ld-linux-x86-64.so.2 $tree/lib64/
    mknod -m 600 $tree/dev/console c 5 1
    echo 'root:x:0:0::/:/bin/sh' >$tree/etc/passwd
    printf '#RESOURCE FSCK MOUNT TYPE PASS BOOT OPTIONS\n/proc - /proc proc - no -\n' >$tree/etc/vfstab
    printf '%s server\n' $address >$tree/etc/hosts
    head -c 100000 /dev/urandom >/export/bootprog
    mkdir -p /export/exec/kel4.Quorvel_2.5/lib/fs/nfs && cp /export/bootprog /export/exec/kel4.Quorvel_2.5/lib/fs/nfs/inetboot
}
start_rpcbind() { rpcbind "${@:--r}" && soon rpcinfo -T udp 127.0.0.1 100000 2; }
start_bootparamd() { rpc.bootparamd -r $address && soon rpcinfo -T udp 127.0.0.1 100026 1; }
start_tftpd() { in.tftpd --listen --ipv4 --secure "$@" /tftpboot; }
start_nfs() { /usr/lib/nfs/mountd && /usr/lib/nfs/nfsd -a 16 && soon rpcinfo -T tcp $address 100003 3 && soon rpcinfo -T tcp $address 100005 3; }
add_client() { # add_client NAME ADDRESS ETHERNET
    hostadm run client/add_diskless hostname="$1" address="$2" ethernet="$3" instruction_set=kel4 \
        implementation_arch=kel4m os_name=Quorvel os_version=2.5 boot_program=/export/bootprog swap_size=1m \
        server=server tree=/export/tree &&
        printf 'server:/export/root/%s - / nfs - no rw\n' "$1" >>"/export/root/$1/etc/vfstab"
}
good_server() {
    make_users >/dev/null && make_tables && make_tree || die "no tables"
    start_rpcbind && start_bootparamd && start_tftpd && start_nfs || die "no daemons"
    add_client client1 192.168.1.10 08:00:20:aa:bb:01 && add_client client2 192.168.1.11 08:00:20:aa:bb:02 || die "no clients"
}

# first_failure NAME ADDRESS ETHERNET: the stage at which the client's boot fails; nothing when it boots.
first_failure() {
    local name=$1 own=$2 digits told path boots=$SRANDOM # the NFS server remembers names that were there once
    # shellcheck disable=SC2086 # four words
    digits=$(printf '%02X%02X%02X%02X' ${own//./ })
    nsenter --net=/run/netns/client sh -ec "ip addr flush dev cli0; ip link set cli0 down
        ip link set cli0 address $3; ip link set cli0 up" || return
    # There is no carrier while the server's end is down.
    ! ip -o link show srv0 | grep -q '[<,]UP[,>]' ||
        soon nsenter --net=/run/netns/client sh -c 'ip -o link show cli0 | grep -q LOWER_UP'
    client boot_reverse_arp cli0 $patience 4 2>/dev/null | grep -q "address $own from" || { echo address; return; }
    nsenter --net=/run/netns/client ip addr add "$own/24" brd + dev cli0
    for told in "$digits" "$digits.KEL4M"; do
        rm -f /tmp/fetched
        client curl -sS -m 2 -o /tmp/fetched "tftp://$address/$told" 2>/dev/null && cmp -s /tmp/fetched /export/bootprog ||
            { echo "boot program"; return; }
    done
    told=$(client boot_bootparams -t $patience -b 192.168.1.255 whoami "$own" 2>/dev/null) && [[ ${told,,} == *"name $name "* ]] &&
        [[ $told != *"router 127."* ]] || { echo name; return; }
    told=$(client boot_bootparams -t $patience -b 192.168.1.255 getfile "$name" root 2>/dev/null) || { echo parameters; return; }
    path=${told##* path } told=${told##* address } told=${told%% *}
    [[ $told == 192.168.1.* && $path == /* ]] || { echo parameters; return; }
    client nfs-ls "nfs://$told$path" 2>/dev/null | grep -q ' etc' || { echo root; return; }
    client nfs-cat "nfs://$told$path/sbin/init" 2>/dev/null | cmp -s - /bin/true &&
        client nfs-ls "nfs://$told$path/dev" 2>/dev/null | grep -q '^c.* console' &&
        client nfs-cat "nfs://$told$path/etc/vfstab" 2>/dev/null | grep -q "^server:${path}[[:blank:]]-[[:blank:]]*/[[:blank:]]" &&
        client nfs-cp /etc/hostname "nfs://$told$path/var/written.$boots" >/dev/null 2>&1 || { echo start; return; }
    told=$(client boot_bootparams -t $patience $address getfile "$name" swap 2>/dev/null) || { echo swap; return; }
    path=${told##* path } told=${told##* address } told=${told%% *}
    client nfs-ls "nfs://$told${path%/*}" 2>/dev/null | grep -Eq "^-.* (409[6-9]|[0-9]{5,}) +${path##*/}" || echo swap
}
