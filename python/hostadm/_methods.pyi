# SPDX-License-Identifier: MIT
# What type checkers know of the methods. Written by make-stubs; a test says when it is old.
from collections.abc import Iterable, Iterator
from ipaddress import IPv4Address
from typing import Literal

from ._server import MethodClass
from .answers import Answer, Fields, Preview
from .description import Description, Text

class _CacheletDisableCacheRow(Fields):
    @property
    def mountpt(self) -> str: ...
    @property
    def options_before(self) -> str: ...
    @property
    def options(self) -> str: ...

class _CacheletDisableCacheAnswer(Answer):
    rows: tuple[_CacheletDisableCacheRow, ...]
    def __iter__(self) -> Iterator[_CacheletDisableCacheRow]: ...
    @property
    def result(self) -> str: ...
    @property
    def cache_directory(self) -> str: ...

class _CacheletDisableCache:
    """let a client mount its file systems without its local cache; mount options behind "disconnectable" are
    dropped with it"""

    description: Description
    def __call__(
        self,
        *,
        root: Text,
    ) -> _CacheletDisableCacheAnswer:
        """let a client mount its file systems without its local cache; mount options behind "disconnectable"
        are dropped with it"""
    def preview(
        self,
        *,
        root: Text,
    ) -> Preview[_CacheletDisableCacheAnswer]:
        """What the run would answer, change and call."""

class _CacheletEnableCacheRow(Fields):
    @property
    def mountpt(self) -> str: ...
    @property
    def options(self) -> str: ...
    @property
    def cached(self) -> str: ...

class _CacheletEnableCacheAnswer(Answer):
    rows: tuple[_CacheletEnableCacheRow, ...]
    def __iter__(self) -> Iterator[_CacheletEnableCacheRow]: ...
    @property
    def result(self) -> str: ...

class _CacheletEnableCache:
    """let a client mount its root, /usr and /usr/openwin through its local cache"""

    description: Description
    def __call__(
        self,
        *,
        root: Text,
    ) -> _CacheletEnableCacheAnswer:
        """let a client mount its root, /usr and /usr/openwin through its local cache"""
    def preview(
        self,
        *,
        root: Text,
    ) -> Preview[_CacheletEnableCacheAnswer]:
        """What the run would answer, change and call."""

class _CacheletSetDiskProfileAnswer(Answer):
    @property
    def result(self) -> str: ...
    @property
    def pathname(self) -> str: ...

class _CacheletSetDiskProfile:
    """give a client the profile by which its automatic installation lays out its disk"""

    description: Description
    def __call__(
        self,
        *,
        root: Text,
        profile_set: str,
        profile: str,
    ) -> _CacheletSetDiskProfileAnswer:
        """give a client the profile by which its automatic installation lays out its disk"""
    def preview(
        self,
        *,
        root: Text,
        profile_set: str,
        profile: str,
    ) -> Preview[_CacheletSetDiskProfileAnswer]:
        """What the run would answer, change and call."""

class _ClientAddCacheletRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ClientAddCacheletAnswer(Answer):
    rows: tuple[_ClientAddCacheletRow, ...]
    def __iter__(self) -> Iterator[_ClientAddCacheletRow]: ...
    @property
    def root(self) -> str: ...

class _ClientAddCachelet:
    """make a diskless client a cache-only one: this server is prepared for it, its mounts go through its
    cache, and its automatic installation gets a disk profile"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
        profile_set: str,
        profile: str,
        root: Text | None = ...,
        setup: bool | Literal["yes", "no"] | None = ...,
    ) -> _ClientAddCacheletAnswer:
        """make a diskless client a cache-only one: this server is prepared for it, its mounts go through its
        cache, and its automatic installation gets a disk profile"""
    def preview(
        self,
        *,
        hostname: str,
        profile_set: str,
        profile: str,
        root: Text | None = ...,
        setup: bool | Literal["yes", "no"] | None = ...,
    ) -> Preview[_ClientAddCacheletAnswer]:
        """What the run would answer, change and call."""

class _ClientAddDatalessRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ClientAddDatalessAnswer(Answer):
    rows: tuple[_ClientAddDatalessRow, ...]
    def __iter__(self) -> Iterator[_ClientAddDatalessRow]: ...
    @property
    def pathname(self) -> str: ...

class _ClientAddDataless:
    """let a client with root and swap on its own disk have the rest of its system from this server"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
        address: str | IPv4Address,
        ethernet: str,
        instruction_set: str,
        os_name: str,
        os_version: str,
        execpath: Text | None = ...,
        server: str | None = ...,
    ) -> _ClientAddDatalessAnswer:
        """let a client with root and swap on its own disk have the rest of its system from this server"""
    def preview(
        self,
        *,
        hostname: str,
        address: str | IPv4Address,
        ethernet: str,
        instruction_set: str,
        os_name: str,
        os_version: str,
        execpath: Text | None = ...,
        server: str | None = ...,
    ) -> Preview[_ClientAddDatalessAnswer]:
        """What the run would answer, change and call."""

class _ClientAddDisklessRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ClientAddDisklessAnswer(Answer):
    rows: tuple[_ClientAddDisklessRow, ...]
    def __iter__(self) -> Iterator[_ClientAddDisklessRow]: ...
    @property
    def pathname(self) -> str: ...
    @property
    def boot_program(self) -> str: ...
    @property
    def install_hierarchy(self) -> str: ...
    @property
    def rootpath(self) -> str: ...

class _ClientAddDiskless:
    """let a diskless client boot from this server: root, swap, share, boot program, tables, daemons"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
        address: str | IPv4Address,
        ethernet: str,
        instruction_set: str,
        implementation_arch: str,
        os_name: str,
        os_version: str,
        tree: Text | None = ...,
        packages: Text | None = ...,
        install_hierarchy: Text | None = ...,
        boot_program: Text | None = ...,
        root: Literal["new", "adopt"] | None = ...,
        boot: Literal["tftp", "rpl", "pc"] | None = ...,
        kernel_words: str | Iterable[str] | None = ...,
        nfs: Literal["3", "4"] | None = ...,
        rootpath: Text | None = ...,
        swappath: Text | None = ...,
        swap_size: int | str | None = ...,
        dumppath: Text | None = ...,
        prepare: bool | Literal["yes", "no"] | None = ...,
        server: str | None = ...,
    ) -> _ClientAddDisklessAnswer:
        """let a diskless client boot from this server: root, swap, share, boot program, tables, daemons"""
    def preview(
        self,
        *,
        hostname: str,
        address: str | IPv4Address,
        ethernet: str,
        instruction_set: str,
        implementation_arch: str,
        os_name: str,
        os_version: str,
        tree: Text | None = ...,
        packages: Text | None = ...,
        install_hierarchy: Text | None = ...,
        boot_program: Text | None = ...,
        root: Literal["new", "adopt"] | None = ...,
        boot: Literal["tftp", "rpl", "pc"] | None = ...,
        kernel_words: str | Iterable[str] | None = ...,
        nfs: Literal["3", "4"] | None = ...,
        rootpath: Text | None = ...,
        swappath: Text | None = ...,
        swap_size: int | str | None = ...,
        dumppath: Text | None = ...,
        prepare: bool | Literal["yes", "no"] | None = ...,
        server: str | None = ...,
    ) -> Preview[_ClientAddDisklessAnswer]:
        """What the run would answer, change and call."""

class _ClientAddInstallRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ClientAddInstallAnswer(Answer):
    rows: tuple[_ClientAddInstallRow, ...]
    def __iter__(self) -> Iterator[_ClientAddInstallRow]: ...
    @property
    def pathname(self) -> str: ...
    @property
    def boot_program(self) -> str: ...

class _ClientAddInstall:
    """let a client boot from this server to have an operating system installed on its own disk"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
        address: str | IPv4Address,
        ethernet: str,
        instruction_set: str,
        implementation_arch: str,
        os_name: str,
        os_version: str,
        install_hierarchy: Text,
        install_config: Text | None = ...,
        boot_program: Text | None = ...,
        share_options: str | Iterable[str] | None = ...,
        server: str | None = ...,
    ) -> _ClientAddInstallAnswer:
        """let a client boot from this server to have an operating system installed on its own disk"""
    def preview(
        self,
        *,
        hostname: str,
        address: str | IPv4Address,
        ethernet: str,
        instruction_set: str,
        implementation_arch: str,
        os_name: str,
        os_version: str,
        install_hierarchy: Text,
        install_config: Text | None = ...,
        boot_program: Text | None = ...,
        share_options: str | Iterable[str] | None = ...,
        server: str | None = ...,
    ) -> Preview[_ClientAddInstallAnswer]:
        """What the run would answer, change and call."""

class _ClientChangeRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ClientChangeAnswer(Answer):
    rows: tuple[_ClientChangeRow, ...]
    def __iter__(self) -> Iterator[_ClientChangeRow]: ...

class _ClientChange:
    """give a client another name, address, Ethernet address, server name, boot program, swap size or share
    options"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
        new_hostname: str | None = ...,
        address: str | IPv4Address | None = ...,
        ethernet: str | None = ...,
        server: str | None = ...,
        boot_program: Text | None = ...,
        swap_size: int | str | None = ...,
        share_options: str | Iterable[str] | None = ...,
    ) -> _ClientChangeAnswer:
        """give a client another name, address, Ethernet address, server name, boot program, swap size or
        share options"""
    def preview(
        self,
        *,
        hostname: str,
        new_hostname: str | None = ...,
        address: str | IPv4Address | None = ...,
        ethernet: str | None = ...,
        server: str | None = ...,
        boot_program: Text | None = ...,
        swap_size: int | str | None = ...,
        share_options: str | Iterable[str] | None = ...,
    ) -> Preview[_ClientChangeAnswer]:
        """What the run would answer, change and call."""

class _ClientCopyRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ClientCopyAnswer(Answer):
    rows: tuple[_ClientCopyRow, ...]
    def __iter__(self) -> Iterator[_ClientCopyRow]: ...
    @property
    def pathname(self) -> str: ...
    @property
    def boot_program(self) -> str: ...

class _ClientCopy:
    """add a client like another one: what it boots, its shares' options, its swap size, its root"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
        new_hostname: str,
        address: str | IPv4Address,
        ethernet: str,
    ) -> _ClientCopyAnswer:
        """add a client like another one: what it boots, its shares' options, its swap size, its root"""
    def preview(
        self,
        *,
        hostname: str,
        new_hostname: str,
        address: str | IPv4Address,
        ethernet: str,
    ) -> Preview[_ClientCopyAnswer]:
        """What the run would answer, change and call."""

class _ClientDisableRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ClientDisableAnswer(Answer):
    rows: tuple[_ClientDisableRow, ...]
    def __iter__(self) -> Iterator[_ClientDisableRow]: ...

class _ClientDisable:
    """keep a client from booting; nothing of it is deleted"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
    ) -> _ClientDisableAnswer:
        """keep a client from booting; nothing of it is deleted"""
    def preview(
        self,
        *,
        hostname: str,
    ) -> Preview[_ClientDisableAnswer]:
        """What the run would answer, change and call."""

class _ClientEnableRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ClientEnableAnswer(Answer):
    rows: tuple[_ClientEnableRow, ...]
    def __iter__(self) -> Iterator[_ClientEnableRow]: ...

class _ClientEnable:
    """let a client boot again that was disabled"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
    ) -> _ClientEnableAnswer:
        """let a client boot again that was disabled"""
    def preview(
        self,
        *,
        hostname: str,
    ) -> Preview[_ClientEnableAnswer]:
        """What the run would answer, change and call."""

class _ClientListRow(Fields):
    @property
    def name(self) -> str: ...
    @property
    def kind(self) -> str: ...
    @property
    def address(self) -> str: ...
    @property
    def ethernet(self) -> str: ...
    @property
    def architecture(self) -> str: ...
    @property
    def root(self) -> str: ...
    @property
    def boot_links(self) -> str: ...
    @property
    def shared(self) -> str: ...
    @property
    def disabled(self) -> str: ...

class _ClientListAnswer(Answer):
    rows: tuple[_ClientListRow, ...]
    def __iter__(self) -> Iterator[_ClientListRow]: ...

class _ClientList:
    """the clients that boot from this server"""

    description: Description
    def __call__(
        self,
    ) -> _ClientListAnswer:
        """the clients that boot from this server"""
    def preview(
        self,
    ) -> Preview[_ClientListAnswer]:
        """What the run would answer, change and call."""

class _ClientListNamesRow(Fields):
    @property
    def name(self) -> str: ...

class _ClientListNamesAnswer(Answer):
    rows: tuple[_ClientListNamesRow, ...]
    def __iter__(self) -> Iterator[_ClientListNamesRow]: ...

class _ClientListNames:
    """the names alone of the clients that client/list lists, for programs and shells that cannot wait"""

    description: Description
    def __call__(
        self,
    ) -> _ClientListNamesAnswer:
        """the names alone of the clients that client/list lists, for programs and shells that cannot wait"""
    def preview(
        self,
    ) -> Preview[_ClientListNamesAnswer]:
        """What the run would answer, change and call."""

class _ClientRemoveRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ClientRemoveAnswer(Answer):
    rows: tuple[_ClientRemoveRow, ...]
    def __iter__(self) -> Iterator[_ClientRemoveRow]: ...
    @property
    def pathname(self) -> str: ...

class _ClientRemove:
    """take a client off this server: links, tables, shares, swap; its root and dump only with purge=yes"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
        purge: bool | Literal["yes", "no"] | None = ...,
    ) -> _ClientRemoveAnswer:
        """take a client off this server: links, tables, shares, swap; its root and dump only with
        purge=yes"""
    def preview(
        self,
        *,
        hostname: str,
        purge: bool | Literal["yes", "no"] | None = ...,
    ) -> Preview[_ClientRemoveAnswer]:
        """What the run would answer, change and call."""

class _ClientRemoveCacheletRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ClientRemoveCacheletAnswer(Answer):
    rows: tuple[_ClientRemoveCacheletRow, ...]
    def __iter__(self) -> Iterator[_ClientRemoveCacheletRow]: ...
    @property
    def root(self) -> str: ...

class _ClientRemoveCachelet:
    """make a cache-only client a diskless one again: its mounts go without a cache, and it has no disk
    profile"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
    ) -> _ClientRemoveCacheletAnswer:
        """make a cache-only client a diskless one again: its mounts go without a cache, and it has no disk
        profile"""
    def preview(
        self,
        *,
        hostname: str,
    ) -> Preview[_ClientRemoveCacheletAnswer]:
        """What the run would answer, change and call."""

class _ClientShowRow(Fields):
    @property
    def link(self) -> str: ...
    @property
    def target(self) -> str: ...
    @property
    def whole(self) -> str: ...

class _ClientShowAnswer(Answer):
    rows: tuple[_ClientShowRow, ...]
    def __iter__(self) -> Iterator[_ClientShowRow]: ...
    @property
    def name(self) -> str: ...
    @property
    def kind(self) -> str: ...
    @property
    def address(self) -> str: ...
    @property
    def ethernet(self) -> str: ...
    @property
    def architecture(self) -> str: ...
    @property
    def boot_links(self) -> str: ...
    @property
    def boot_program(self) -> str: ...
    @property
    def root(self) -> str: ...
    @property
    def root_exists(self) -> str: ...
    @property
    def share(self) -> str: ...
    @property
    def share_at_boot(self) -> str: ...
    @property
    def swap(self) -> str: ...
    @property
    def swap_size(self) -> str: ...
    @property
    def swapsize(self) -> str: ...
    @property
    def dump(self) -> str: ...
    @property
    def install(self) -> str: ...
    @property
    def exec(self) -> str: ...
    @property
    def boottype(self) -> str: ...
    @property
    def bootparams(self) -> str: ...
    @property
    def disabled(self) -> str: ...

class _ClientShow:
    """all that this server knows of one client"""

    description: Description
    def __call__(
        self,
        *,
        hostname: str,
    ) -> _ClientShowAnswer:
        """all that this server knows of one client"""
    def preview(
        self,
        *,
        hostname: str,
    ) -> Preview[_ClientShowAnswer]:
        """What the run would answer, change and call."""

class _DatabaseListBootparamsRow(Fields):
    @property
    def hostname(self) -> str: ...
    @property
    def filesystems(self) -> str: ...
    @property
    def source(self) -> str: ...

class _DatabaseListBootparamsAnswer(Answer):
    rows: tuple[_DatabaseListBootparamsRow, ...]
    def __iter__(self) -> Iterator[_DatabaseListBootparamsRow]: ...
    @property
    def not_seen(self) -> str: ...

class _DatabaseListBootparams:
    """list the boot parameters of every client"""

    description: Description
    def __call__(
        self,
        *,
        nameservice: Literal["ufs", "nis", "nis_plus", "all"] | None = ...,
    ) -> _DatabaseListBootparamsAnswer:
        """list the boot parameters of every client"""
    def preview(
        self,
        *,
        nameservice: Literal["ufs", "nis", "nis_plus", "all"] | None = ...,
    ) -> Preview[_DatabaseListBootparamsAnswer]:
        """What the run would answer, change and call."""

class _DatabaseListEthersRow(Fields):
    @property
    def ethernet(self) -> str: ...
    @property
    def hostname(self) -> str: ...

class _DatabaseListEthersAnswer(Answer):
    rows: tuple[_DatabaseListEthersRow, ...]
    def __iter__(self) -> Iterator[_DatabaseListEthersRow]: ...

class _DatabaseListEthers:
    """list the table of Ethernet addresses"""

    description: Description
    def __call__(
        self,
        *,
        table: Text | None = ...,
    ) -> _DatabaseListEthersAnswer:
        """list the table of Ethernet addresses"""
    def preview(
        self,
        *,
        table: Text | None = ...,
    ) -> Preview[_DatabaseListEthersAnswer]:
        """What the run would answer, change and call."""

class _DatabaseListHostsRow(Fields):
    @property
    def address(self) -> str: ...
    @property
    def hostname(self) -> str: ...
    @property
    def aliases(self) -> str: ...

class _DatabaseListHostsAnswer(Answer):
    rows: tuple[_DatabaseListHostsRow, ...]
    def __iter__(self) -> Iterator[_DatabaseListHostsRow]: ...

class _DatabaseListHosts:
    """list the hosts table"""

    description: Description
    def __call__(
        self,
        *,
        table: Text | None = ...,
    ) -> _DatabaseListHostsAnswer:
        """list the hosts table"""
    def preview(
        self,
        *,
        table: Text | None = ...,
    ) -> Preview[_DatabaseListHostsAnswer]:
        """What the run would answer, change and call."""

class _DatabaseRemoveBootparams:
    """remove a client's boot parameters, all of them or one"""

    description: Description
    def __call__(
        self,
        *,
        client: str,
        key: str | None = ...,
        nameservice: Literal["ufs", "nis", "nis_plus"] | None = ...,
    ) -> Answer:
        """remove a client's boot parameters, all of them or one"""
    def preview(
        self,
        *,
        client: str,
        key: str | None = ...,
        nameservice: Literal["ufs", "nis", "nis_plus"] | None = ...,
    ) -> Preview[Answer]:
        """What the run would answer, change and call."""

class _DatabaseRemoveEtherAnswer(Answer):
    @property
    def removed(self) -> str: ...

class _DatabaseRemoveEther:
    """remove an Ethernet address, or those of a host, from their table; nobody answers it any more when it
    asks for its address"""

    description: Description
    def __call__(
        self,
        *,
        ethernet: str | None = ...,
        hostname: str | None = ...,
        table: Text | None = ...,
    ) -> _DatabaseRemoveEtherAnswer:
        """remove an Ethernet address, or those of a host, from their table; nobody answers it any more when
        it asks for its address"""
    def preview(
        self,
        *,
        ethernet: str | None = ...,
        hostname: str | None = ...,
        table: Text | None = ...,
    ) -> Preview[_DatabaseRemoveEtherAnswer]:
        """What the run would answer, change and call."""

class _DatabaseRemoveHostAnswer(Answer):
    @property
    def removed(self) -> str: ...

class _DatabaseRemoveHost:
    """remove the line of an address, or of a name, from the hosts table"""

    description: Description
    def __call__(
        self,
        *,
        address: str | IPv4Address | None = ...,
        hostname: str | None = ...,
        table: Text | None = ...,
    ) -> _DatabaseRemoveHostAnswer:
        """remove the line of an address, or of a name, from the hosts table"""
    def preview(
        self,
        *,
        address: str | IPv4Address | None = ...,
        hostname: str | None = ...,
        table: Text | None = ...,
    ) -> Preview[_DatabaseRemoveHostAnswer]:
        """What the run would answer, change and call."""

class _DatabaseSetBootparams:
    """set boot parameters of a client: one as key, server and path, or several as items"""

    description: Description
    def __call__(
        self,
        *,
        client: str,
        key: str | None = ...,
        server: str | None = ...,
        path: str | None = ...,
        items: str | None = ...,
        nameservice: Literal["ufs", "nis", "nis_plus"] | None = ...,
    ) -> Answer:
        """set boot parameters of a client: one as key, server and path, or several as items"""
    def preview(
        self,
        *,
        client: str,
        key: str | None = ...,
        server: str | None = ...,
        path: str | None = ...,
        items: str | None = ...,
        nameservice: Literal["ufs", "nis", "nis_plus"] | None = ...,
    ) -> Preview[Answer]:
        """What the run would answer, change and call."""

class _DatabaseSetEtherAnswer(Answer):
    @property
    def replaced(self) -> str: ...

class _DatabaseSetEther:
    """tell whose an Ethernet address is; the line of that address is replaced"""

    description: Description
    def __call__(
        self,
        *,
        ethernet: str,
        hostname: str,
        table: Text | None = ...,
    ) -> _DatabaseSetEtherAnswer:
        """tell whose an Ethernet address is; the line of that address is replaced"""
    def preview(
        self,
        *,
        ethernet: str,
        hostname: str,
        table: Text | None = ...,
    ) -> Preview[_DatabaseSetEtherAnswer]:
        """What the run would answer, change and call."""

class _DatabaseSetHostAnswer(Answer):
    @property
    def replaced(self) -> str: ...

class _DatabaseSetHost:
    """give an address a name in the hosts table; the line of that address is replaced"""

    description: Description
    def __call__(
        self,
        *,
        address: str | IPv4Address,
        hostname: str,
        aliases: str | Iterable[str] | None = ...,
        table: Text | None = ...,
    ) -> _DatabaseSetHostAnswer:
        """give an address a name in the hosts table; the line of that address is replaced"""
    def preview(
        self,
        *,
        address: str | IPv4Address,
        hostname: str,
        aliases: str | Iterable[str] | None = ...,
        table: Text | None = ...,
    ) -> Preview[_DatabaseSetHostAnswer]:
        """What the run would answer, change and call."""

class _FilesystemAddMountEntry:
    """add a line to a mount table, or replace the line of the same device; nothing is mounted"""

    description: Description
    def __call__(
        self,
        *,
        resource: str,
        fsckdev: str | None = ...,
        mountpt: Text | None = ...,
        fstype: str | None = ...,
        fsckpass: int | str | None = ...,
        mountatboot: bool | Literal["yes", "no"] | None = ...,
        mntopts: str | Iterable[str] | None = ...,
        freq: int | str | None = ...,
        layout: Literal["vfstab", "fstab", "4x"] | None = ...,
        vfstab: Text | None = ...,
    ) -> Answer:
        """add a line to a mount table, or replace the line of the same device; nothing is mounted"""
    def preview(
        self,
        *,
        resource: str,
        fsckdev: str | None = ...,
        mountpt: Text | None = ...,
        fstype: str | None = ...,
        fsckpass: int | str | None = ...,
        mountatboot: bool | Literal["yes", "no"] | None = ...,
        mntopts: str | Iterable[str] | None = ...,
        freq: int | str | None = ...,
        layout: Literal["vfstab", "fstab", "4x"] | None = ...,
        vfstab: Text | None = ...,
    ) -> Preview[Answer]:
        """What the run would answer, change and call."""

class _FilesystemListMountEntriesRow(Fields):
    @property
    def resource(self) -> str: ...
    @property
    def fsckdev(self) -> str: ...
    @property
    def mountpt(self) -> str: ...
    @property
    def fstype(self) -> str: ...
    @property
    def fsckpass(self) -> str: ...
    @property
    def mountatboot(self) -> str: ...
    @property
    def mntopts(self) -> str: ...
    @property
    def freq(self) -> str: ...

class _FilesystemListMountEntriesAnswer(Answer):
    rows: tuple[_FilesystemListMountEntriesRow, ...]
    def __iter__(self) -> Iterator[_FilesystemListMountEntriesRow]: ...

class _FilesystemListMountEntries:
    """list the lines of a mount table"""

    description: Description
    def __call__(
        self,
        *,
        layout: Literal["vfstab", "fstab", "4x"] | None = ...,
        vfstab: Text | None = ...,
    ) -> _FilesystemListMountEntriesAnswer:
        """list the lines of a mount table"""
    def preview(
        self,
        *,
        layout: Literal["vfstab", "fstab", "4x"] | None = ...,
        vfstab: Text | None = ...,
    ) -> Preview[_FilesystemListMountEntriesAnswer]:
        """What the run would answer, change and call."""

class _FilesystemListMountsRow(Fields):
    @property
    def resource(self) -> str: ...
    @property
    def mountpt(self) -> str: ...
    @property
    def fstype(self) -> str: ...
    @property
    def access(self) -> str: ...

class _FilesystemListMountsAnswer(Answer):
    rows: tuple[_FilesystemListMountsRow, ...]
    def __iter__(self) -> Iterator[_FilesystemListMountsRow]: ...

class _FilesystemListMounts:
    """list what is mounted now"""

    description: Description
    def __call__(
        self,
        *,
        system: bool | Literal["yes", "no"] | None = ...,
    ) -> _FilesystemListMountsAnswer:
        """list what is mounted now"""
    def preview(
        self,
        *,
        system: bool | Literal["yes", "no"] | None = ...,
    ) -> Preview[_FilesystemListMountsAnswer]:
        """What the run would answer, change and call."""

class _FilesystemListShareEntriesRow(Fields):
    @property
    def path(self) -> str: ...
    @property
    def options(self) -> str: ...
    @property
    def description(self) -> str: ...
    @property
    def at_boot(self) -> str: ...

class _FilesystemListShareEntriesAnswer(Answer):
    rows: tuple[_FilesystemListShareEntriesRow, ...]
    def __iter__(self) -> Iterator[_FilesystemListShareEntriesRow]: ...

class _FilesystemListShareEntries:
    """list the table of shares that are made at boot, /etc/dfs/dfstab"""

    description: Description
    def __call__(
        self,
    ) -> _FilesystemListShareEntriesAnswer:
        """list the table of shares that are made at boot, /etc/dfs/dfstab"""
    def preview(
        self,
    ) -> Preview[_FilesystemListShareEntriesAnswer]:
        """What the run would answer, change and call."""

class _FilesystemListSharesRow(Fields):
    @property
    def path(self) -> str: ...
    @property
    def options(self) -> str: ...

class _FilesystemListSharesAnswer(Answer):
    rows: tuple[_FilesystemListSharesRow, ...]
    def __iter__(self) -> Iterator[_FilesystemListSharesRow]: ...

class _FilesystemListShares:
    """list the directories that are shared now"""

    description: Description
    def __call__(
        self,
    ) -> _FilesystemListSharesAnswer:
        """list the directories that are shared now"""
    def preview(
        self,
    ) -> Preview[_FilesystemListSharesAnswer]:
        """What the run would answer, change and call."""

class _FilesystemMount:
    """mount a file system now, at boot, or both"""

    description: Description
    def __call__(
        self,
        *,
        resource: str,
        mountpt: Text,
        fstype: str | None = ...,
        fsckdev: str | None = ...,
        fsckpass: str | None = ...,
        mountatboot: bool | Literal["yes", "no"] | None = ...,
        mntopts: str | Iterable[str] | None = ...,
        takeeffect: Literal["nowonly", "bootonly", "nowandboot"] | None = ...,
        vfstab: Text | None = ...,
    ) -> Answer:
        """mount a file system now, at boot, or both"""
    def preview(
        self,
        *,
        resource: str,
        mountpt: Text,
        fstype: str | None = ...,
        fsckdev: str | None = ...,
        fsckpass: str | None = ...,
        mountatboot: bool | Literal["yes", "no"] | None = ...,
        mntopts: str | Iterable[str] | None = ...,
        takeeffect: Literal["nowonly", "bootonly", "nowandboot"] | None = ...,
        vfstab: Text | None = ...,
    ) -> Preview[Answer]:
        """What the run would answer, change and call."""

class _FilesystemRemoveMountEntry:
    """remove a line of a mount table; nothing is unmounted"""

    description: Description
    def __call__(
        self,
        *,
        resource: str | None = ...,
        mountpt: Text | None = ...,
        layout: Literal["vfstab", "fstab", "4x"] | None = ...,
        vfstab: Text | None = ...,
    ) -> Answer:
        """remove a line of a mount table; nothing is unmounted"""
    def preview(
        self,
        *,
        resource: str | None = ...,
        mountpt: Text | None = ...,
        layout: Literal["vfstab", "fstab", "4x"] | None = ...,
        vfstab: Text | None = ...,
    ) -> Preview[Answer]:
        """What the run would answer, change and call."""

class _FilesystemRemoveShareEntryAnswer(Answer):
    @property
    def pathname(self) -> str: ...

class _FilesystemRemoveShareEntry:
    """remove a directory from the table of shares that are made at boot, the comments on its failed shares
    included; nothing is withdrawn now"""

    description: Description
    def __call__(
        self,
        *,
        pathname: Text,
    ) -> _FilesystemRemoveShareEntryAnswer:
        """remove a directory from the table of shares that are made at boot, the comments on its failed
        shares included; nothing is withdrawn now"""
    def preview(
        self,
        *,
        pathname: Text,
    ) -> Preview[_FilesystemRemoveShareEntryAnswer]:
        """What the run would answer, change and call."""

class _FilesystemSetShareEntryAnswer(Answer):
    @property
    def pathname(self) -> str: ...

class _FilesystemSetShareEntry:
    """add a line to the table of shares that are made at boot, or replace the line of the same directory;
    nothing is shared now"""

    description: Description
    def __call__(
        self,
        *,
        pathname: Text,
        options: str | Iterable[str] | None = ...,
        description: str | None = ...,
    ) -> _FilesystemSetShareEntryAnswer:
        """add a line to the table of shares that are made at boot, or replace the line of the same directory;
        nothing is shared now"""
    def preview(
        self,
        *,
        pathname: Text,
        options: str | Iterable[str] | None = ...,
        description: str | None = ...,
    ) -> Preview[_FilesystemSetShareEntryAnswer]:
        """What the run would answer, change and call."""

class _FilesystemShareAnswer(Answer):
    @property
    def pathname(self) -> str: ...

class _FilesystemShare:
    """share a directory over NFS now, at boot, or both"""

    description: Description
    def __call__(
        self,
        *,
        pathname: Text,
        options: str | Iterable[str] | None = ...,
        description: str | None = ...,
        fstype: Literal["nfs"] | None = ...,
        takeeffect: Literal["nowonly", "bootonly", "nowandboot"] | None = ...,
        force: bool | Literal["yes", "no"] | None = ...,
    ) -> _FilesystemShareAnswer:
        """share a directory over NFS now, at boot, or both"""
    def preview(
        self,
        *,
        pathname: Text,
        options: str | Iterable[str] | None = ...,
        description: str | None = ...,
        fstype: Literal["nfs"] | None = ...,
        takeeffect: Literal["nowonly", "bootonly", "nowandboot"] | None = ...,
        force: bool | Literal["yes", "no"] | None = ...,
    ) -> Preview[_FilesystemShareAnswer]:
        """What the run would answer, change and call."""

class _FilesystemUnmount:
    """unmount a file system now, at boot, or both"""

    description: Description
    def __call__(
        self,
        *,
        mountpt: Text,
        takeeffect: Literal["nowonly", "bootonly", "nowandboot"] | None = ...,
        vfstab: Text | None = ...,
    ) -> Answer:
        """unmount a file system now, at boot, or both"""
    def preview(
        self,
        *,
        mountpt: Text,
        takeeffect: Literal["nowonly", "bootonly", "nowandboot"] | None = ...,
        vfstab: Text | None = ...,
    ) -> Preview[Answer]:
        """What the run would answer, change and call."""

class _FilesystemUnshareAnswer(Answer):
    @property
    def pathname(self) -> str: ...

class _FilesystemUnshare:
    """withdraw a share now, at boot, or both"""

    description: Description
    def __call__(
        self,
        *,
        pathname: Text,
        client: str | None = ...,
        fstype: Literal["nfs"] | None = ...,
        takeeffect: Literal["nowonly", "bootonly", "nowandboot"] | None = ...,
    ) -> _FilesystemUnshareAnswer:
        """withdraw a share now, at boot, or both"""
    def preview(
        self,
        *,
        pathname: Text,
        client: str | None = ...,
        fstype: Literal["nfs"] | None = ...,
        takeeffect: Literal["nowonly", "bootonly", "nowandboot"] | None = ...,
    ) -> Preview[_FilesystemUnshareAnswer]:
        """What the run would answer, change and call."""

class _HostCheckRow(Fields):
    @property
    def severity(self) -> str: ...
    @property
    def client(self) -> str: ...
    @property
    def stage(self) -> str: ...
    @property
    def where(self) -> str: ...
    @property
    def what(self) -> str: ...
    @property
    def why(self) -> str: ...
    @property
    def repair(self) -> str: ...
    @property
    def check(self) -> str: ...
    @property
    def looks_at(self) -> str: ...

class _HostCheckAnswer(Answer):
    rows: tuple[_HostCheckRow, ...]
    def __iter__(self) -> Iterator[_HostCheckRow]: ...
    @property
    def clients(self) -> str: ...
    @property
    def findings(self) -> str: ...
    @property
    def errors(self) -> str: ...
    @property
    def not_seen(self) -> str: ...

class _HostCheck:
    """what is wrong on this server for the clients that boot from it, with the commands that mend it"""

    description: Description
    def __call__(
        self,
        *,
        clients: str | Iterable[str] | None = ...,
        list: bool | Literal["yes", "no"] | None = ...,
    ) -> _HostCheckAnswer:
        """what is wrong on this server for the clients that boot from it, with the commands that mend it"""
    def preview(
        self,
        *,
        clients: str | Iterable[str] | None = ...,
        list: bool | Literal["yes", "no"] | None = ...,
    ) -> Preview[_HostCheckAnswer]:
        """What the run would answer, change and call."""

class _HostCheckDaemonAnswer(Answer):
    @property
    def state(self) -> str: ...
    @property
    def pid(self) -> str: ...

class _HostCheckDaemon:
    """tell whether a daemon runs"""

    description: Description
    def __call__(
        self,
        *,
        name: str | None = ...,
        interface: str | None = ...,
    ) -> _HostCheckDaemonAnswer:
        """tell whether a daemon runs"""
    def preview(
        self,
        *,
        name: str | None = ...,
        interface: str | None = ...,
    ) -> Preview[_HostCheckDaemonAnswer]:
        """What the run would answer, change and call."""

class _HostDisableBootServicesRow(Fields):
    @property
    def path(self) -> str: ...
    @property
    def result(self) -> str: ...

class _HostDisableBootServicesAnswer(Answer):
    rows: tuple[_HostDisableBootServicesRow, ...]
    def __iter__(self) -> Iterator[_HostDisableBootServicesRow]: ...

class _HostDisableBootServices:
    """take back what host/enable_boot_services has switched on"""

    description: Description
    def __call__(
        self,
    ) -> _HostDisableBootServicesAnswer:
        """take back what host/enable_boot_services has switched on"""
    def preview(
        self,
    ) -> Preview[_HostDisableBootServicesAnswer]:
        """What the run would answer, change and call."""

class _HostEnableBootServicesRow(Fields):
    @property
    def path(self) -> str: ...
    @property
    def result(self) -> str: ...

class _HostEnableBootServicesAnswer(Answer):
    rows: tuple[_HostEnableBootServicesRow, ...]
    def __iter__(self) -> Iterator[_HostEnableBootServicesRow]: ...

class _HostEnableBootServices:
    """let everything that clients boot from start with this server: reverse ARP, TFTP, boot parameters,
    shares, NFS, and DHCP where PCs are set up"""

    description: Description
    def __call__(
        self,
        *,
        router: str | IPv4Address | None = ...,
        now: bool | Literal["yes", "no"] | None = ...,
    ) -> _HostEnableBootServicesAnswer:
        """let everything that clients boot from start with this server: reverse ARP, TFTP, boot parameters,
        shares, NFS, and DHCP where PCs are set up"""
    def preview(
        self,
        *,
        router: str | IPv4Address | None = ...,
        now: bool | Literal["yes", "no"] | None = ...,
    ) -> Preview[_HostEnableBootServicesAnswer]:
        """What the run would answer, change and call."""

class _HostMakeDevicesRow(Fields):
    @property
    def node(self) -> str: ...

class _HostMakeDevicesAnswer(Answer):
    rows: tuple[_HostMakeDevicesRow, ...]
    def __iter__(self) -> Iterator[_HostMakeDevicesRow]: ...

class _HostMakeDevices:
    """make device nodes with a script MAKEDEV of this server or of the client's service"""

    description: Description
    def __call__(
        self,
        *,
        device: str,
        directory: Text | None = ...,
        script: Text | None = ...,
        held_device: str | None = ...,
        held_directory: Text | None = ...,
    ) -> _HostMakeDevicesAnswer:
        """make device nodes with a script MAKEDEV of this server or of the client's service"""
    def preview(
        self,
        *,
        device: str,
        directory: Text | None = ...,
        script: Text | None = ...,
        held_device: str | None = ...,
        held_directory: Text | None = ...,
    ) -> Preview[_HostMakeDevicesAnswer]:
        """What the run would answer, change and call."""

class _HostPingRpcAnswer(Answer):
    @property
    def state(self) -> str: ...
    @property
    def program(self) -> str: ...

class _HostPingRpc:
    """ask a host whether an RPC program answers there, over UDP"""

    description: Description
    def __call__(
        self,
        *,
        host: str,
        program: str,
        version: int | str | None = ...,
        timeout: int | str | None = ...,
    ) -> _HostPingRpcAnswer:
        """ask a host whether an RPC program answers there, over UDP"""
    def preview(
        self,
        *,
        host: str,
        program: str,
        version: int | str | None = ...,
        timeout: int | str | None = ...,
    ) -> Preview[_HostPingRpcAnswer]:
        """What the run would answer, change and call."""

class _HostStartDaemonAnswer(Answer):
    @property
    def state(self) -> str: ...
    @property
    def pid(self) -> str: ...
    @property
    def served_by(self) -> str: ...
    @property
    def advice(self) -> str: ...

class _HostStartDaemon:
    """start a daemon in the background, unless it runs"""

    description: Description
    def __call__(
        self,
        *,
        path: Text,
        args: str | Iterable[str] | None = ...,
    ) -> _HostStartDaemonAnswer:
        """start a daemon in the background, unless it runs"""
    def preview(
        self,
        *,
        path: Text,
        args: str | Iterable[str] | None = ...,
    ) -> Preview[_HostStartDaemonAnswer]:
        """What the run would answer, change and call."""

class _HostStatusRow(Fields):
    @property
    def section(self) -> str: ...
    @property
    def name(self) -> str: ...
    @property
    def kind(self) -> str: ...
    @property
    def address(self) -> str: ...
    @property
    def architecture(self) -> str: ...
    @property
    def root(self) -> str: ...
    @property
    def boot_links(self) -> str: ...
    @property
    def shared(self) -> str: ...
    @property
    def disabled(self) -> str: ...
    @property
    def path(self) -> str: ...
    @property
    def options(self) -> str: ...
    @property
    def now(self) -> str: ...
    @property
    def at_boot(self) -> str: ...
    @property
    def resource(self) -> str: ...
    @property
    def mount_point(self) -> str: ...
    @property
    def type(self) -> str: ...
    @property
    def service(self) -> str: ...
    @property
    def running(self) -> str: ...
    @property
    def pid(self) -> str: ...
    @property
    def note(self) -> str: ...

class _HostStatusAnswer(Answer):
    rows: tuple[_HostStatusRow, ...]
    def __iter__(self) -> Iterator[_HostStatusRow]: ...
    @property
    def findings(self) -> str: ...

class _HostStatus:
    """what this server serves: clients, shares, mounts, daemons, each row with its section"""

    description: Description
    def __call__(
        self,
    ) -> _HostStatusAnswer:
        """what this server serves: clients, shares, mounts, daemons, each row with its section"""
    def preview(
        self,
    ) -> Preview[_HostStatusAnswer]:
        """What the run would answer, change and call."""

class _InstallGetOsPathnamesAnswer(Answer):
    @property
    def root_path(self) -> str: ...
    @property
    def boot_prog(self) -> str: ...

class _InstallGetOsPathnames:
    """where a client's root and boot program lie in an install hierarchy: an export area with
    export/exec/INST_SET.NAME_VERSION in it, or a root file system ready to be copied"""

    description: Description
    def __call__(
        self,
        *,
        inst_set_arch: str,
        imp_arch: str,
        os_prod: str,
        os_version: str,
        dirpath: Text,
    ) -> _InstallGetOsPathnamesAnswer:
        """where a client's root and boot program lie in an install hierarchy: an export area with
        export/exec/INST_SET.NAME_VERSION in it, or a root file system ready to be copied"""
    def preview(
        self,
        *,
        inst_set_arch: str,
        imp_arch: str,
        os_prod: str,
        os_version: str,
        dirpath: Text,
    ) -> Preview[_InstallGetOsPathnamesAnswer]:
        """What the run would answer, change and call."""

class _NetbootCleanupRplbootAnswer(Answer):
    @property
    def removed(self) -> str: ...

class _NetbootCleanupRplboot:
    """remove a client's links from /rplboot; the shared files stay"""

    description: Description
    def __call__(
        self,
        *,
        client_key: str,
    ) -> _NetbootCleanupRplbootAnswer:
        """remove a client's links from /rplboot; the shared files stay"""
    def preview(
        self,
        *,
        client_key: str,
    ) -> Preview[_NetbootCleanupRplbootAnswer]:
        """What the run would answer, change and call."""

class _NetbootCleanupTftpboot:
    """remove a client's links from /tftpboot; boot programs stay"""

    description: Description
    def __call__(
        self,
        *,
        address: str | IPv4Address,
    ) -> Answer:
        """remove a client's links from /tftpboot; boot programs stay"""
    def preview(
        self,
        *,
        address: str | IPv4Address,
    ) -> Preview[Answer]:
        """What the run would answer, change and call."""

class _NetbootRemovePc:
    """take away what netboot/setup_pc has made: no PC is answered any more"""

    description: Description
    def __call__(
        self,
    ) -> Answer:
        """take away what netboot/setup_pc has made: no PC is answered any more"""
    def preview(
        self,
    ) -> Preview[Answer]:
        """What the run would answer, change and call."""

class _NetbootSetupPcRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _NetbootSetupPcAnswer(Answer):
    rows: tuple[_NetbootSetupPcRow, ...]
    def __iter__(self) -> Iterator[_NetbootSetupPcRow]: ...

class _NetbootSetupPc:
    """let PCs boot from this server, with BIOS or UEFI: a boot loader's network tree, and a DHCP server that
    answers known clients only"""

    description: Description
    def __call__(
        self,
        *,
        interface: str | None = ...,
        router: str | IPv4Address | None = ...,
    ) -> _NetbootSetupPcAnswer:
        """let PCs boot from this server, with BIOS or UEFI: a boot loader's network tree, and a DHCP server
        that answers known clients only"""
    def preview(
        self,
        *,
        interface: str | None = ...,
        router: str | IPv4Address | None = ...,
    ) -> Preview[_NetbootSetupPcAnswer]:
        """What the run would answer, change and call."""

class _NetbootSetupRplbootAnswer(Answer):
    @property
    def boot_program(self) -> str: ...

class _NetbootSetupRplboot:
    """make a client's boot files in /rplboot"""

    description: Description
    def __call__(
        self,
        *,
        client_key: str,
        instruction_set: str,
        implementation_arch: str,
        os_name: str,
        os_version: str,
        root_dir: Text | None = ...,
    ) -> _NetbootSetupRplbootAnswer:
        """make a client's boot files in /rplboot"""
    def preview(
        self,
        *,
        client_key: str,
        instruction_set: str,
        implementation_arch: str,
        os_name: str,
        os_version: str,
        root_dir: Text | None = ...,
    ) -> Preview[_NetbootSetupRplbootAnswer]:
        """What the run would answer, change and call."""

class _NetbootSetupTftpbootAnswer(Answer):
    @property
    def boot_program(self) -> str: ...

class _NetbootSetupTftpboot:
    """make a client's boot program and links in /tftpboot"""

    description: Description
    def __call__(
        self,
        *,
        address: str | IPv4Address,
        instruction_set: str,
        implementation_arch: str,
        os_name: str,
        os_version: str,
        install_hierarchy: Text,
        host: str | None = ...,
    ) -> _NetbootSetupTftpbootAnswer:
        """make a client's boot program and links in /tftpboot"""
    def preview(
        self,
        *,
        address: str | IPv4Address,
        instruction_set: str,
        implementation_arch: str,
        os_name: str,
        os_version: str,
        install_hierarchy: Text,
        host: str | None = ...,
    ) -> Preview[_NetbootSetupTftpbootAnswer]:
        """What the run would answer, change and call."""

class _ServiceAddRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ServiceAddAnswer(Answer):
    rows: tuple[_ServiceAddRow, ...]
    def __iter__(self) -> Iterator[_ServiceAddRow]: ...
    @property
    def pathname(self) -> str: ...

class _ServiceAdd:
    """keep an operating system for clients on this server: executables, templates of roots, software records,
    catalogue, boot programs, patches"""

    description: Description
    def __call__(
        self,
        *,
        os_name: str,
        os_version: str,
        instruction_set: str,
        implementation_arch: str | None = ...,
        tree: Text | None = ...,
        packages: Text | None = ...,
        install_hierarchy: Text | None = ...,
        boot_program: Text | None = ...,
        patches: Text | None = ...,
    ) -> _ServiceAddAnswer:
        """keep an operating system for clients on this server: executables, templates of roots, software
        records, catalogue, boot programs, patches"""
    def preview(
        self,
        *,
        os_name: str,
        os_version: str,
        instruction_set: str,
        implementation_arch: str | None = ...,
        tree: Text | None = ...,
        packages: Text | None = ...,
        install_hierarchy: Text | None = ...,
        boot_program: Text | None = ...,
        patches: Text | None = ...,
    ) -> Preview[_ServiceAddAnswer]:
        """What the run would answer, change and call."""

class _ServiceAddTemplatePackageAnswer(Answer):
    @property
    def result(self) -> str: ...
    @property
    def template(self) -> str: ...
    @property
    def record(self) -> str: ...

class _ServiceAddTemplatePackage:
    """add a package to the templates of which an OS service's client roots are made; an older version of it
    for the same architecture is replaced"""

    description: Description
    def __call__(
        self,
        *,
        package_dir: Text,
        package: str,
        release: str,
        arch: str | None = ...,
    ) -> _ServiceAddTemplatePackageAnswer:
        """add a package to the templates of which an OS service's client roots are made; an older version of
        it for the same architecture is replaced"""
    def preview(
        self,
        *,
        package_dir: Text,
        package: str,
        release: str,
        arch: str | None = ...,
    ) -> Preview[_ServiceAddTemplatePackageAnswer]:
        """What the run would answer, change and call."""

class _ServiceApplyPatchesAnswer(Answer):
    @property
    def result(self) -> str: ...

class _ServiceApplyPatches:
    """apply the stored patches to a client's root"""

    description: Description
    def __call__(
        self,
        *,
        root: Text,
    ) -> _ServiceApplyPatchesAnswer:
        """apply the stored patches to a client's root"""
    def preview(
        self,
        *,
        root: Text,
    ) -> Preview[_ServiceApplyPatchesAnswer]:
        """What the run would answer, change and call."""

class _ServiceCreateRoot:
    """fill a client's root from packages, or for a 4.x release from ready-made trees"""

    description: Description
    def __call__(
        self,
        *,
        rootpath: Text,
        os_name: str,
        os_version: str,
        sources: Text,
    ) -> Answer:
        """fill a client's root from packages, or for a 4.x release from ready-made trees"""
    def preview(
        self,
        *,
        rootpath: Text,
        os_name: str,
        os_version: str,
        sources: Text,
    ) -> Preview[Answer]:
        """What the run would answer, change and call."""

class _ServiceFindInPatchesAnswer(Answer):
    @property
    def found(self) -> str: ...

class _ServiceFindInPatches:
    """tell whether any stored patch for an architecture delivers a file"""

    description: Description
    def __call__(
        self,
        *,
        file: str,
        arch: str | None = ...,
    ) -> _ServiceFindInPatchesAnswer:
        """tell whether any stored patch for an architecture delivers a file"""
    def preview(
        self,
        *,
        file: str,
        arch: str | None = ...,
    ) -> Preview[_ServiceFindInPatchesAnswer]:
        """What the run would answer, change and call."""

class _ServiceListRow(Fields):
    @property
    def os_name(self) -> str: ...
    @property
    def os_version(self) -> str: ...
    @property
    def instruction_set(self) -> str: ...
    @property
    def architectures(self) -> str: ...
    @property
    def made_of(self) -> str: ...
    @property
    def clients(self) -> str: ...

class _ServiceListAnswer(Answer):
    rows: tuple[_ServiceListRow, ...]
    def __iter__(self) -> Iterator[_ServiceListRow]: ...

class _ServiceList:
    """list the operating systems that this server keeps for clients"""

    description: Description
    def __call__(
        self,
    ) -> _ServiceListAnswer:
        """list the operating systems that this server keeps for clients"""
    def preview(
        self,
    ) -> Preview[_ServiceListAnswer]:
        """What the run would answer, change and call."""

class _ServiceRemoveRow(Fields):
    @property
    def step(self) -> str: ...
    @property
    def result(self) -> str: ...
    @property
    def detail(self) -> str: ...

class _ServiceRemoveAnswer(Answer):
    rows: tuple[_ServiceRemoveRow, ...]
    def __iter__(self) -> Iterator[_ServiceRemoveRow]: ...

class _ServiceRemove:
    """take away an operating system that this server keeps for clients; refused while a client uses it"""

    description: Description
    def __call__(
        self,
        *,
        os_name: str,
        os_version: str,
        instruction_set: str,
    ) -> _ServiceRemoveAnswer:
        """take away an operating system that this server keeps for clients; refused while a client uses it"""
    def preview(
        self,
        *,
        os_name: str,
        os_version: str,
        instruction_set: str,
    ) -> Preview[_ServiceRemoveAnswer]:
        """What the run would answer, change and call."""

class _ServiceSetupCacheletServerRow(Fields):
    @property
    def package(self) -> str: ...
    @property
    def result(self) -> str: ...

class _ServiceSetupCacheletServerAnswer(Answer):
    rows: tuple[_ServiceSetupCacheletServerRow, ...]
    def __iter__(self) -> Iterator[_ServiceSetupCacheletServerRow]: ...

class _ServiceSetupCacheletServer:
    """install on this server what it needs to serve cache-only clients"""

    description: Description
    def __call__(
        self,
    ) -> _ServiceSetupCacheletServerAnswer:
        """install on this server what it needs to serve cache-only clients"""
    def preview(
        self,
    ) -> Preview[_ServiceSetupCacheletServerAnswer]:
        """What the run would answer, change and call."""

class _ServiceSetupCacheletServiceRow(Fields):
    @property
    def package(self) -> str: ...
    @property
    def result(self) -> str: ...

class _ServiceSetupCacheletServiceAnswer(Answer):
    rows: tuple[_ServiceSetupCacheletServiceRow, ...]
    def __iter__(self) -> Iterator[_ServiceSetupCacheletServiceRow]: ...

class _ServiceSetupCacheletService:
    """install what cache-only clients of one OS service need"""

    description: Description
    def __call__(
        self,
        *,
        release: str,
        arch: str | None = ...,
    ) -> _ServiceSetupCacheletServiceAnswer:
        """install what cache-only clients of one OS service need"""
    def preview(
        self,
        *,
        release: str,
        arch: str | None = ...,
    ) -> Preview[_ServiceSetupCacheletServiceAnswer]:
        """What the run would answer, change and call."""

class _ServiceShowRow(Fields):
    @property
    def part(self) -> str: ...
    @property
    def name(self) -> str: ...
    @property
    def place(self) -> str: ...
    @property
    def there(self) -> str: ...

class _ServiceShowAnswer(Answer):
    rows: tuple[_ServiceShowRow, ...]
    def __iter__(self) -> Iterator[_ServiceShowRow]: ...
    @property
    def record(self) -> str: ...
    @property
    def architectures(self) -> str: ...
    @property
    def made_of(self) -> str: ...
    @property
    def clients(self) -> str: ...

class _ServiceShow:
    """show what this server keeps of an operating system for clients, and whether it is there"""

    description: Description
    def __call__(
        self,
        *,
        os_name: str,
        os_version: str,
        instruction_set: str,
    ) -> _ServiceShowAnswer:
        """show what this server keeps of an operating system for clients, and whether it is there"""
    def preview(
        self,
        *,
        os_name: str,
        os_version: str,
        instruction_set: str,
    ) -> Preview[_ServiceShowAnswer]:
        """What the run would answer, change and call."""

class _Cachelet(MethodClass):
    disable_cache: _CacheletDisableCache
    enable_cache: _CacheletEnableCache
    set_disk_profile: _CacheletSetDiskProfile

class _Client(MethodClass):
    add_cachelet: _ClientAddCachelet
    add_dataless: _ClientAddDataless
    add_diskless: _ClientAddDiskless
    add_install: _ClientAddInstall
    change: _ClientChange
    copy: _ClientCopy
    disable: _ClientDisable
    enable: _ClientEnable
    list: _ClientList
    list_names: _ClientListNames
    remove: _ClientRemove
    remove_cachelet: _ClientRemoveCachelet
    show: _ClientShow

class _Database(MethodClass):
    list_bootparams: _DatabaseListBootparams
    list_ethers: _DatabaseListEthers
    list_hosts: _DatabaseListHosts
    remove_bootparams: _DatabaseRemoveBootparams
    remove_ether: _DatabaseRemoveEther
    remove_host: _DatabaseRemoveHost
    set_bootparams: _DatabaseSetBootparams
    set_ether: _DatabaseSetEther
    set_host: _DatabaseSetHost

class _Filesystem(MethodClass):
    add_mount_entry: _FilesystemAddMountEntry
    list_mount_entries: _FilesystemListMountEntries
    list_mounts: _FilesystemListMounts
    list_share_entries: _FilesystemListShareEntries
    list_shares: _FilesystemListShares
    mount: _FilesystemMount
    remove_mount_entry: _FilesystemRemoveMountEntry
    remove_share_entry: _FilesystemRemoveShareEntry
    set_share_entry: _FilesystemSetShareEntry
    share: _FilesystemShare
    unmount: _FilesystemUnmount
    unshare: _FilesystemUnshare

class _Host(MethodClass):
    check: _HostCheck
    check_daemon: _HostCheckDaemon
    disable_boot_services: _HostDisableBootServices
    enable_boot_services: _HostEnableBootServices
    make_devices: _HostMakeDevices
    ping_rpc: _HostPingRpc
    start_daemon: _HostStartDaemon
    status: _HostStatus

class _Install(MethodClass):
    get_os_pathnames: _InstallGetOsPathnames

class _Netboot(MethodClass):
    cleanup_rplboot: _NetbootCleanupRplboot
    cleanup_tftpboot: _NetbootCleanupTftpboot
    remove_pc: _NetbootRemovePc
    setup_pc: _NetbootSetupPc
    setup_rplboot: _NetbootSetupRplboot
    setup_tftpboot: _NetbootSetupTftpboot

class _Service(MethodClass):
    add: _ServiceAdd
    add_template_package: _ServiceAddTemplatePackage
    apply_patches: _ServiceApplyPatches
    create_root: _ServiceCreateRoot
    find_in_patches: _ServiceFindInPatches
    list: _ServiceList
    remove: _ServiceRemove
    setup_cachelet_server: _ServiceSetupCacheletServer
    setup_cachelet_service: _ServiceSetupCacheletService
    show: _ServiceShow

class Methods:
    cachelet: _Cachelet
    client: _Client
    database: _Database
    filesystem: _Filesystem
    host: _Host
    install: _Install
    netboot: _Netboot
    service: _Service

cachelet: _Cachelet
client: _Client
database: _Database
filesystem: _Filesystem
host: _Host
install: _Install
netboot: _Netboot
service: _Service

__all__ = [
    "cachelet",
    "client",
    "database",
    "filesystem",
    "host",
    "install",
    "netboot",
    "service",
]
