#!/bin/bash
# SPDX-License-Identifier: MIT
# faults.sh BUILD HERE [PART/PARTS]: breaks a good server in every way that the list "faults" knows, one after another;
# of several that share the list, the PARTth takes every PARTSth of them. Each is named by `hostadm check` as the list
# says; the boot really fails where the list gives a stage; and the repair that the finding tells, when run, makes the
# findings go away and the boot pass. Ends with "N faults, N failed".
set -u
build=$1 here=$2
# shellcheck source=tests/faults/server.sh
. "$here/server.sh"
PATH=$PATH:$build/bin
only=${FAULTS:-} # a part of the titles
part=${3:-1/1} read=0
count=0 failed=0

is_wanted() { # by its title and its place in the list
    [ -n "$title" ] && [[ $title == *"$only"* ]] || return
    read=$((read + 1))
    [ $((read % ${part#*/})) = $((${part%/*} % ${part#*/})) ]
}

findings() { hostadm check --json 2>/tmp/check.err >/tmp/check.json; }
listed() { jq -r '.findings[] | "\(.check) [\(.severity), \(.stage)] \(.where): \(.what)\n      \(.repair)"' /tmp/check.json; }
fail() {
    failed=$((failed + 1))
    printf 'FAILED  %s: %s\n' "$title" "$1"
    { cat /tmp/check.err; listed; cat /etc/hosts /etc/bootparams; cat /tmp/repair.log 2>/dev/null; } | sed 's/^/        /' | head -30
    reset
}
everything="/etc/hosts /etc/ethers /etc/bootparams /etc/nsswitch.conf /etc/dfs /etc/ganesha /tftpboot"
save() {
    # shellcheck disable=SC2086 # a list
    mkdir -p /var/good && cd / && cp -a --parents $everything /var/good/
    for name in client1 client2; do
        mkdir -p /var/good/export/root /var/good/export/swap &&
            cp -a /export/root/$name /var/good/export/root/ && cp -a /export/swap/$name /var/good/export/swap/
    done
}
stop() {
    local program
    for program in in.rarpd rarpd in.tftpd inetd rpc.bootparamd rpcbind; do pkill -CONT -x "$program"; pkill -KILL -x "$program"; done
    soon refused pgrep -r R,S,D,T -x 'in.rarpd|rarpd|in.tftpd|inetd|rpc.bootparamd|rpcbind'
    pkill -CONT -x ganesha.nfsd
    pkill -f '^/usr/lib/nfs/nfsd --watch'
    soon refused pgrep -r R,S,D,T -x ganesha.nfsd || pkill -KILL -x ganesha.nfsd
}
# Back to the good server, whatever a fault and its repair have left.
reset() {
    stop
    mount -o remount,rw /export 2>/dev/null
    chattr -i /etc/hosts 2>/dev/null
    # shellcheck disable=SC2086
    rm -rf $everything /etc/hosts.deny /etc/hosts.allow /etc/inetd.conf /export/root/client? /export/swap/client? /etc/fstab /etc/vfstab /etc/systemd/system/*.service /etc/systemd/system/*.service.d /etc/systemd/system/*/hostadm-* /var/lib/hostadm/boot_services /export/kept
    ip link del dummy0 2>/dev/null
    cp -a /var/good/. /
    nft flush ruleset 2>/dev/null
    ip neigh flush all nud permanent 2>/dev/null
    ip route flush root 192.168.1.0/24 2>/dev/null
    ip link set srv0 down arp on && ip addr flush dev srv0 && ip addr add $address/24 brd + dev srv0 && ip link set srv0 up
    sysctl -qw net.ipv4.conf.srv0.arp_ignore=0
    ip link set srv0 up
    # shellcheck disable=SC2119 # with the usual options
    start_rpcbind && start_bootparamd && start_tftpd && /usr/sbin/in.rarpd -a && start_nfs
} >/tmp/reset.log 2>&1

# One fault: $title $stage $check $says $break $fill
try() {
    count=$((count + 1))
    rm -f /tmp/repair.log
    eval "$break" >/tmp/break.log 2>&1 || { fail "it could not be broken: $(cat /tmp/break.log)"; return; }
    [ -z "${settle:-}" ] || soon eval "$settle"
    local stage_seen="" index repair
    if [ -n "$stage" ]; then
        stage_seen=$(first_failure client1 192.168.1.10 08:00:20:aa:bb:01)
        [ "$stage_seen" = "$stage" ] || { findings; fail "the boot fails at '$stage_seen'"; return; }
    fi
    findings && { fail "check finds nothing"; return; }
    index=$(jq -r --arg check "$check" --arg says "$says" \
        '[.findings[] | select(.check == $check and ((.what + .where) | contains($says)))][0].repair // empty' /tmp/check.json)
    [ -n "$index" ] || { fail "check does not name it"; return; }
    # The repairs, one after another: of each time the first, since one may mend several findings.
    for _ in 1 2 3 4 5 6; do
        repair=$(jq -r '.findings[0].repair // empty' /tmp/check.json)
        [ -n "$repair" ] || break
        [ -z "${fill:-}" ] || repair=$(sed "$fill" <<<"$repair")
        bash -c "$repair" >>/tmp/repair.log 2>&1 </dev/null
        soonest settled
        findings && break
    done
    if [ "$(jq '.findings | length' /tmp/check.json)" != 0 ]; then fail "the repair leaves findings: $repair"; return; fi
    for _ in 1 2 3 4 5; do # the NFS server may take a moment to hear of a change
        stage_seen=$(first_failure client1 192.168.1.10 08:00:20:aa:bb:01)
        [ -n "$stage_seen" ] || break
        sleep 0.3
    done
    [ -z "$stage_seen" ] || { fail "after the repair the boot fails at '$stage_seen'"; return; }
    # A repair may leave other words that mean the same: the next fault finds the tables as they were.
    rm -rf /export/kept /etc/hosts.allow /etc/hosts.deny
    mount -o remount,size=50% /export
    ip link del dummy0 2>/dev/null
    cp -a --remove-destination /var/good/etc/{hosts,ethers,bootparams,nsswitch.conf} /etc/
    printf 'ok      %s\n' "$title"
}
settled() { # what the repair started answers
    ! pgrep -x rpcbind || timeout 1 rpcinfo -T udp 127.0.0.1 100000 2 || return
    ! pgrep -x rpc.bootparamd || timeout 1 rpcinfo -T udp 127.0.0.1 100026 1
}

install_hostadm >/tmp/install.log 2>&1 || { cat /tmp/install.log; exit 2; }
lay_cable
good_server >/tmp/prepare.log 2>&1 || { cat /tmp/prepare.log; exit 2; }
[ -z "$(first_failure client1 192.168.1.10 08:00:20:aa:bb:01)" ] || die "the good server boots nobody: $(first_failure client1 192.168.1.10 08:00:20:aa:bb:01)"
findings || { listed; die "the good server is not good"; }
save

read_list() {
    local key value line
    title="" stage="" check="" says="" break="" fill="" settle=""
    while IFS= read -r line || [ -n "$line" ]; do
        [[ $line != '#'* ]] || continue
        if [ -z "$line" ]; then
            if is_wanted; then try; fi
            title="" stage="" check="" says="" break="" fill="" settle=""
            continue
        fi
        key=${line%%[[:blank:]]*} value=${line#"$key"}
        value=${value#"${value%%[![:blank:]]*}"}
        case $key in
        fault) title=$value ;; stage) stage=$value ;; check) check=$value ;; says) says=$value ;;
        break) break=$value ;; fill) fill=$value ;; settle) settle=$value ;;
        *) die "the list has a line $line" ;;
        esac
    done <"$here/faults"
    if is_wanted; then try; fi
}
read_list
echo "$count faults, $failed failed"
[ "$failed" = 0 ]
