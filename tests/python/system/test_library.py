# SPDX-License-Identifier: MIT
"""The library's operations that reach for fixed paths, in a throwaway root."""
import os
import pathlib

import pytest
from hostadm.library import Library, LibraryError, SharedNow, TakeEffect

if "HOSTADM_LIBRARY" not in os.environ:
    pytest.skip("a library with sanitizers cannot be loaded into Python", allow_module_level=True)


@pytest.fixture
def library():
    with Library(os.environ["HOSTADM_LIBRARY"], timeout=120) as opened:
        yield opened


def place(path, text, mode=0o755):
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.unlink(missing_ok=True)
    path.write_text(text)
    path.chmod(mode)


def test_shares_are_listed(library):
    place(
        "/usr/sbin/share", '#!/bin/sh\nprintf -- "-  /export  rw=c1  \\"\\"\\n-  /usr/share  ro  \\"\\"\\n"\n'
    )
    assert library.shares() == [SharedNow("/export", "rw=c1"), SharedNow("/usr/share", "ro")]


def test_a_share_is_written_for_the_next_start(library):
    pathlib.Path("/export").mkdir(exist_ok=True)
    place("/etc/dfs/dfstab", "", 0o644)
    library.sharefs("/export", "rw=c1", description="it's mine", takeeffect=TakeEffect.BOOT)
    text = pathlib.Path("/etc/dfs/dfstab").read_text()
    assert "share -F nfs -o rw=c1 -d" in text
    assert text.endswith(" /export\n")
    library.unsharefs("/export", takeeffect=TakeEffect.BOOT)
    assert pathlib.Path("/etc/dfs/dfstab").read_text() == ""


def test_a_mount_that_fails_tells_what_the_command_said(library):
    place("/usr/sbin/mount", "#!/bin/sh\necho no such server\n")
    with pytest.raises(LibraryError, match="no such server") as failed:
        library.mount_filesystem("server:/export", "/mnt", "nfs", vfstab="/etc/vfstab.trial")
    assert (failed.value.result, failed.value.code) == (23, 23)
    assert not os.path.exists("/etc/vfstab.trial")


def test_a_failure_that_ends_the_librarys_process_is_told(library):
    sources = pathlib.Path("/etc/nsswitch.conf").read_text()
    place("/etc/nsswitch.conf", "bootparams: bogus\n", 0o644)
    with pytest.raises(LibraryError) as failed:
        library.clients()
    place("/etc/nsswitch.conf", sources, 0o644)
    assert failed.value.result is None
    assert library.make_boot_name("2.5", "a", "b", "c") == "inetboot.c.a_2.5"
