# SPDX-License-Identifier: MIT
"""The library's own operations, below the methods. Needs cffi (Debian: python3-cffi).

    from hostadm.library import Library

    with Library() as library:
        library.mntadd("/etc/vfstab", "server:/export/home", "-", "/home", "nfs", "-", "yes", "rw")
        print(library.shares())

What each does exactly is told by the header hostadm.h, under the same names. An operation that fails raises
LibraryError with what it recorded; a value that a shell would take apart is a ValueError, before anything is
done.

The library runs in a process of its own, since some of its functions end their process; it is started again
when that has happened. What the library keeps between calls is kept as long as the process lives.
"""
from __future__ import annotations

import enum
import errno
import fcntl
import json
import os
import re
import shlex
import socket
import subprocess
import sys
import threading
from collections.abc import Iterable
from dataclasses import dataclass
from typing import Any

from .answers import text_of
from .errors import Error, Step, TimedOut

__all__ = [
    "BootEntry",
    "Client",
    "DaemonState",
    "Library",
    "LibraryError",
    "Probe",
    "SharedNow",
    "TakeEffect",
]

_PATHS = "/usr/sbin:/usr/bin:/sbin:/bin"
# What goes to a shell as it is must be one word to it.
_PLAIN = re.compile(r"[A-Za-z0-9_@%+=:,./~^-]*")
_CONTROL = re.compile(r"[\x00-\x1f\x7f]")


class LibraryError(Error):
    """An operation of the library failed.

    function   its name
    result     what it returned; None: it ended its process
    code       of the last error that it recorded; 0: it recorded none
    message    the text of it, or what the result means
    steps      every error that it recorded
    half_done  whether something is left half done
    """

    def __init__(
        self,
        function: str,
        result: int | None,
        code: int,
        message: str,
        steps: tuple[Step, ...] = (),
        half_done: bool = False,
    ) -> None:
        super().__init__(function, result, code, message, steps, half_done)
        self.function = function
        self.result = result
        self.code = code
        self.message = message
        self.steps = steps
        self.half_done = half_done

    def __str__(self) -> str:
        text = f"{self.function}: {self.message}"
        if self.code:
            text += f" (error {self.code})"
        return text + "\nsomething is left half done" if self.half_done else text


class TakeEffect(str, enum.Enum):
    """Whether a change is made on the running system, in the table for the next start, or both."""

    NOW = "nowonly"
    BOOT = "bootonly"
    BOTH = "nowandboot"


class Probe(enum.IntEnum):
    """What came of asking an RPC service."""

    ANSWERED = 0
    SILENT = 1
    UNKNOWN_HOST = 2
    NO_PORT_MAPPER = 3


class DaemonState(enum.IntEnum):
    """Whether a daemon runs."""

    RUNNING = 1
    NOT_RUNNING = 2
    NO_PROCFS = 3
    DEFUNCT = 4


@dataclass(frozen=True)
class SharedNow:
    """A directory that is shared on the running system."""

    path: str
    options: str


@dataclass(frozen=True)
class Client:
    """A client whose root is served by this host."""

    name: str
    boottype: str
    root_path: str


@dataclass(frozen=True)
class BootEntry:
    """An entry of bootparams, taken apart; empty: the entry says nothing of it."""

    server: str = ""
    exec_server: str = ""
    root_path: str = ""
    swap_path: str = ""
    dump_path: str = ""
    exec_path: str = ""
    kvm_path: str = ""
    boottype: str = ""
    swapsize: str = ""
    install_server: str = ""
    install_path: str = ""
    install_config_server: str = ""
    install_config_path: str = ""


@dataclass(frozen=True)
class _Reply:
    """What came of a call."""

    function: str
    result: Any
    errno: int
    steps: tuple[Step, ...]
    half_done: bool

    def failure(self, meaning: str = "") -> LibraryError:
        code, message = 0, meaning or self._meaning()
        if self.steps:
            code, message = self.steps[-1].code, self.steps[-1].text
        return LibraryError(self.function, self.result, code, message, self.steps, self.half_done)

    def _meaning(self) -> str:
        if self.result == -26:
            return "the table is locked by somebody else"
        number = self.errno if self.result == -1 else abs(self.result or 0)
        return os.strerror(number) if number in errno.errorcode else f"it returned {self.result}"


@dataclass
class _Worker:
    process: subprocess.Popen[bytes]
    conversation: socket.socket
    answer: int
    read: int = 0  # how much of the answer has been looked at

    def recorded(self) -> tuple[tuple[Step, ...], bool]:
        """What was recorded since the last look: errors, and whether something is half done."""
        text = b""
        while chunk := os.pread(self.answer, 1 << 20, self.read + len(text)):
            text += chunk
        self.read += len(text)
        steps: list[Step] = []
        half_done = False
        for line in text.splitlines():
            one = json.loads(line)
            if "error" in one:
                # Code 0 withdraws what was recorded before.
                steps = [*steps, Step(one["error"], text_of(one["text"]).strip())] if one["error"] else []
            elif "mark" in one:
                half_done = one["mark"] == 2
        return tuple(steps), half_done

    def close(self) -> None:
        self.conversation.close()
        try:
            self.process.wait(1)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        os.close(self.answer)


def _path(value: str | os.PathLike[str]) -> str:
    return os.fspath(value)


def _shell(**values: str | None) -> None:
    """Refuses what a shell would take apart."""
    for name, value in values.items():
        if value is not None and not _PLAIN.fullmatch(value):
            raise ValueError(f"{name} cannot be {value!r}: a shell would take it apart")


class Library:
    """The operations of the library. May be used by several threads, whose calls wait for each other.

    path     of libhostadm; None: the system's own
    timeout  seconds that a call may take; None: any time. The library's process is ended after that.
    """

    def __init__(self, path: str | os.PathLike[str] | None = None, timeout: float | None = None) -> None:
        self._library = "libhostadm.so.1" if path is None else os.fspath(path)
        self._timeout = timeout
        self._lock = threading.Lock()
        self._worker: _Worker | None = None

    def __enter__(self) -> Library:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Ends the library's process. A later call starts it again."""
        with self._lock:
            self._end()

    # ---- files ----

    def mkdir_path(self, path: str | os.PathLike[str]) -> bool:
        """Makes a directory and its missing parents, mode 02755. False: it is there already."""
        reply = self._call("mkdir_path", _path(path))
        if reply.result not in (0, -3):
            raise reply.failure()
        return bool(reply.result == 0)

    def mklink(self, target: str, link_path: str | os.PathLike[str]) -> None:
        """Makes a symbolic link, and the directory for it; what is there already stays."""
        self._do("mklink", target, _path(link_path))

    def copyfile(self, destination: str | os.PathLike[str], source: str | os.PathLike[str]) -> None:
        """Copies a file, both paths absolute; the directory for it is made."""
        _shell(destination=_path(destination), source=_path(source))
        self._do("copyfile", _path(destination), _path(source))

    def copytree(self, destination: str | os.PathLike[str], source: str | os.PathLike[str]) -> None:
        """Copies a tree likewise."""
        _shell(destination=_path(destination), source=_path(source))
        self._do("copytree", _path(destination), _path(source))

    # ---- tables ----

    def set_hosts(self, table: str | os.PathLike[str], key: str, value: str) -> None:
        """Sets the line of a key in a table like /etc/hosts or /etc/ethers."""
        self._do("set_hosts", _path(table), key, value)

    def mntadd(
        self,
        vfstab: str | os.PathLike[str],
        resource: str,
        fsckdev: str,
        mountpt: str,
        fstype: str,
        fsckpass: str,
        mountatboot: str,
        mntopts: str,
    ) -> None:
        """Sets the line of a resource in a table of mounts."""
        self._do("mntadd", _path(vfstab), resource, fsckdev, mountpt, fstype, fsckpass, mountatboot, mntopts)

    def parse_bootparams_entry(self, entry: str) -> BootEntry:
        """Takes an entry of bootparams apart."""
        status, parts = self._call("parse_bootparams_entry", entry).result
        # 1 is no failure: an entry may name no server.
        if status == -1:
            raise LibraryError("parse_bootparams_entry", -1, 0, "the entry holds no item of a known key")
        return BootEntry(**parts)

    def edit_bootparams_entry(self, entry: str, key: str, server: str | None, path: str | None) -> str:
        """A copy of an entry with an item set, or removed when server and path are None."""
        reply = self._call("edit_bootparams_entry", entry, key, server, path)
        if reply.result is None:
            raise reply.failure("memory is out")
        return str(reply.result)

    def clients(self) -> list[Client]:
        """The clients whose root is served by this host (do_bootparams)."""
        # The list lives as long as its process and only grows: a fresh process has a fresh one.
        with self._lock:
            self._end()
            reply = self._call_locked("do_bootparams", ())
        return [Client(*one) for one in reply.result]

    # ---- mounts and shares ----

    def mount_filesystem(
        self,
        resource: str,
        mountpt: str,
        fstype: str | None = None,
        *,
        fsckdev: str | None = None,
        fsckpass: str | None = None,
        mountatboot: str | None = None,
        mntopts: str | None = None,
        takeeffect: TakeEffect = TakeEffect.BOTH,
        vfstab: str | None = None,
        method: str = "mount",
    ) -> None:
        """Mounts a file system, writes its line into the table of mounts, or both."""
        _shell(resource=resource, mountpt=mountpt, fstype=fstype, fsckdev=fsckdev, mntopts=mntopts)
        self._do(
            "mount_filesystem",
            *(resource, fsckdev, mountpt, fstype, fsckpass, mountatboot, mntopts),
            *(TakeEffect(takeeffect).value, vfstab, method),
        )

    def unmount_filesystem(
        self,
        mountpt: str,
        *,
        takeeffect: TakeEffect = TakeEffect.BOTH,
        vfstab: str | None = None,
        method: str = "unmount",
    ) -> None:
        """Unmounts a file system, removes its line, or both."""
        _shell(mountpt=mountpt)
        self._do("unmount_filesystem", mountpt, TakeEffect(takeeffect).value, vfstab, method)

    def shares(self) -> list[SharedNow]:
        """What is shared now (get_sharefs_ents)."""
        return [SharedNow(*one) for one in self._call("get_sharefs_ents").result]

    def sharefs(
        self,
        pathname: str,
        options: str | None = None,
        *,
        description: str | None = None,
        takeeffect: TakeEffect = TakeEffect.BOTH,
        force: bool = False,
        method: str = "share",
    ) -> None:
        """Shares a directory over NFS, writes its line into /etc/dfs/dfstab, or both."""
        _shell(pathname=pathname, options=options)
        described = None if description is None else shlex.quote(description)
        self._do(
            "sharefs", "nfs", options, described, pathname, TakeEffect(takeeffect).value, method, int(force)
        )

    def unsharefs(
        self,
        pathname: str,
        client: str | None = None,
        *,
        takeeffect: TakeEffect = TakeEffect.BOTH,
        method: str = "unshare",
    ) -> None:
        """Withdraws a share, removes its line, or both."""
        _shell(pathname=pathname, client=client)
        self._do("unsharefs", "nfs", pathname, client, TakeEffect(takeeffect).value, method)

    # ---- daemons ----

    def check_daemon(self, name: str) -> tuple[DaemonState, int | None]:
        """Whether a daemon runs, and as which process."""
        state, pid = self._call("check_daemon", name).result
        return DaemonState(state), pid or None

    def check_rarpd(self, interface: str) -> DaemonState:
        """Whether a reverse-address daemon serves a network interface."""
        return DaemonState(self._call("check_rarpd", interface).result)

    def start_daemon(self, path: str | os.PathLike[str], arguments: Iterable[str] = ()) -> None:
        """Starts a daemon in the background; whether it stays up is not looked at."""
        _shell(path=_path(path))
        self._do("start_daemon", _path(path), shlex.join(arguments) or None)

    def rpc_ping(self, host: str, program: int, version: int, timeout: int = 5) -> Probe:
        """Asks a version of an RPC program on a host for an answer over UDP."""
        reply = self._call("rpc_ping", host, program, version, timeout)
        if reply.result not in iter(Probe):
            raise reply.failure("it needs a host, a program and a version, and a process for the probe")
        return Probe(reply.result)

    # ---- clients ----

    def make_boot_name(self, os_version: str, os_name: str, inst_set: str, impl_arch: str) -> str:
        """The file name of the boot program that a client of that identity loads."""
        return str(self._call("make_boot_name", os_version, os_name, inst_set, impl_arch).result)

    def create_clnt_root(
        self, root: str | os.PathLike[str], os_name: str, os_version: str, sources: Iterable[str] = ()
    ) -> None:
        """Fills a client's root from spool directories of packages, or a 4.x release's ready trees."""
        sources = list(sources)
        _shell(root=_path(root), os_name=os_name, os_version=os_version)
        for source in sources:
            _shell(source=source)
        with self._lock:
            reply = self._call_locked(
                "create_clnt_root", (_path(root), ["", os_name, os_version, "", ""], sources)
            )
            self._call_locked("cleanup", (_path(root),))
        if reply.result != 0:
            raise reply.failure()

    def apply_patches(self, client_root: str | os.PathLike[str]) -> None:
        """Applies the stored patches to a client's root."""
        _shell(client_root=_path(client_root))
        self._do("apply_patches", _path(client_root))

    def enable_chart(self, client_root: str | os.PathLike[str]) -> None:
        """Switches the cached mounts of a client on."""
        _shell(client_root=_path(client_root))
        self._do("enable_chart", _path(client_root))

    def disable_chart(self, client_root: str | os.PathLike[str]) -> None:
        """Switches them off."""
        _shell(client_root=_path(client_root))
        self._do("disable_chart", _path(client_root))

    # ---- the library's process ----

    def _do(self, function: str, *arguments: Any) -> None:
        reply = self._call(function, *arguments)
        if reply.result != 0:
            raise reply.failure()

    def _call(self, function: str, *arguments: Any) -> _Reply:
        with self._lock:
            return self._call_locked(function, arguments)

    def _call_locked(self, function: str, arguments: Iterable[Any]) -> _Reply:
        arguments = list(arguments)
        for one in arguments:
            if isinstance(one, str) and _CONTROL.search(one):
                raise ValueError(f"{function}: {one[:60]!r} holds a control character")
        worker = self._worker or self._start()
        answer = self._ask(worker, {"call": function, "arguments": arguments})
        steps, half_done = worker.recorded()
        if answer is None:
            self._end()
            raise _Reply(function, None, 0, steps, half_done).failure("the library ended its process")
        return _Reply(function, answer["result"], answer["errno"], steps, half_done)

    def _ask(self, worker: _Worker, message: Any) -> Any:
        """The reply; None: the process has ended."""
        try:
            if message is not None:
                worker.conversation.sendall(json.dumps(message).encode("ascii") + b"\n")
            reply = b""
            while not reply.endswith(b"\n"):
                chunk = worker.conversation.recv(1 << 16)
                if not chunk:
                    return None
                reply += chunk
            return json.loads(reply)
        except ConnectionError:
            return None
        except BaseException as error:
            # An answer that comes later must not be taken for that of another call.
            worker.process.kill()
            self._end()
            if isinstance(error, TimeoutError):
                raise TimedOut(f"the library did not answer within {self._timeout:g} seconds") from None
            raise

    def _start(self) -> _Worker:
        script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "_worker.py")
        request, answer = os.memfd_create("hostadm-request"), os.memfd_create("hostadm-answer")
        os.write(request, b'{"hostadm": 1, "method": "library/call", "arguments": {}}')
        fcntl.fcntl(answer, fcntl.F_SETFL, os.O_APPEND)
        ours, theirs = socket.socketpair()
        try:
            process = subprocess.Popen(
                [sys.executable, script, self._library, str(request), str(answer), str(theirs.fileno())],
                stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL,
                pass_fds=(request, answer, theirs.fileno()),
                env={**os.environ, "PATH": _PATHS},
            )
        except OSError as error:
            ours.close()
            os.close(answer)
            raise Error(f"{sys.executable} cannot be started: {error.strerror}") from error
        finally:
            os.close(request)
            theirs.close()
        ours.settimeout(self._timeout)
        self._worker = _Worker(process, ours, answer)
        ready = self._ask(self._worker, None)
        if ready is None or "defect" in ready:
            self._end()
            raise Error(
                ready["defect"]
                if ready
                else "the library's process cannot be started; is python3-cffi installed?"
            )
        return self._worker

    def _end(self) -> None:
        worker, self._worker = self._worker, None
        if worker is not None:
            worker.close()
