# SPDX-License-Identifier: MIT
"""Keeps the network-boot side of a server in order.

    import hostadm

    hostadm.client.add_diskless(hostname="c1", address="192.168.1.10", ethernet="8:0:20:1:2:3", ...)
    hostadm.run("client/remove", hostname="c1")

    preview = hostadm.client.remove.preview(hostname="c1")
    print(preview.diff)

    for finding in hostadm.check().findings:
        print(finding.where, finding.what, finding.repair)

    hostadm.on("server2", timeout=60).client.list()

A method is a function of its class; help(hostadm.client.add_diskless) tells what it takes. What goes wrong
is raised: hostadm.Refused when nothing was done, hostadm.Failed when the method failed, each with the code
of the error.
"""
from __future__ import annotations

from typing import TYPE_CHECKING, Any

from ._server import Method, MethodClass, Server
from .answers import (
    Answer,
    Change,
    Client,
    Command,
    Daemon,
    Fields,
    FileState,
    Finding,
    Mount,
    Preview,
    Report,
    Share,
    Status,
)
from .description import Argument, Description, Result, Value
from .errors import (
    CANNOT_RUN,
    INVALID_ARGUMENT,
    Error,
    Failed,
    MethodError,
    Refused,
    Step,
    TimedOut,
    TooMuchOutput,
)

if TYPE_CHECKING:
    from ._methods import *

__all__ = [
    "CANNOT_RUN",
    "INVALID_ARGUMENT",
    "Answer",
    "Argument",
    "Change",
    "Client",
    "Command",
    "Daemon",
    "Description",
    "Error",
    "Failed",
    "Fields",
    "FileState",
    "Finding",
    "Method",
    "MethodClass",
    "MethodError",
    "Mount",
    "Preview",
    "Refused",
    "Report",
    "Result",
    "Server",
    "Share",
    "Status",
    "Step",
    "TimedOut",
    "TooMuchOutput",
    "Value",
    "check",
    "describe",
    "methods",
    "on",
    "preview",
    "run",
    "status",
]

_here = Server()
run = _here.run
preview = _here.preview
check = _here.check
status = _here.status
describe = _here.describe
methods = _here.methods


def on(host: str, **settings: Any) -> Server:
    """The server of that name, reached over ssh; the settings are those of Server."""
    return Server(host=host, **settings)


if not TYPE_CHECKING:

    def __getattr__(name: str) -> Any:
        if name.startswith("_"):
            raise AttributeError(f"module 'hostadm' has no attribute {name!r}")
        return getattr(_here, name)


def __dir__() -> list[str]:
    try:
        return sorted([*globals(), *_here.classes()])
    except Error:
        return sorted(globals())
