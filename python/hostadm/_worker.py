# SPDX-License-Identifier: MIT
"""The process in which the library's functions are called.

The library belongs to one thread of one process: it keeps buffers, some of its functions end the process,
others set alarms. So it gets a process of its own, which is to the library what a method is: descriptor 3 is
a request, and what it records goes to descriptor 4, where the caller reads it.

    _worker.py LIBRARY REQUEST ANSWER CONVERSATION    (three descriptors)

Each line of the conversation is {"call": NAME, "arguments": [...]}, and then {"result": ..., "errno": N}.
"""
from __future__ import annotations

import fcntl
import json
import os
import socket
import sys
from typing import Any

import cffi  # type: ignore[import]
from _declarations import C  # type: ignore[import] # it lies beside this program

REQUEST, ANSWER = 3, 4
BOOTPARAMS = (
    "server exec_server root_path swap_path dump_path exec_path kvm_path boottype swapsize "
    "install_server install_path install_config_server install_config_path"
).split()

ffi = cffi.FFI()
ffi.cdef(C)
ffi.cdef("void free(void *);")
c_library = ffi.dlopen(None)


def text(pointer: Any) -> str | None:
    """A copy of a string of the library's."""
    return None if pointer == ffi.NULL else os.fsdecode(ffi.string(pointer))


def owned(pointer: Any) -> str | None:
    """A copy of a string that is the caller's to free."""
    try:
        return text(pointer)
    finally:
        c_library.free(pointer)


class Calls:
    """What may be called. Any function of numbers and strings is called as it stands; the others are here."""

    def __init__(self, path: str) -> None:
        self._library = ffi.dlopen(path)

    def __call__(self, name: str, arguments: list[Any]) -> Any:
        special = getattr(self, f"call_{name}", None)
        return special(*arguments) if special else self._plain(name, arguments)

    def _plain(self, name: str, arguments: list[Any]) -> Any:
        function = getattr(self._library, name)
        # A copy that the function may write to, kept until it has returned.
        given = [
            ffi.NULL
            if value is None
            else ffi.new("char[]", os.fsencode(value))
            if isinstance(value, str)
            else value
            for value in arguments
        ]
        result = function(*given)
        return text(result) if isinstance(result, ffi.CData) else result

    def call_check_daemon(self, name: str) -> list[int]:
        pid = ffi.new("int *", 0)
        return [self._library.check_daemon(os.fsencode(name), pid), pid[0]]

    def call_edit_bootparams_entry(self, *words: str | None) -> str | None:
        return owned(
            self._library.edit_bootparams_entry(
                *(ffi.NULL if one is None else os.fsencode(one) for one in words)
            )
        )

    def call_parse_bootparams_entry(self, entry: str) -> Any:
        places = [ffi.new("char **") for _ in BOOTPARAMS]
        status = self._library.parse_bootparams_entry(os.fsencode(entry), *places)
        return [
            status,
            {name: owned(place[0]) for name, place in zip(BOOTPARAMS, places) if place[0] != ffi.NULL},
        ]

    def call_get_sharefs_ents(self) -> list[list[str | None]]:
        self._library.get_sharefs_ents()
        try:
            shares, entry = [], self._library.sfs_top
            while entry != ffi.NULL:
                shares.append([text(entry.path), text(entry.options)])
                entry = entry.next
            return shares
        finally:
            self._library.free_sharefs_ents()

    def call_do_bootparams(self) -> list[list[str | None]]:
        clients, node = [], self._library.do_bootparams()
        while node != ffi.NULL:
            clients.append([text(node.name), text(node.boottype), text(node.root_path)])
            node = node.next
        return clients

    def call_create_clnt_root(self, root: str, os_service: list[str], sources: list[str]) -> Any:
        words = [ffi.new("char[]", os.fsencode(word)) for word in os_service]
        paths = [ffi.new("char[]", os.fsencode(path)) for path in sources]
        nodes = [ffi.new("struct package_source *") for _ in paths]
        for at, node in enumerate(nodes):
            node.path = paths[at]
            node.next = nodes[at + 1] if at + 1 < len(nodes) else ffi.NULL
        return self._library.create_clnt_root(
            os.fsencode(root), ffi.new("char *[]", words), nodes[0] if nodes else ffi.NULL
        )


def place_descriptors(request: int, answer: int, conversation: int) -> socket.socket:
    """Puts the first two where the library looks for them, and the third where no program that it runs finds
    it."""
    high = [fcntl.fcntl(one, fcntl.F_DUPFD_CLOEXEC, 10) for one in (request, answer, conversation)]
    for one in (request, answer, conversation):
        os.close(one)
    os.dup2(high[0], REQUEST)
    os.dup2(high[1], ANSWER)
    os.close(high[0])
    os.close(high[1])
    # What the library prints is no answer.
    os.dup2(2, 1)
    return socket.socket(fileno=high[2])


def main() -> None:
    conversation = place_descriptors(*map(int, sys.argv[2:5]))
    lines = conversation.makefile("rw", encoding="ascii", newline="\n")
    try:
        calls = Calls(sys.argv[1])
    except OSError as error:
        lines.write(json.dumps({"defect": f"the library cannot be loaded: {error}"}) + "\n")
        lines.flush()
        return
    lines.write(json.dumps({"ready": True}) + "\n")
    lines.flush()
    for line in lines:
        asked = json.loads(line)
        ffi.errno = 0
        result = calls(asked["call"], asked["arguments"])
        lines.write(json.dumps({"result": result, "errno": ffi.errno}) + "\n")
        lines.flush()


if __name__ == "__main__":
    main()
