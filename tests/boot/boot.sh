#!/bin/bash
# SPDX-License-Identifier: MIT
# boot.sh BUILD | --installed PROGRAMS: two diskless clients are added with hostadm, boot over the wire step by step from
# the real daemons, and are removed again. Run by "run" in a throwaway root, or in one where hostadm is installed already,
# with what plays the client in PROGRAMS. Its network namespace is the server; a second one, "client", joined to it by a
# virtual cable, is whichever client is switched on.
# Ends with "N passed, N failed"; exit status 0 only if nothing failed.
set -u
case $1 in
--installed)
    programs=$2
    install_hostadm() { hostadm-names take; }
    ;;
*)
    build=$1 programs=$1/bin
    install_hostadm() { cmake --install "$build" && cmake --install "$build" --component compat && ldconfig; }
    ;;
esac
[ "${HOSTADM_SANDBOX:-}" = 1 ] || { echo "run this with in-sandbox: it installs into /usr"; exit 2; }
export PATH=/usr/local/bin:/usr/local/sbin:/usr/sbin:/usr/bin:/sbin:/bin

server=192.168.1.1
patience=250 # milliseconds that silence is waited for; answers come within 20
passed=0 failed=0 boots=0
die() { echo "boot test cannot run: $*"; exit 2; }

# check TITLE COMMAND...: passes when COMMAND succeeds.
check() {
    local title=$1 output
    shift
    if output=$("$@" 2>&1); then
        passed=$((passed + 1))
        printf 'ok      %s\n' "$title"
    else
        failed=$((failed + 1))
        printf 'FAILED  %s\n%s\n' "$title" "$output" | sed '2,$s/^/        /'
    fi
}
says() { # says TEXT COMMAND...: COMMAND succeeds and prints TEXT
    local text=$1 output
    shift
    output=$("$@" 2>&1) || { echo "$output"; return 1; }
    echo "$output"
    [[ $output == *"$text"* ]]
}
refused() { ! "$@"; }
refused_with() { # refused_with PATTERN COMMAND...: COMMAND fails for this reason, and not because it could not ask
    local pattern=$1 output
    shift
    if output=$("$@" 2>&1); then
        echo "$output"
        return 1
    else
        output="status $?: $output"
    fi
    echo "$output"
    [[ $output =~ $pattern ]]
}
soon() { # at most 30 s, 5 ms apart
    for _ in $(seq 6000); do "$@" >/dev/null 2>&1 && return; sleep 0.005; done
    "$@"
}
client() { nsenter --net=/run/netns/client timeout 30 "$@"; }

# ---- the machine room ----------------------------------------------------------------------------------------

prepare() {
    install_hostadm || die "no installation"
    ip netns add client &&
        ip link add srv0 type veth peer name cli0 netns client &&
        ip addr add $server/24 brd + dev srv0 && ip link set srv0 up &&
        nsenter --net=/run/netns/client ip link set lo up || die "no network namespaces"
    # The NFS server cannot find files again on a layered file system.
    mkdir -p /export && mount -t tmpfs -o mode=755 export /export || die "no /export"
    # What the daemons' packages set up when they are installed.
    local user number=900
    for user in _rpc tftp statd; do
        getent passwd $user || echo "$user:x:$((number++)):65534::/run/$user:/usr/sbin/nologin" >>/etc/passwd
    done
    mkdir -p /run/rpcbind && chown _rpc /run/rpcbind
    printf '127.0.0.1 localhost\n%s server\n' $server >/etc/hosts
    : >/etc/ethers && : >/etc/bootparams
}

# An operating system for the clients: a boot program, a tree, and the same as packages.
make_operating_system() {
    head -c 300000 /dev/urandom >/export/bootprog
    mkdir -p /export/tree/{bin,dev,etc,sbin,usr/bin,var} && echo 'from the tree' >/export/tree/etc/motd
    cp /bin/true /export/tree/sbin/init && mknod /export/tree/dev/console c 5 1
    printf 'server:/export/root/client1\t-\t/\tnfs\t-\tno\trw\n' >/export/tree/etc/vfstab
    echo 'for root only' >/export/tree/etc/shadow && chmod 600 /export/tree/etc/shadow
    mkdir -p /export/files/{etc,usr/bin,var/sadm/system/admin} && echo 'from packages' >/export/files/etc/motd
    echo 'for root only' >/export/files/etc/shadow && chmod 600 /export/files/etc/shadow
    pkgmk -a -r /export/files -d /export/packages ABCbase ARCH=kel4 || die "no package"
    mkdir -p /export/Quorvel_2.5/var/sadm/system/admin
    touch /export/Quorvel_2.5/var/sadm/system/admin/{.clustertoc,CLUSTER,INST_RELEASE}
}

# The daemons that Debian starts by itself, the way docs/boot-a-client.md tells; the others are hostadm's to start.
start_debian_daemons() {
    rpcbind -r || die "no rpcbind"
    soon rpcinfo -T udp 127.0.0.1 100000 2 || die "rpcbind does not answer"
    rpc.bootparamd -r $server || die "no rpc.bootparamd"
    mkdir -p /tftpboot
    in.tftpd --listen --ipv4 --secure /tftpboot || die "no in.tftpd"
    soon rpcinfo -T udp 127.0.0.1 100026 1 || die "rpc.bootparamd does not answer"
}

plug_in() { # plug_in ETHERNET: another client on the wire, without an address yet
    nsenter --net=/run/netns/client sh -ec "ip link set cli0 down; ip addr flush dev cli0
        ip link set cli0 address $1; ip link set cli0 up"
    soon says LOWER_UP client ip -o link show cli0 || die "the cable is dead"
}
take_address() { nsenter --net=/run/netns/client ip addr add "$1/24" brd + dev cli0; }

# ---- one client ------------------------------------------------------------------------------------------------

fetch() { # fetch NAME: the boot program, whole, by this name
    local file=/tmp/fetched.$1
    rm -f "$file"
    client curl -sS -m 3 -o "$file" "tftp://$server/$1" || return
    cmp "$file" /export/bootprog
}

boots() { # boots NAME ADDRESS ETHERNET MOTD: every stage answers
    local name=$1 address=$2 digits root=nfs://$server/export/root/$1
    # shellcheck disable=SC2086 # four numbers
    digits=$(printf '%02X%02X%02X%02X' ${address//./ })
    plug_in "$3"
    check "$name: reverse ARP gives the address" \
        says "address $address from server $server" client reverse_arp cli0 $patience 20
    take_address "$address"
    check "$name: TFTP gives the boot program by the address" fetch "$digits"
    check "$name: TFTP gives the boot program by address and architecture" fetch "$digits.KEL4M"
    check "$name: whoami, directly" says "name $name " client bootparams $server whoami "$address"
    check "$name: whoami, through rpcbind" says "name $name " client bootparams -i $server whoami "$address"
    check "$name: whoami, by broadcast" says "name $name " client bootparams -b 192.168.1.255 whoami "$address"
    check "$name: whoami tells the router" says "router $server" client bootparams $server whoami "$address"
    check "$name: getfile root" \
        says "address $server path /export/root/$name" client bootparams $server getfile "$name" root
    check "$name: getfile swap" \
        says "address $server path /export/swap/$name" client bootparams $server getfile "$name" swap
    check "$name: getfile root, by broadcast" \
        says "path /export/root/$name" client bootparams -b 192.168.1.255 getfile "$name" root
    check "$name: its root can be mounted and listed" soon says " etc" client nfs-ls "$root"
    check "$name: a file of its root" says "$4" client nfs-cat "$root/etc/motd"
    check "$name: a file that only root may read" says "for root only" client nfs-cat "$root/etc/shadow"
    written=var/written.$2.${3##*:}.$((++boots))
    check "$name: writes as root" client nfs-cp /export/bootprog "$root/$written"
    check "$name: what it wrote is there, as root's" \
        says "0 0" stat -c '%u %g' "/export/root/$name/$written"
    check "$name: and whole" cmp /export/bootprog "/export/root/$name/$written"
    check "$name: its root by version 4, which is mounted by its whole path" \
        soon says "for root only" client nfs-cat "$root/etc/shadow?version=4"
    check "$name: writes as root by version 4" client nfs-cp /export/tree/etc/motd "$root/$written.4?version=4"
    check "$name: what it wrote by version 4 is there, as root's" \
        says "0 0" stat -c '%u %g' "/export/root/$name/$written.4"
    check "$name: its swap area can be mounted" soon says " swap" client nfs-ls "nfs://$server/export/swap/$name"
}

# gets_nothing WHO NAME ADDRESS ETHERNET ROOT: no stage answers. Silence takes its time, so all ask at once.
gets_nothing() {
    local who=$1 name=$2 address=$3 digits results job
    # shellcheck disable=SC2086 # four numbers
    digits=$(printf '%02X%02X%02X%02X' ${address//./ })
    results=$(mktemp -d)
    plug_in "$4"
    check "$who: no address by reverse ARP" refused_with "^status 1: no answer" client reverse_arp cli0 $patience 1
    take_address "$address"
    ask() { # ask TITLE PATTERN COMMAND...
        local title=$1
        shift
        { if refused_with "$@" >"$results/$title"; then :; else mv "$results/$title" "$results/answered: $title"; fi; } &
    }
    ask "boot program by address" "^status 68:" fetch "$digits"
    ask "boot program by address and architecture" "^status 68:" fetch "$digits.KEL4M"
    ask "whoami, directly" "^status 1: no answer" client bootparams -t $patience $server whoami "$address"
    ask "whoami, through rpcbind" "^status 1: no answer" client bootparams -t $patience -i $server whoami "$address"
    ask "whoami, by broadcast" "^status 1: no answer" client bootparams -t $patience -b 192.168.1.255 whoami "$address"
    ask "getfile root" "^status 1: no answer" client bootparams -t $patience $server getfile "$name" root
    ask "getfile swap" "^status 1: no answer" client bootparams -t $patience $server getfile "$name" swap
    ask "root directory by NFS" "MNT3ERR_(ACCES|NOENT)" client nfs-ls "nfs://$server$5"
    ask "root directory by version 4 of NFS" "NFS4ERR_(ACCES|PERM|NOENT|WRONGSEC)" client nfs-ls "nfs://$server$5?version=4"
    ask "file of the root by NFS" "MNT3ERR_(ACCES|NOENT)" client nfs-cat "nfs://$server$5/etc/motd"
    ask "swap by NFS" "MNT3ERR_(ACCES|NOENT)" client nfs-ls "nfs://$server/export/swap/${5##*/}"
    for job in $(jobs -p); do wait "$job"; done
    local title
    for title in "$results"/*; do
        case ${title##*/} in
        answered:*) check "$who: no ${title##*/answered: }" eval "cat \"$title\"; false" ;;
        *) check "$who: no ${title##*/}" true ;;
        esac
    done
}

add() { # add NAME ADDRESS ETHERNET SOURCE
    hostadm run client/add_diskless hostname="$1" address="$2" ethernet="$3" instruction_set=kel4 \
        implementation_arch=kel4m os_name=Quorvel os_version=2.5 boot_program=/export/bootprog swap_size=1m \
        server=server "$4"
}

runs() { # runs DAEMON...: status sees each of them run
    local status daemon
    status=$(hostadm status --json) || return
    echo "$status"
    for daemon; do
        grep -Eq "\"name\": ?\"$daemon\"[^}]*\"running\": ?\"yes\"|\"running\": ?\"yes\"[^}]*\"name\": ?\"$daemon\"" \
            <<<"$(tr -d '\n' <<<"$status" | tr -s ' ')" || { echo "$daemon does not run"; return 1; }
    done
}

nfs_processes() { pgrep -x ganesha.nfsd; }

# ---- the test ----------------------------------------------------------------------------------------------------

prepare >/tmp/prepare.log 2>&1 || { cat /tmp/prepare.log; exit 2; }
PATH=$PATH:/run/boot-programs
mkdir /run/boot-programs
for program in reverse_arp bootparams; do ln -s "$programs/boot_$program" /run/boot-programs/$program; done
make_operating_system
start_debian_daemons

check "hostadm starts mountd" hostadm run host/start_daemon path=/usr/lib/nfs/mountd
mountd_is_told() { hostadm run host/start_daemon path=/usr/lib/nfs/mountd | tr -s ' ' | grep "$1"; }
# Soon: what has started the server may itself take a moment to end.
check "hostadm tells which program does mountd's work" soon mountd_is_told "^served_by $(pgrep -x rpc.mountd >/dev/null && echo rpc.mountd || echo ganesha.nfsd)"
check "hostadm tells that mountd runs" mountd_is_told "^state running already"
check "hostadm starts nfsd" hostadm run host/start_daemon path=/usr/lib/nfs/nfsd args="-a 16"
check "both are one NFS server" says 1 sh -c 'pgrep -cx ganesha.nfsd'
check "the NFS server answers" soon rpcinfo -T udp $server 100003 3
check "the mount daemon answers" soon rpcinfo -T udp $server 100005 3

check "client1 is added from a tree" add client1 192.168.1.10 08:00:20:aa:bb:01 tree=/export/tree
check "client2 is added from packages" add client2 192.168.1.11 08:00:20:aa:bb:02 packages=/export/packages
check "client2 is added once more" add client2 192.168.1.11 08:00:20:aa:bb:02 packages=/export/packages
[ $failed = 0 ] || die "the clients could not be added"
check "its packages are on record" grep -q '^ARCH=kel4$' /export/root/client2/var/sadm/pkg/ABCbase/pkginfo
check "status sees all daemons" runs in.rarpd in.tftpd rpcbind rpc.bootparamd ganesha.nfsd

boots client1 192.168.1.10 08:00:20:aa:bb:01 'from the tree'
check "client1: boots in a rehearsal" \
    sh -c 'hostadm rehearse client1 >/tmp/rehearsed; cat /tmp/rehearsed; grep -q "boots in the rehearsal: yes" /tmp/rehearsed'
boots client2 192.168.1.11 08:00:20:aa:bb:02 'from packages'
check "client2 does not get the root of client1" refused_with MNT3ERR_ACCES client nfs-ls nfs://$server/export/root/client1
gets_nothing stranger nobody 192.168.1.99 08:00:20:aa:bb:99 /export/root/client1

check "the NFS server is stopped by its watching process" \
    sh -c 'kill $(pgrep -f "^/usr/lib/nfs/nfsd --watch")'
check "it is gone" soon refused nfs_processes
check "mountd brings it back" /usr/lib/nfs/mountd
plug_in 08:00:20:aa:bb:01
take_address 192.168.1.10
check "client1: its root is there after the restart" \
    soon says "from the tree" client nfs-cat nfs://$server/export/root/client1/etc/motd
check "ten starts at once make one server" sh -c '
    kill $(pgrep -f "^/usr/lib/nfs/nfsd --watch"); while pgrep -x ganesha.nfsd; do sleep 0.005; done
    for i in 1 2 3 4 5; do /usr/lib/nfs/nfsd -a 16 & /usr/lib/nfs/mountd & done; wait
    test "$(pgrep -cx ganesha.nfsd)" = 1'
check "the server outlives no watching process" sh -c '
    kill -KILL $(pgrep -f "^/usr/lib/nfs/nfsd --watch")
    for i in $(seq 1000); do pgrep -x ganesha.nfsd || exit 0; sleep 0.005; done; exit 1'
check "and is started again" /usr/lib/nfs/nfsd -a 16

for name in client1 client2; do
    check "$name is removed" hostadm run client/remove hostname=$name purge=yes
done
soon refused says /export/root showmount -e 127.0.0.1
gets_nothing "client1, removed" client1 192.168.1.10 08:00:20:aa:bb:01 /export/root/client1
gets_nothing "client2, removed" client2 192.168.1.11 08:00:20:aa:bb:02 /export/root/client2
check "client1 is added once more" add client1 192.168.1.10 08:00:20:aa:bb:01 tree=/export/tree
boots client1 192.168.1.10 08:00:20:aa:bb:01 'from the tree'

change() { hostadm run client/change "$@"; }
other() { # other NAME NUMBER: the words that name another client
    echo "hostname=$1 address=192.168.1.$2 ethernet=08:00:20:aa:bb:$2 instruction_set=kel4 os_name=Quorvel" \
        "os_version=2.5 server=server"
}

check "client1 is given other addresses" change hostname=client1 address=192.168.1.20 ethernet=08:00:20:aa:bb:20
boots client1 192.168.1.20 08:00:20:aa:bb:20 'from the tree'
gets_nothing "client1 with its old addresses" nobody 192.168.1.10 08:00:20:aa:bb:01 /export/root/client1
check "client1 is renamed" change hostname=client1 new_hostname=client9
boots client9 192.168.1.20 08:00:20:aa:bb:20 'from the tree'

check "client9 is disabled" hostadm run client/disable hostname=client9
plug_in 08:00:20:aa:bb:20
check "client9, disabled: no address by reverse ARP" refused_with "^status 1: no answer" client reverse_arp cli0 $patience 1
take_address 192.168.1.20
check "client9, disabled: no root by NFS" refused_with "MNT3ERR_(ACCES|NOENT)" client nfs-ls nfs://$server/export/root/client9
check "client9 is enabled" hostadm run client/enable hostname=client9
boots client9 192.168.1.20 08:00:20:aa:bb:20 'from the tree'

check "client8 is made like it" hostadm run client/copy hostname=client9 new_hostname=client8 address=192.168.1.30 \
    ethernet=08:00:20:aa:bb:30
boots client8 192.168.1.30 08:00:20:aa:bb:30 'from the tree'

mkdir -p /opt/KTVXmgrd/2.2/etc/autoinstall/small && echo 'install_type initial' >/opt/KTVXmgrd/2.2/etc/autoinstall/small/one
mkdir -p /export/root/client8/etc/fs/cachefs /tmp/empty
for package in KTVXqsvu KTVXqsvr; do
    pkgmk -r /tmp/empty -d /opt/KTVXmgrd/2.2/Packages/i386/5.X $package ARCH=i386 VERSION=5.5 >/tmp/pkgmk.log 2>&1 ||
        die "no package $package: $(cat /tmp/pkgmk.log)"
done
check "client8 becomes a cache-only client" \
    hostadm run client/add_cachelet hostname=client8 profile_set=small profile=one
boots client8 192.168.1.30 08:00:20:aa:bb:30 'from the tree'
check "client8: its table tells it to use its cache" \
    says disconnectable client nfs-cat nfs://$server/export/root/client8/etc/vfstab
check "client8 is a diskless client again" hostadm run client/remove_cachelet hostname=client8
boots client8 192.168.1.30 08:00:20:aa:bb:30 'from the tree'

# Clients of other kinds, as far as each goes by itself. Debian's daemon answers those without a boot program by TFTP only
# when it is told to.
check "the reverse-address daemon answers every client" sh -c 'pkill -x in.rarpd; pkill -x rarpd; /usr/sbin/in.rarpd -ae'
starts() { # starts NAME NUMBER: what every kind needs first
    plug_in "08:00:20:aa:bb:$2"
    check "$1: reverse ARP gives the address" \
        says "address 192.168.1.$2 from server $server" client reverse_arp cli0 $patience 20
    take_address "192.168.1.$2"
    check "$1: whoami, by broadcast" says "name $1 " client bootparams -b 192.168.1.255 whoami "192.168.1.$2"
}
mkdir -p /export/usr/bin && echo 'an executable' >/export/usr/bin/tool
# shellcheck disable=SC2046 # words are meant to be split
check "a dataless client is added" hostadm run client/add_dataless $(other dataless 40) execpath=/export/usr
starts dataless 40
check "dataless: getfile tells its executables" \
    says "address $server path /export/usr" client bootparams $server getfile dataless exec
check "dataless: it reads them" soon says "an executable" client nfs-cat nfs://$server/export/usr/bin/tool
check "dataless: it cannot change them" refused client nfs-cp /export/bootprog nfs://$server/export/usr/bin/tool

mkdir -p /export/cd/images && echo 'an image' >/export/cd/images/first
# shellcheck disable=SC2046
check "an install client is added" hostadm run client/add_install $(other installed 41) implementation_arch=kel4m \
    install_hierarchy=/export/cd boot_program=/export/bootprog
starts installed 41
check "installed: TFTP gives the boot program" fetch C0A80129
check "installed: getfile tells what it is installed from" \
    says "address $server path /export/cd" client bootparams $server getfile installed install
check "installed: it reads that" soon says "an image" client nfs-cat nfs://$server/export/cd/images/first

mkdir -p /export/rpl/platform/kel4m/lib/fs/nfs && for file in inetboot gluecode.com smc.com; do
    cp /export/bootprog /export/rpl/platform/kel4m/lib/fs/nfs/$file
done
# shellcheck disable=SC2046
check "a client that boots by RPL is added" hostadm run client/add_diskless $(other loaded 42) implementation_arch=kel4m \
    swap_size=1m tree=/export/tree install_hierarchy=/export/rpl boot=rpl boot_program=/export/bootprog
starts loaded 42
for link in hw.com glue.com inetboot; do
    check "loaded: the RPL daemon finds its $link" cmp /export/bootprog "/rplboot/080020AABB42.$link"
done
check "loaded: getfile root" says "path /export/root/loaded" client bootparams $server getfile loaded root
check "loaded: a file of its root" soon says "from the tree" client nfs-cat nfs://$server/export/root/loaded/etc/motd

for name in client9 client8 dataless installed loaded; do
    check "$name is removed" hostadm run client/remove hostname=$name purge=yes
done

echo "$passed passed, $failed failed"
[ $failed = 0 ]
