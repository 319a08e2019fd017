# shellcheck shell=bash disable=SC2034,SC2120 # who reads this uses the names and gives the arguments
# SPDX-License-Identifier: MIT
# good_server.sh: to be read by a script in a throwaway root. Makes a server of one client, client1, with Debian's
# daemons running, from which a client boots; another network name space, "client", hangs on its interface srv0.
export PATH=/usr/local/bin:/usr/local/sbin:/usr/sbin:/usr/bin:/sbin:/bin
[ "${HOSTADM_SANDBOX:-}" = 1 ] || { echo "run this with in-sandbox: it writes into /etc"; exit 2; }

server=192.168.1.1 name=client1 address=192.168.1.10 ethernet=08:00:20:aa:bb:01 digits=C0A8010A
root=/export/root/$name swap=/export/swap/$name/swap program=inetboot.kel4m.Quorvel_2.5

soon() { # at most 30 s, 5 ms apart
    for _ in $(seq 6000); do "$@" >/dev/null 2>&1 && return; sleep 0.005; done
    echo "never: $*"
    return 1
}
gone() { ! kill -0 "$1" 2>/dev/null || grep -q '^State:.*Z' "/proc/$1/status" 2>/dev/null; }

lay_cable() {
    ip netns add client && ip link add srv0 type veth peer name cli0 netns client &&
        ip addr add $server/24 brd + dev srv0 && ip link set srv0 up &&
        nsenter --net=/run/netns/client sh -ec "ip link set lo up; ip link set cli0 address $ethernet up"
}

# What the daemons' packages set up when they are installed.
make_users() {
    local user number=900
    for user in _rpc tftp statd; do
        getent passwd $user >/dev/null || echo "$user:x:$((number++)):65534::/run/$user:/usr/sbin/nologin" >>/etc/passwd
    done
    mkdir -p /run/rpcbind /run/ganesha /var/log/ganesha /var/lib/nfs/ganesha && chown _rpc /run/rpcbind
    ln -sf rarpd /usr/sbin/in.rarpd
}

write_tables() {
    printf '127.0.0.1 localhost\n%s server\n%s %s\n' $server $address $name >/etc/hosts
    echo "$ethernet $name" >/etc/ethers
    echo "$name root=server:$root swap=server:$swap" >/etc/bootparams
    mkdir -p /etc/dfs
    printf 'share -F nfs -o rw=%s,root=%s %s\n' $name $name $root $name $name ${swap%/*} >/etc/dfs/dfstab
}

write_exports() { # write_exports [ACCESS [SQUASH [CLIENT]]]
    mkdir -p /etc/ganesha
    {
        echo 'NFS_CORE_PARAM { Protocols = 3; Enable_NLM = false; Enable_RQUOTA = false; }'
        echo 'NFSv4 { Graceless = true; }'
        local number=0 path
        for path in $root ${swap%/*}; do
            number=$((number + 1))
            cat <<END
EXPORT { Export_Id = $number; Path = $path; Pseudo = $path; Access_Type = None; Squash = root_squash;
  Protocols = 3; SecType = sys; FSAL { Name = VFS; }
  CLIENT { Clients = ${3:-$address}; Access_Type = ${1:-RW}; Squash = ${2:-no_root_squash}; Protocols = 3; } }
END
        done
    } >/etc/ganesha/ganesha.conf
}

copy_libraries_of() { # what a program of the root needs of this system, loader included
    local library
    for library in $(ldd "$1" | grep -o '/[^ ]*'); do
        mkdir -p "$root${library%/*}" && cp -L "$library" "$root$library"
    done
}

# A share command that tells what the table of shares says.
make_share_command() {
    cat >/usr/sbin/share <<'END'
#!/bin/sh
[ $# = 0 ] || exit 1
awk '$1 == "share" { print "-  " $NF "  " $5 "  \"\"" }' /etc/dfs/dfstab
END
    chmod 755 /usr/sbin/share
}

make_client_files() {
    # The NFS server cannot find files again on a layered file system.
    mkdir -p /export && mount -t tmpfs -o mode=755 export /export || return
    mkdir -p $root/{bin,dev,etc,sbin,tmp,usr/bin,var} "${swap%/*}" /tftpboot
    printf '#!/bin/sh\nexec /bin/sh\n' >$root/sbin/init && chmod 755 $root/sbin/init
    cp /bin/true $root/bin/sh && copy_libraries_of $root/bin/sh
    mknod $root/dev/console c 5 1
    printf 'server:%s\t-\t/\tnfs\t-\tno\trw\n' $root >$root/etc/vfstab
    head -c 1048576 /dev/zero >$swap && chmod 600 $swap
    head -c 3000 /dev/urandom >/tftpboot/$program
    ln -s $program /tftpboot/$digits && ln -s $program /tftpboot/$digits.KEL4M
}

start_rarpd() { in.rarpd "${@:--a}"; }
start_tftpd() { in.tftpd --listen --ipv4 --secure "${@:-/tftpboot}"; }
start_bootparamd() { rpc.bootparamd "${@--r$server}"; soon rpcinfo -T udp 127.0.0.1 100026 1; }
start_nfs() {
    ganesha.nfsd -L /var/log/ganesha/ganesha.log -f /etc/ganesha/ganesha.conf -p /run/ganesha.pid
    soon rpcinfo -T udp 127.0.0.1 100003 3 && soon rpcinfo -T udp 127.0.0.1 100005 3
}
start_rpc() { # start_rpc [OPTION]...: the port mapper and all that register with it
    rpcbind "${@--r}" && soon rpcinfo -T udp 127.0.0.1 100000 2 && start_bootparamd && start_nfs
}
stop() { # stop DAEMON...
    local daemon process
    for daemon; do
        for process in $(pidof "$daemon"); do
            kill -KILL "$process"
            soon gone "$process"
        done
    done
}
stop_rpc() { stop ganesha.nfsd rpc.bootparamd rpcbind; rm -f /run/ganesha.pid /run/rpcbind.*; }
reread_exports() { kill -HUP "$(cat /run/ganesha.pid)"; sleep 0.1; }

make_good_server() {
    lay_cable && make_users && write_tables && write_exports && make_client_files &&
        make_share_command &&
        start_rarpd && start_tftpd && start_rpc
}
