#!/bin/bash
# SPDX-License-Identifier: MIT
# good_servers.sh BUILD HERE: servers that are all in order, each in its own way. A client boots from each of them, and
# neither `hostadm check` nor `hostadm rehearse` says anything of any. Ends with "N good servers, N failed".
set -u
build=$1 here=$2
# shellcheck source=tests/faults/server.sh
. "$here/server.sh"
PATH=$PATH:$build/bin
count=0 failed=0

install_hostadm >/tmp/install.log 2>&1 || { cat /tmp/install.log; exit 2; }
lay_cable
good_server >/tmp/prepare.log 2>&1 || { cat /tmp/prepare.log; exit 2; }

good() { # good TITLE [COMMAND]: after this change as well
    local title=$1 stage
    count=$((count + 1))
    if ! eval "${2:-true}" >/tmp/change.log 2>&1; then
        failed=$((failed + 1))
        { echo "FAILED  $title: it could not be made"; cat /tmp/change.log; }
        return
    fi
    sleep 0.3
    for _ in 1 2 3 4 5; do
        stage=$(first_failure client1 192.168.1.10 08:00:20:aa:bb:01)
        [ -n "$stage" ] || break
        sleep 0.3
    done
    if [ -n "$stage" ]; then
        failed=$((failed + 1))
        echo "FAILED  $title: the boot fails at $stage"
    elif ! hostadm check >/tmp/check.out 2>&1; then
        failed=$((failed + 1))
        { echo "FAILED  $title: check finds"; cat /tmp/check.out; } | sed '2,$s/^/        /'
    elif ! hostadm rehearse client1 >/tmp/rehearse.out 2>&1; then
        failed=$((failed + 1))
        { echo "FAILED  $title: the rehearsal finds"; cat /tmp/rehearse.out; } | sed '2,$s/^/        /'
    else
        echo "ok      $title"
    fi
}
restart() { # restart PROGRAM COMMAND...
    pkill -x "$1"
    soon refused pgrep -r R,S,D,T -x "$1"
    shift
    "$@"
}

good "as add_diskless leaves it"
good "names in capitals" 'sed -i "s/client1\b/CLIENT1/" /etc/hosts && sed -i "s/^client1/Client1/" /etc/bootparams'
good "with comments and empty lines in every table" '
    for i in hosts ethers bootparams dfs/dfstab; do { echo "# the table $i"; echo; cat /etc/$i; echo; echo "   # the end"; } >/tmp/t && cat /tmp/t >/etc/$i; done
    sed -i "s/\(.*Client1.*\)/\1 # the first/I" /etc/bootparams'
good "with continued lines and tabs in bootparams" 'sed -i "s/ swap=/ \\\\\n\t swap=/" /etc/bootparams'
good "with aliases and full names in the hosts table" 'sed -i "s/CLIENT1/client1.example.com client1 c1/; s/ server$/ server.example.com server loghost/" /etc/hosts'
good "with IPv6 lines in the hosts table" 'printf "::1 localhost ip6-localhost\nff02::1 ip6-allnodes\nfd00::1 server\nfd00::10 client1\n" >>/etc/hosts'
good "with Ethernet addresses of other spellings" 'sed -i "s/08:00:20:aa:bb:01/8:0:20:AA:BB:1/" /etc/ethers'
good "with an address in place of a name in the ethers table" 'sed -i "s/client1/192.168.1.10/" /etc/ethers'
good "with other hosts in its tables" 'printf "192.168.1.50 printer\n192.168.1.51 terminal\n" >>/etc/hosts; printf "02:00:00:00:00:50 printer\n" >>/etc/ethers; ln -s inetboot.kel4m.Quorvel_2.5 /tftpboot/C0A80133'
good "with a client that boots from another server" 'printf "192.168.1.60 elsewhere\n192.168.1.61 other\n" >>/etc/hosts; echo "02:00:00:00:00:61 other" >>/etc/ethers; for i in C0A8013D C0A8013D.KEL4M; do ln -s inetboot.kel4m.Quorvel_2.5 /tftpboot/$i; done; echo "other root=elsewhere:/net/root/other swap=elsewhere:/net/swap/other" >>/etc/bootparams'
good "with several interfaces" 'ip link add lan2 type veth peer name lan3 && ip addr add 10.9.0.1/16 dev lan2 && ip link set lan2 up; echo "10.9.0.1 server-lan2" >>/etc/hosts'
good "with a packet filter that lets a boot pass" '
    nft add table inet fw
    nft add chain inet fw in "{ type filter hook input priority 0; policy drop; }"
    nft add rule inet fw in iifname lo accept
    nft add rule inet fw in ct state established,related accept
    nft add rule inet fw in ip saddr 192.168.1.0/24 accept
    nft add chain inet fw out "{ type filter hook output priority 0; policy accept; }"
    nft add rule inet fw out tcp dport 25 drop'
good "with access lists that let a boot pass" 'echo "ALL: ALL" >/etc/hosts.deny; printf "in.tftpd, rpcbind: 192.168.1.0/255.255.255.0 127.0.0.1\nALL: LOCAL\n" >/etc/hosts.allow'
good "with the reverse ARP daemon on one interface" 'restart in.rarpd rarpd -e srv0'
good "with options of the TFTP daemon in short form" 'restart in.tftpd in.tftpd -l -4 -s -a 192.168.1.1:69 -u nobody -vv -B 1024 /tftpboot'
good "with other paths of roots" 'mkdir -p /export/clients && cp -a /export/root/client1 /export/clients/one && sed -i "s,/export/root/client1,/export/clients/one," /etc/bootparams /export/clients/one/etc/vfstab && hostadm run filesystem/unshare pathname=/export/root/client1 && hostadm run filesystem/share pathname=/export/clients/one options=rw=client1:client2,root=client1:client2'
good "with an export made by hand" '
    hostadm run filesystem/unshare pathname=/export/clients/one &&
    printf "EXPORT { Export_Id = 777; Path = /export/clients; Pseudo = /export/clients; Access_Type = RW; Squash = No_Root_Squash;\n Protocols = 3; SecType = sys; FSAL { Name = VFS; } }\n" >>/etc/ganesha/share.conf &&
    kill -HUP $(pgrep -x ganesha.nfsd)'
good "with a Linux mount table in the root" 'rm /export/clients/one/etc/vfstab; printf "server:/export/clients/one / nfs rw 0 0\nproc /proc proc defaults 0 0\n" >/export/clients/one/etc/fstab; cp /export/clients/one/etc/fstab /tmp/x; printf "server:/export/clients/one - / nfs - no rw\n" >/export/clients/one/etc/vfstab'
good "with items in bootparams that only clients understand" 'sed -i "s,swap=server:/export/swap/client1/swap,swap=server:/export/swap/client1/swap rootopts=:rsize=8192 term=:vt100," /etc/bootparams'
good "with a client that installs itself" 'mkdir -p /srv/install && hostadm run filesystem/share pathname=/srv/install options=ro,anon=0 && sed -i "/^Client1/s,boottype=[^ ]*,boottype=:in install=server:/srv/install," /etc/bootparams'
good "with a client that mounts through its own cache" 'sed -i "/^Client1/s,boottype=[^ ]* install=[^ ]*,boottype=:ca," /etc/bootparams'
good "with its own tables reached by links" 'mkdir -p /etc/site && for i in hosts ethers bootparams; do mv /etc/$i /etc/site/ && ln -s site/$i /etc/$i; done'
good "with a second name for itself at the loopback" 'sed -i "1a 127.0.1.1 loghost2.example.com loghost2" /etc/site/hosts'
good "with the boot area behind a link" 'mkdir -p /srv && mv /tftpboot /srv/tftpboot && ln -s srv/tftpboot /tftpboot && restart in.tftpd in.tftpd --listen --ipv4 --secure /tftpboot'
good "with all that a boot needs switched on for its start" 'hostadm run host/enable_boot_services router=192.168.1.1'
echo "$count good servers, $failed failed"
[ "$failed" = 0 ]
