# SPDX-License-Identifier: MIT
"""Real methods in a throwaway root."""
import concurrent.futures
import os
import pathlib

import hostadm
import pytest

if "HOSTADM_SANDBOX" not in os.environ:
    pytest.exit("run this with in-sandbox", returncode=1)

HOSTS = "127.0.0.1\tlocalhost\n10.1.2.3   c1\n"
SHARE = """#!/bin/sh
tab=/etc/dfs/sharetab
[ $# = 0 ] && { [ -f $tab ] && cat $tab; exit 0; }
while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done
shift $((OPTIND - 1))
echo "-  $1  $opts  \\"\\"" >>$tab
"""


def place(path, text, mode=0o644):
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.unlink(missing_ok=True)
    path.write_text(text)
    path.chmod(mode)


@pytest.fixture(autouse=True)
def tables():
    place("/etc/hosts", HOSTS)
    for path in ("/etc/ethers", "/etc/bootparams", "/etc/vfstab", "/etc/dfs/dfstab", "/etc/dfs/sharetab"):
        pathlib.Path(path).unlink(missing_ok=True)


def test_a_line_is_set_listed_and_removed(server):
    assert server.database.set_host(address="10.1.2.4", hostname="c2", aliases="c2.lab").changed is True
    assert server.database.set_host(address="10.1.2.4", hostname="c2", aliases="c2.lab").changed is False
    assert [(row.address, row.hostname) for row in server.database.list_hosts()][-1] == ("10.1.2.4", "c2")
    assert server.database.remove_host(hostname="c2").changed is True
    assert pathlib.Path("/etc/hosts").read_text() == HOSTS


def test_what_cannot_be_done_is_an_exception(server):
    with pytest.raises(hostadm.Failed, match="holds the name localhost") as failed:
        server.database.remove_host(hostname="localhost")
    assert failed.value.method == "database/remove_host"
    assert failed.value.code >= 100
    with pytest.raises(hostadm.Refused):
        server.database.set_host(address="10.1.2.999", hostname="c2")
    assert pathlib.Path("/etc/hosts").read_text() == HOSTS


@pytest.mark.parametrize(
    "name", ["c2;reboot", "$(touch /tmp/hit)", "c2\nc3", "c2 c3", "-c2", "c\u00e42", "'", "x" * 300]
)
def test_hostile_names_are_refused(server, name):
    with pytest.raises(hostadm.Refused):
        server.database.set_host(address="10.1.2.4", hostname=name)
    assert pathlib.Path("/etc/hosts").read_text() == HOSTS
    assert not os.path.exists("/tmp/hit")


def test_a_preview_shows_the_change_and_makes_none(server):
    preview = server.database.set_host.preview(address="10.1.2.4", hostname="c2")
    assert preview.answer.changed is True
    [change] = [one for one in preview.changes if one.path == "/etc/hosts"]
    assert change.change == "changed"
    assert "+10.1.2.4\tc2\n" in preview.diff
    assert change.before.size == len(HOSTS)
    assert pathlib.Path("/etc/hosts").read_text() == HOSTS
    with pytest.raises(hostadm.Failed) as failed:
        server.preview("database/remove_host", hostname="localhost")
    assert failed.value.answer.changes == ()


def test_lines_that_are_set_at_once_are_all_there(server):
    def add(number):
        return server.database.set_host(address=f"10.1.3.{number}", hostname=f"d{number}").changed

    with concurrent.futures.ThreadPoolExecutor(6) as pool:
        assert all(pool.map(add, range(1, 25)))
    assert {row.hostname for row in server.database.list_hosts()} >= {f"d{number}" for number in range(1, 25)}


def test_a_client_is_previewed_whole(server):
    place("/tree/etc/motd", "welcome\n")
    place("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program")
    place("/usr/sbin/share", SHARE, 0o755)
    preview = server.client.add_diskless.preview(
        hostname="c1",
        address="10.1.2.3",
        ethernet="8:0:20:a:b:c",
        instruction_set="kel4",
        implementation_arch="kel4m",
        os_name="Quorvel",
        os_version="2.5",
        tree=pathlib.Path("/tree"),
        swap_size=1 << 20,
        prepare=False,
    )
    paths = {change.path for change in preview.changes}
    assert {"/etc/bootparams", "/etc/ethers", "/etc/dfs/dfstab"} <= paths
    assert {row.result for row in preview.answer} <= {"done", "unchanged", "warning"}
    assert not os.path.exists("/export/root/c1")


def test_findings_and_the_status_are_objects(server):
    place("/etc/bootparams", "c1 root=nowhere:/export/root/c1\n")
    place("/etc/ethers", "8:0:20:a:b:c c1\n8:0:20:a:b:c c9\n")
    report = server.check()
    assert not report
    assert {finding.severity for finding in report.findings} <= {"error", "warning"}
    assert all(finding.where and finding.what and finding.check for finding in report.findings)
    assert len(server.status().daemons) > 0
    with pytest.raises(hostadm.Refused):
        server.check("no such client")
