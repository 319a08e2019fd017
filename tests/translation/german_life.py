#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""german_life.py HOSTADM DE.PO: a client's whole life before a German administrator, from nothing to nothing, with what goes
wrong on the way. Everything that is said is German. To be run in a throwaway root."""
import re
import shutil
import sys
from pathlib import Path

import german
import po_file

CATALOGUE = sys.argv[2]
# Words that no German sentence has, nor any name, path or key that a method tells of.
ENGLISH = re.compile(r"(?<![\w/.=-])(the|of|and|cannot|there|which|has|does|is|are|with|from|by|to|this|that|it|not)"
                     r"(?![\w/=-])")
# What stands for a program to read, whatever the language: a value alone, a step's name, and the lines of files in a
# preview.
FOR_PROGRAMS = re.compile(r"^[-+@ ].*|^\S+ +(yes|no)$|^table of hosts(?=  )", re.MULTILINE)
SHARE = r"""#!/bin/sh
tab=/etc/dfs/sharetab
[ $# = 0 ] && { [ -f $tab ] && cat $tab; exit 0; }
while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done
shift $((OPTIND - 1))
echo "-  $1  $opts  \"\"" >>$tab
"""
UNSHARE = r"""#!/bin/sh
shift 2
sed -i "\|  $1  |d" /etc/dfs/sharetab
"""
CLIENT = ("instruction_set=kel4", "implementation_arch=kel4m", "os_name=Quorvel", "os_version=2.5", "server=server1",
          "tree=/tree", "swap_size=1m")


def write(path, text, mode=0o644):
    path = Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")
    path.chmod(mode)


def lay_server():
    for folder in ("/export", "/tftpboot", "/rplboot", "/tree", "/etc/dfs"):
        shutil.rmtree(folder, ignore_errors=True)
    write("/usr/sbin/share", SHARE, 0o755)
    write("/usr/sbin/unshare", UNSHARE, 0o755)
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n")
    for table in ("/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab", "/etc/dfs/sharetab"):
        write(table, "")
    write("/tree/etc/hosts", "127.0.0.1 localhost\n")
    write("/tree/etc/nodename", "c1\n")
    write("/tree/etc/vfstab", "server1:/export/root/c1 - / nfs - no rw\n")
    write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program")


def main():
    lay_server()
    pieces = german.english_pieces(po_file.read(CATALOGUE))
    add = ("client/add_diskless", "hostname=c1", "address=10.1.2.3", "ethernet=8:0:20:a:b:c", *CLIENT)
    life = [
        (["status"], "CLIENTS"), (["run", "client/list"], ""),
        (["preview", *add], "Vorschau"), (["run", *add], ""), (["run", *add], ""),
        (["run", "client/list"], "c1"), (["run", "client/show", "hostname=c1"], "c1"), (["status"], "c1"),
        (["check"], "Befund"), (["check", "c1"], ""), (["check", "--list"], ""), (["check", "nobody"], "nobody"),
        (["run", "client/add_diskless", "hostname=c2", "address=10.1.2.3", "ethernet=8:0:20:1:2:3", *CLIENT], "gehört c1"),
        (["run", "client/add_diskless", "hostname=c2", "address=10.1.2.300", "ethernet=8:0:20:1:2:3", *CLIENT], "Adresse"),
        (["run", "client/add_diskless", "hostname=c2", "address=10.1.2.4", "ethernet=8:0:20:1:2:3", *CLIENT,
          "tree=/nowhere"], "tree"),
        (["run", "client/add_diskless", "hostname=c2", "address=10.1.2.4", "ethernet=8:0:20:1:2:3",
          *CLIENT[:-2], "tree=/nowhere"], "/nowhere"),
        (["run", "client/disable", "hostname=c1"], ""), (["run", "client/disable", "hostname=nobody"], "nobody"),
        (["run", *add], ""), (["run", "client/enable", "hostname=c1"], ""),
        (["run", "client/change", "hostname=c1", "address=10.1.2.9"], ""),
        (["run", "client/copy", "hostname=c1", "new_hostname=c3", "address=10.1.2.10", "ethernet=8:0:20:1:2:9"], ""),
        (["run", "filesystem/list_mounts"], ""), (["run", "filesystem/unmount", "mountpt=/nowhere", "takeeffect=nowonly"], ""),
        (["run", "filesystem/share", "pathname=/nowhere"], "/nowhere"),
        (["run", "client/remove", "hostname=nobody"], ""),
        (["run", "client/remove", "hostname=server1"], "server1"),
        (["preview", "client/remove", "hostname=c1", "purge=yes"], "Vorschau"),
        (["run", "client/remove", "hostname=c1", "purge=yes"], ""), (["run", "client/remove", "hostname=c3"], ""),
        (["run", "client/list"], ""), (["--help"], "Befehl"), (["run", "client/remove", "--help"], ""),
        (["help", "clients"], ""), (["help", "booting"], ""), (["help", "checks"], ""), (["help", "services"], ""),
        (["help", "exit-status"], ""), (["help", "bootin"], "booting"),
    ]
    defects = []
    for words, expected in life:
        text = german.said(*words)
        shown = "hostadm " + " ".join(words)
        if expected not in text:
            defects.append(f"{shown}: does not say {expected}: {text}")
        for piece in german.english_in(text, pieces):
            defects.append(f"{shown}: English: {piece}")
        for line in FOR_PROGRAMS.sub("", text).splitlines():
            if ENGLISH.search(line):
                defects.append(f"{shown}: English: {line}")
        if "--verbose" in sys.argv:
            print(f"== {shown}\n{text}")
    print("\n".join(defects))
    sys.exit(1 if defects else 0)


if __name__ == "__main__":
    main()
