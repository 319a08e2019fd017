# SPDX-License-Identifier: MIT
"""The library's own operations, those that need no throwaway root."""
import concurrent.futures
import os

import pytest
from hostadm import TimedOut
from hostadm.library import DaemonState, Library, LibraryError

if "HOSTADM_LIBRARY" not in os.environ:
    pytest.skip("a library with sanitizers cannot be loaded into Python", allow_module_level=True)


@pytest.fixture
def library():
    with Library(os.environ["HOSTADM_LIBRARY"], timeout=120) as opened:
        yield opened


def test_folders_are_made_once(library, tmp_path):
    assert library.mkdir_path(tmp_path / "a/b") is True
    assert library.mkdir_path(tmp_path / "a/b") is False
    assert (tmp_path / "a/b").is_dir()


def test_a_failure_tells_why(library):
    with pytest.raises(LibraryError) as failed:
        library.mkdir_path("/proc/x")
    assert (failed.value.function, failed.value.result, failed.value.code) == ("mkdir_path", 2, 0)
    assert str(failed.value) == "mkdir_path: No such file or directory"


def test_what_the_library_records_is_the_error(library):
    with pytest.raises(LibraryError) as failed:
        library.mount_filesystem("", "/x", method="trial")
    assert (failed.value.result, failed.value.code) == (1, 1)
    assert "the argument fsckdev is missing or empty" in failed.value.message
    with pytest.raises(LibraryError) as other:
        library.mkdir_path("/proc/x")
    assert other.value.steps == ()


def test_tables_are_edited(library, tmp_path):
    table = tmp_path / "vfstab"
    table.write_text("# mine\n")
    library.mntadd(table, "SERVER:/export/home", "-", "/home", "nfs", "-", "yes", "rw")
    library.mntadd(table, "server:/export/home", "-", "/home", "nfs", "-", "yes", "ro")
    assert table.read_text() == "# mine\nserver:/export/home\t-\t/home\tnfs\t-\tyes\tro\n"
    hosts = tmp_path / "hosts"
    library.set_hosts(hosts, "10.0.0.1", "c1")
    assert hosts.read_text() == "10.0.0.1\tc1\n"


def test_bootparams_are_taken_apart_and_edited(library):
    entry = library.parse_bootparams_entry("root=s1:/r swap=s1:/w boottype=:in")
    assert (entry.server, entry.root_path, entry.boottype, entry.dump_path) == ("s1", "/r", "in", "")
    assert library.edit_bootparams_entry("root=s1:/r swap=s1:/w", "swap", None, None) == "root=s1:/r"
    with pytest.raises(LibraryError, match="holds no item of a known key"):
        library.parse_bootparams_entry("nothing")


def test_daemons_are_looked_for(library):
    assert library.check_daemon("no-such-daemon") == (DaemonState.NOT_RUNNING, None)


def test_the_boot_program_has_its_name(library):
    assert library.make_boot_name("2.5", "Quorvel", "kel4", "kel4m") == "inetboot.kel4m.Quorvel_2.5"


@pytest.mark.parametrize(
    "path", ["/tmp/a b", "/tmp/$(reboot)", "/tmp/a;b", "/tmp/'a", "/tmp/a\nb", "/tmp/ä*"]
)
def test_what_a_shell_would_take_apart_is_refused(library, path):
    with pytest.raises(ValueError):
        library.copyfile(path, "/etc/hostname")


def test_a_nul_is_refused(library):
    with pytest.raises(ValueError, match="holds a control character"):
        library.mkdir_path("/tmp/a\0b")


def test_it_goes_on_after_the_library_has_ended_its_process(library):
    library.make_boot_name("2.5", "a", "b", "c")
    library._worker.process.kill()
    library._worker.process.wait()
    with pytest.raises(LibraryError, match="the library ended its process"):
        library.make_boot_name("2.5", "a", "b", "c")
    assert library.make_boot_name("2.5", "a", "b", "c") == "inetboot.c.a_2.5"


def test_a_call_that_takes_too_long_is_ended():
    with Library(os.environ["HOSTADM_LIBRARY"], timeout=60) as library:
        library.make_boot_name("2.5", "a", "b", "c")
        library._worker.conversation.settimeout(0.2)
        os.kill(library._worker.process.pid, 19)
        with pytest.raises(TimedOut):
            library.make_boot_name("2.5", "a", "b", "c")
        assert library.make_boot_name("2.5", "a", "b", "c") == "inetboot.c.a_2.5"


def test_threads_wait_for_each_other(library):
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        names = list(
            pool.map(lambda number: library.make_boot_name("2.5", "os", "i", f"a{number}"), range(100))
        )
    assert names == [f"inetboot.a{number}.os_2.5" for number in range(100)]


def test_a_library_that_is_not_there_is_told():
    with pytest.raises(Exception, match="the library cannot be loaded"):
        Library("/nonexistent/libhostadm.so").make_boot_name("2.5", "a", "b", "c")


def test_no_descriptor_is_left_open():
    before = len(os.listdir("/proc/self/fd"))
    with Library(os.environ["HOSTADM_LIBRARY"]) as library:
        library.make_boot_name("2.5", "a", "b", "c")
    assert len(os.listdir("/proc/self/fd")) == before
