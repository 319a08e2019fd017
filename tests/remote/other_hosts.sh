#!/bin/bash
# SPDX-License-Identifier: MIT
# other_hosts.sh BUILD: runs methods on another host over ssh, and on hosts that fail in each way. Runs in a throwaway
# root, whose network namespace is one host; a second namespace, "far", is the others.
# shellcheck disable=SC2317 # functions are called by name
set -u
build=$1
here=$(dirname "$(readlink -f "$0")")
[ "${HOSTADM_SANDBOX:-}" = 1 ] || { echo "run this with in-sandbox: it installs into /usr"; exit 2; }
for program in /usr/sbin/sshd ssh ip; do
    command -v "$program" >/dev/null || { echo "skipped: there is no $program"; exit 77; }
done
export PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8
failures=0 out='' err='' status=0

die() { echo "cannot run: $*"; exit 2; }
soon() { # at most 20 s
    local _
    for _ in $(seq 400); do "$@" >/dev/null 2>&1 && return; sleep 0.05; done
    return 1
}
nobody_sleeps() { ! pgrep -xf "sleep $1"; }
far() { nsenter --net=/run/netns/far "$@"; }

# asked WORDS...: hostadm, with what came out in $out and $err.
asked() {
    out=$(timeout 60 hostadm "$@" 2>/tmp/err </dev/null)
    status=$?
    err=$(cat /tmp/err)
}
is() { # is TITLE STATUS WORDS-OF-OUTPUT-OR-ERRORS
    case "$status/$out/$err" in
    "$2"/*"$3"*) echo "passed: $1" ;;
    *)
        echo "FAILED: $1: status $status, not $2, or nothing of \"$3\" in:"
        printf '%s\n' "$out" "$err" | cat -v | head -40
        failures=$((failures + 1))
        ;;
    esac
}
is_not_in() { # is_not_in TITLE WORDS
    case $out$err in *"$2"*)
        echo "FAILED: $1"
        failures=$((failures + 1))
        ;;
    esac
}

lay_hosts() {
    mkdir -p /run/netns
    ip link set lo up && ip netns add far && ip link add here0 type veth peer name far0 netns far &&
        ip addr add 192.168.7.1/24 dev here0 && ip link set here0 up && far ip link set lo up &&
        far ip link set far0 up || die "no network namespaces"
    printf '127.0.0.1 localhost\n192.168.7.1 server\n' >/etc/hosts
    local at=2 host
    for host in far1 far2 strange changed bare silent mute talker closed cut; do
        far ip addr add 192.168.7.$at/24 dev far0
        echo "192.168.7.$((at++)) $host" >>/etc/hosts
    done
    echo "192.168.7.99 off" >>/etc/hosts
    printf 'hosts: files\npasswd: files\nshadow: files\ngroup: files\n' >/etc/nsswitch.conf
}

# start_sshd HOST [LINE...]: a server that listens on the host's address alone.
start_sshd() {
    local host=$1 folder=/etc/far/$1
    shift
    mkdir -p "$folder"
    ssh-keygen -q -t ed25519 -N '' -f "$folder/key"
    {
        echo "ListenAddress $(getent hosts "$host" | cut -d' ' -f1)"
        # Of two lines that say the same the first counts.
        printf '%s\n' "$@" "HostKey $folder/key" "PidFile none" "UsePAM no" "StrictModes no" "PasswordAuthentication no" \
            "AuthorizedKeysFile /etc/far/authorized" "SetEnv PATH=$PATH"
    } >"$folder/config"
    far /usr/sbin/sshd -f "$folder/config" -E "$folder/log" && soon far bash -c ": </dev/tcp/$host/22" ||
        { cat "$folder/log"; die "no ssh server on $host"; }
}
known() { echo "$1,$(getent hosts "$1" | cut -d' ' -f1) $(cut -d' ' -f1,2 "/etc/far/${2:-$1}/key.pub")"; }

cmake --install "$build" >/dev/null && ldconfig || die "no installation"
lay_hosts
mkdir -p /run/sshd /root/.ssh /etc/far && chmod 700 /root/.ssh && chmod 755 /run/sshd
getent passwd sshd >/dev/null || echo 'sshd:x:990:65534::/run/sshd:/usr/sbin/nologin' >>/etc/passwd
grep -q '^admin:' /etc/passwd || echo 'admin:x:991:991::/tmp:/bin/sh' >>/etc/passwd
printf 'root:*:19000::::::\nadmin:*:19000::::::\nsshd:!:19000::::::\n' >/etc/shadow
rm -f /root/.ssh/id_* && ssh-keygen -q -t ed25519 -N '' -f /root/.ssh/id_ed25519
cp /root/.ssh/id_ed25519.pub /etc/far/authorized
: >/root/.ssh/config
# What a method there says for people, and what a login there prints, is not to be trusted.
mkdir -p /usr/local/libexec/hostadm/methods/far
cat >/usr/local/libexec/hostadm/methods/far/speak <<'END'
#!/bin/sh
[ "${1:-}" = --describe ] && { echo '{"name": "far/speak", "purpose": "speaks", "arguments": [{"name": "wait", "kind": "number", "purpose": "seconds", "default": "0"}], "outputs": [{"name": "said", "purpose": "what it says"}]}'; exit; }
printf 'clear \033[2J screen\n' >&2
printf '{"output": "said", "value": "from \\u001b[2J %s"}\n' "$(id -un)" >&4
exec sleep "$(hostadm arg get wait)"
END
chmod 755 /usr/local/libexec/hostadm/methods/far/speak
cat >/usr/local/libexec/hostadm/methods/far/note <<'END'
#!/bin/sh
[ "${1:-}" = --describe ] && { echo '{"name": "far/note", "purpose": "notes", "outputs": [{"name": "noted", "purpose": "where"}], "edits": ["/etc/far-note"]}'; exit; }
echo 'it was noted' >/etc/far-note
hostadm arg set noted /etc/far-note
END
chmod 755 /usr/local/libexec/hostadm/methods/far/note
mkdir -p /usr/local/bare
for host in far1 far2 strange changed; do start_sshd $host; done
start_sshd bare "SetEnv PATH=/usr/local/bare"
start_sshd closed "AuthorizedKeysFile none"
start_sshd mute "ForceCommand sleep 100"
start_sshd cut "ForceCommand sh /etc/far/cut/command"
start_sshd talker "ForceCommand /bin/cat /dev/zero"
{
    known far1; known far2; known bare; known closed; known cut; known mute; known talker
    known changed strange
} >/root/.ssh/known_hosts
# Takes connections and says nothing.
far python3 -c "
import socket, time
s = socket.create_server(('$(getent hosts silent | cut -d' ' -f1)', 22))
time.sleep(600)" &
soon far bash -c ": </dev/tcp/silent/22" || die "nobody listens on silent"

asked run --host far1 far/speak
is "a method runs on another host" 0 'said  from \x1b[2J root'
is "what it says for people does not steer the terminal" 0 'clear \x1b[2J screen'
is_not_in "an escape came through" "$(printf '\033')"
asked run --host admin@far1 far/speak
is "it runs as another user" 0 "from \x1b[2J admin"
asked run --host far1,far2 --host root@far1 far/speak
is "several hosts are told apart" 0 "far1:
said  from \x1b[2J root

far2:
said  from \x1b[2J root

root@far1:
said  from"
is "what each says is marked" 0 "far2: clear"
asked run --json --host far2,off,far1 --connect-timeout 60 far/speak
is "one of several fails" 1 "off: far/speak: off "
[ "$(printf '%s' "$out" | jq -c '[.[] | [.host, .status, .errors[0].code]]')" = '[["far2","done",null],["off","failed",132],["far1","done",null]]' ] ||
    { echo "FAILED: the answers of several hosts as JSON: $out"; failures=$((failures + 1)); }
printf '{"command": "run_on_hosts", "answer": %s}' "$(printf '%s' "$out" | tr -d '\n')" >/tmp/answer
"$here/../preview/validate" "$here/../../docs/answers.schema.json" </tmp/answer || { echo "FAILED: that is not what the schema says"; failures=$((failures + 1)); }
asked run --json --host far1 far/speak
is "one host's answer names it" 0 '"host": "far1"'

asked preview --host far1 far/note
is "a method is previewed on another host" 0 "+it was noted"
is "its outputs come with it" 0 "noted  /etc/far-note"
is_not_in "the report is no output for people" "_preview"
asked preview --host far1,far2 far/note
is "previews on several hosts are told apart" 0 "

far2:
noted"
asked preview --json --host far2,off,server --connect-timeout 20 far/note
is "one of several previews fails" 1 "off: far/note: off "
[ "$(printf '%s' "$out" | jq -c '[.[] | [.host, .status, .outputs.noted, .changes[0].path]]')" = \
    '[["far2","done","/etc/far-note","/etc/far-note"],["off","failed",null,null],["server","done","/etc/far-note","/etc/far-note"]]' ] ||
    { echo "FAILED: the previews of several hosts as JSON: $out"; failures=$((failures + 1)); }
printf '{"command": "preview_on_hosts", "answer": %s}' "$(printf '%s' "$out" | tr -d '\n')" >/tmp/answer
"$here/../preview/validate" "$here/../../docs/answers.schema.json" </tmp/answer || { echo "FAILED: that is not what the schema says"; failures=$((failures + 1)); }
asked preview --host far1 --then 'list far' far/note
is "a command runs in the same root there" 0 "== hostadm list far"
asked preview --host far1 --then 'help no/such' far/note
is "a command there that fails is told" 1 "a command of --then failed"
asked preview --host admin@far1 far/note
is "a preview there needs root" 1 "hostadm: far/note: "
is_not_in "who is not root sees no change" "it was noted"
asked preview --host bare far/note
is "a preview on a host without hostadm" 1 "(error 136)"
asked preview --host far1 far/note wrong=x
is "a wrong argument of a preview there" 2 "there is no argument"
asked preview --host far1 --answer-timeout 3 far/speak wait=51
is "a preview that takes too long" 1 "(error 138)"
is "has changed nothing" 1 "it was only a preview, and nothing has been changed there"
is_not_in "a preview leaves nothing half done" "left half done"
soon nobody_sleeps 51 || { echo "FAILED: the previewed method there goes on"; failures=$((failures + 1)); }
[ ! -e /etc/far-note ] || { echo "FAILED: a preview has changed something"; failures=$((failures + 1)); }

asked run --host nowhere far/speak
is "a host without an address" 1 "nowhere has no address here"
is "has a code" 1 "(error 130)"
asked run --host bare -- far/speak
is "a host without hostadm" 1 "(error 136)"
is "is told to need it" 1 "there is no hostadm on bare"
: >/root/.ssh/config
printf 'Host refusing\n    HostName far1\n    Port 4\n' >/root/.ssh/config
asked run --host refusing far/speak
is "a refused connection" 1 "refusing refuses the connection"
is "has a code" 1 "(error 131)"
asked run --host off --connect-timeout 2 far/speak
is "a host that is off" 1 "(error 132)"
asked run --host silent --connect-timeout 2 far/speak
is "a host that takes connections and is silent" 1 "silent did not answer in time"
asked run --host strange far/speak
is "an unknown key" 1 "the key of strange is not known here"
is "has a code" 1 "(error 133)"
asked run --host changed far/speak
is "a changed key" 1 "the key of changed is another one than before"
is "has a code" 1 "(error 134)"
asked run --host closed far/speak
is "no login" 1 "closed lets nobody log in as closed without a password"
is "has a code" 1 "(error 135)"
asked run --host mute --connect-timeout 2 far/speak
is "a login in which hostadm never begins" 1 "mute let mute in, but hostadm did not begin there within 2 seconds"
asked run --host talker far/speak
is "a login that never stops talking" 1 "talker does not stop talking"
asked run --host far1 --answer-timeout 1 far/speak wait=50
is "an answer that does not come in time" 1 "(error 138)"
is "leaves a doubt" 1 "something may be left half done"
soon nobody_sleeps 50 || { echo "FAILED: the method there goes on"; failures=$((failures + 1)); }

# Stands for the real one, which lets nobody do anything.
cat >/usr/bin/sudo <<'END'
#!/bin/sh
{ [ "$*" = "-n -- hostadm serve" ] || [ "$*" = "-n -- hostadm serve --preview" ]; } && [ "${LANGUAGE:-}" = en ] || exit 3
[ -e /etc/sudo-allows ] || { echo 'sudo: a password is required' >&2; exit 1; }
shift 2
exec "$@"
END
chmod 755 /usr/bin/sudo
asked run --host admin@far1 --sudo far/speak
is "sudo that wants a password" 1 "sudo on far1 does not let admin@far1 run hostadm without a password (sudo: a password is required)"
is "has a code" 1 "(error 137)"
asked preview --host admin@far1 --sudo far/note
is "sudo that allows no preview" 1 "NOPASSWD: /usr/bin/hostadm serve --preview"
touch /etc/sudo-allows
asked run --host far1 --sudo far/speak
is "sudo that allows it" 0 "said  from"

# The connection goes while the method is at work.
cat >/etc/far/cut/command <<'END'
{ until pgrep -xf 'sleep 40' >/dev/null; do sleep 0.1; done; kill -9 $PPID; } &
exec hostadm serve
END
asked run --host cut far/speak wait=40
is "an answer that breaks off" 1 "the answer of cut breaks off"
is "has a code" 1 "(error 139)"

# One signal ends all that runs and all that would be started.
timeout -s INT -k 30 3 hostadm run --host far1,far2,root@far1,root@far2 --at-once 2 far/speak wait=30 >/tmp/out 2>/tmp/err
[ $? = 124 ] && [ "$(grep -c 'far/speak' /tmp/err)" -ge 4 ] ||
    { echo "FAILED: an interrupted run on several hosts:"; cat /tmp/out /tmp/err; failures=$((failures + 1)); }

for host in -oProxyCommand=reboot 'a b' 'root@-x' '-x@far1' 'root;id@far1' 'far1;id'; do
    asked run "--host=$host" far/speak
    is "the host $host is refused" 2 "the host cannot be"
done
asked run --host far1,far1 far/speak
is "a host given twice" 2 "far1 is given twice"
asked run --sudo far/speak
is "sudo without a host" 2 "--sudo"
[ "$failures" = 0 ]
