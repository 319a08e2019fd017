#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""live_shells_test.py INSTALLATION COMPLETIONS

What real shells complete with this installation's own methods, from what a server has: its clients, what is mounted
and what is shared. To be run in a throwaway root.
"""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import shells_test

INSTALLATION = Path(sys.argv[1])
SHARES = """#!/bin/sh
echo '-  /export/homes  rw  ""'
"""


def write(path, text, mode=0o644):
    path = Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(mode)


def setUpModule():
    write("/etc/hosts", "127.0.0.1\tlocalhost server1\n10.1.2.3\tlily\n")
    write("/etc/bootparams", "lily root=localhost:/export/root/lily\nother root=10.9.9.9:/export/root/other\n")
    write("/usr/sbin/share", SHARES, 0o755)
    write("/etc/dfs/dfstab", "share -F nfs -o ro /usr/lilies\n")
    write("/etc/vfstab", "h:/attic - /attic nfs - yes ro\n")
    Path("/data/lake").mkdir(parents=True)
    subprocess.run(["mount", "-t", "tmpfs", "lake", "/data/lake"], check=True)


def tearDownModule():
    subprocess.run(["umount", "/data/lake"], check=False)


class LiveShellsTest:
    shell_name = ""

    @classmethod
    def setUpClass(cls):
        home = Path(tempfile.mkdtemp(prefix="hostadm-shells-"))
        (home / "root").symlink_to(INSTALLATION)
        (home / "files").symlink_to(shells_test.COMPLETIONS)
        for folder in ("config", "data", "work"):
            (home / folder).mkdir()
        write(home / "bin/show", shells_test.SHOW, 0o755)
        cls.shell = shells_test.Shell(cls.shell_name, home)

    @classmethod
    def tearDownClass(cls):
        cls.shell.close()

    def completes(self, line, whole):
        self.assertEqual(self.shell.words(line), whole.split())

    def test_a_client_of_this_server_is_completed_and_no_other(self):
        self.completes("hostadm run client/show hostname=l", "hostadm run client/show hostname=lily")
        self.completes("hostadm check ", "hostadm check lily")
        self.completes("hostadm run client/show hostname=o", "hostadm run client/show hostname=o")

    def test_what_is_mounted_now_and_at_boot_is_completed_for_an_unmount(self):
        self.completes("hostadm run filesystem/unmount mountpt=/data/",
                       "hostadm run filesystem/unmount mountpt=/data/lake")
        self.completes("hostadm run filesystem/unmount mountpt=/at", "hostadm run filesystem/unmount mountpt=/attic")

    def test_what_is_shared_now_and_at_boot_is_completed_for_a_withdrawal(self):
        self.completes("hostadm run filesystem/unshare pathname=/ex",
                       "hostadm run filesystem/unshare pathname=/export/homes")
        self.completes("hostadm run filesystem/unshare pathname=/us",
                       "hostadm run filesystem/unshare pathname=/usr/lilies")


class Bash(LiveShellsTest, unittest.TestCase):
    shell_name = "bash"


class Fish(LiveShellsTest, unittest.TestCase):
    shell_name = "fish"


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
