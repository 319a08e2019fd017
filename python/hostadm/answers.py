# SPDX-License-Identifier: MIT
"""What comes back: answers of methods, previews, findings and the status, as objects.

A text is a str; bytes of a text that are no UTF-8 are kept as Python keeps those of file names
(surrogateescape), so os.fsencode gives them back.
"""
from __future__ import annotations

import base64
from collections.abc import Iterator, Mapping
from dataclasses import dataclass, fields
from typing import Any, Generic, TypeVar

from .errors import CANNOT_RUN, INVALID_ARGUMENT, Failed, MethodError, Refused, Step


def text_of(value: Any) -> str:
    """A text of an answer: a string, or {"base64": "..."}."""
    if isinstance(value, str):
        return value
    return base64.b64decode(value["base64"], validate=True).decode("utf-8", "surrogateescape")


class Fields(Mapping[str, str]):
    """Named texts, as a mapping and as attributes: the outputs of a method, or one of its rows."""

    __slots__ = ("_texts",)

    def __init__(self, json: Mapping[str, Any]) -> None:
        self._texts = {name: text_of(value) for name, value in json.items()}

    def __getitem__(self, name: str) -> str:
        return self._texts[name]

    def __iter__(self) -> Iterator[str]:
        return iter(self._texts)

    def __len__(self) -> int:
        return len(self._texts)

    def __getattr__(self, name: str) -> str:
        if not name.startswith("__") and name != "_texts" and name in self._texts:
            return self._texts[name]
        raise AttributeError(f"there is no field {name!r}", name=name, obj=self)

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self._texts]

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Mapping) and dict(self) == dict(other)

    def __hash__(self) -> int:
        return hash(frozenset(self._texts.items()))

    def __repr__(self) -> str:
        return f"{type(self).__name__}({self._texts!r})"


class Answer:
    """What a method returned.

    method   CLASS/NAME
    outputs  its outputs; each is an attribute of the answer, too
    rows     its rows; an answer can be iterated over, which gives them
    notes    what went wrong on the way without keeping the method from its work
    """

    def __init__(self, json: Mapping[str, Any]) -> None:
        self.method: str = text_of(json["method"])
        self.outputs = Fields(json["outputs"])
        self.rows: tuple[Fields, ...] = tuple(Fields(row) for row in json["rows"])
        self.notes: tuple[Step, ...] = tuple(
            Step(one["code"], text_of(one["text"])) for one in json["errors"]
        )

    @property
    def changed(self) -> bool | None:
        """Whether something was changed; False: everything was so already. None: the method does not say."""
        changed = self.outputs.get("changed")
        return None if changed is None else changed == "yes"

    def __getattr__(self, name: str) -> str:
        outputs = self.__dict__.get("outputs")
        if outputs is not None and name in outputs:
            return str(outputs[name])
        raise AttributeError(f"there is no output {name!r}", name=name, obj=self)

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self.outputs]

    def __iter__(self) -> Iterator[Fields]:
        return iter(self.rows)

    def __repr__(self) -> str:
        return f"<Answer of {self.method}: {dict(self.outputs)!r}, {len(self.rows)} rows>"


AnswerT = TypeVar("AnswerT", bound=Answer, covariant=True)


@dataclass(frozen=True)
class FileState:
    """A file before or after."""

    type: str
    mode: str
    uid: int
    gid: int
    size: int | None = None
    target: str | None = None


@dataclass(frozen=True)
class Change:
    """A file that a method would add, remove or change."""

    path: str
    change: str
    before: FileState | None
    after: FileState | None
    content_differs: bool
    diff: str | None


@dataclass(frozen=True)
class Command:
    """A command that a method would have run, and that a preview only notes."""

    path: str
    arguments: tuple[str, ...]
    installed: bool


class Preview(Generic[AnswerT]):
    """What a method would answer, change and call.

    answer    the answer that it would return
    changes   the files that it would change
    commands  what it would run that a preview cannot: to mount, share, start or signal something
    """

    def __init__(self, json: Mapping[str, Any], answer: AnswerT) -> None:
        self.answer = answer
        self.changes = tuple(_change(one) for one in json["changes"])
        self.commands = tuple(
            Command(text_of(one["path"]), tuple(map(text_of, one["arguments"])), one["installed"])
            for one in json["commands"]
        )

    @property
    def diff(self) -> str:
        """The difference of every file that has one, behind each other."""
        return "".join(change.diff for change in self.changes if change.diff)

    def __repr__(self) -> str:
        return (
            f"<Preview of {self.answer.method}: {len(self.changes)} changes, {len(self.commands)} commands>"
        )


def _file_state(json: Mapping[str, Any] | None) -> FileState | None:
    if json is None:
        return None
    target = json.get("target")
    return FileState(
        json["type"],
        json["mode"],
        json["uid"],
        json["gid"],
        json.get("size"),
        None if target is None else text_of(target),
    )


def _change(json: Mapping[str, Any]) -> Change:
    diff = json.get("diff")
    return Change(
        text_of(json["path"]),
        json["change"],
        _file_state(json["before"]),
        _file_state(json["after"]),
        json["content_differs"],
        None if diff is None else text_of(diff),
    )


def error_of(json: Mapping[str, Any], answer: Answer | Preview[Any]) -> MethodError | None:
    """The exception that an answer stands for; None: the method did its work."""
    if json["status"] == "done":
        return None
    kind, code = (Refused, INVALID_ARGUMENT) if json["status"] == "invalid" else (Failed, CANNOT_RUN)
    steps = tuple(Step(one["code"], text_of(one["text"])) for one in json["errors"])
    message = text_of(json["reason"]) if "reason" in json else ""
    if steps and kind is Failed:
        # Why the run ended stands before what the method itself recorded last.
        code = steps[-1].code
        message = f"{message}: {steps[-1].text}" if message else steps[-1].text
    left_undone = tuple(map(text_of, json.get("left_undone", ())))
    return kind(text_of(json["method"]), code, message, steps, left_undone, json["half_done"], answer)


RowT = TypeVar("RowT")


def _object(kind: type[RowT], row: Mapping[str, str]) -> RowT:
    return kind(**{field.name: row.get(field.name, "") for field in fields(kind)})


@dataclass(frozen=True)
class Finding:
    """Something that is wrong on a server.

    severity  "error": a boot fails; "warning": something is damaged, or fails later
    stage     the step of the boot
    client    whose boot it is; empty: every client's
    where     file and line, path, daemon or interface
    repair    the command that mends it; empty: there is none
    check     the check that found it
    """

    severity: str
    stage: str
    client: str
    where: str
    what: str
    why: str
    repair: str
    check: str


@dataclass(frozen=True)
class Report:
    """What `check` found. It is true when nothing is wrong."""

    clients: int
    findings: tuple[Finding, ...]
    not_seen: str

    @classmethod
    def of(cls, answer: Answer) -> Report:
        """The answer of the method host/check, laid out."""
        return cls(
            int(answer.outputs.get("clients") or 0),
            tuple(_object(Finding, row) for row in answer.rows),
            answer.outputs.get("not_seen", ""),
        )

    @property
    def errors(self) -> tuple[Finding, ...]:
        """The findings that keep a client from booting."""
        return tuple(finding for finding in self.findings if finding.severity == "error")

    def __bool__(self) -> bool:
        return not self.findings


@dataclass(frozen=True)
class Client:
    """A client that boots from a server. Each text is what `hostadm status` shows."""

    name: str
    kind: str
    address: str
    architecture: str
    root: str
    boot_links: str
    shared: str
    disabled: str


@dataclass(frozen=True)
class Share:
    """A directory that a server shares, now or at boot."""

    path: str
    options: str
    now: str
    at_boot: str


@dataclass(frozen=True)
class Mount:
    """A file system that a server mounts, now or at boot."""

    resource: str
    mount_point: str
    type: str
    options: str
    now: str
    at_boot: str


@dataclass(frozen=True)
class Daemon:
    """A daemon that clients need."""

    service: str
    name: str
    running: str
    pid: str
    note: str


@dataclass(frozen=True)
class Status:
    """What a server serves, and how many findings `check` has."""

    clients: tuple[Client, ...]
    shares: tuple[Share, ...]
    mounts: tuple[Mount, ...]
    daemons: tuple[Daemon, ...]
    findings: int

    @classmethod
    def of(cls, answer: Answer) -> Status:
        """The answer of the method host/status, laid out."""

        def section(kind: type[RowT], name: str) -> tuple[RowT, ...]:
            return tuple(_object(kind, row) for row in answer.rows if row.get("section") == name)

        return cls(
            section(Client, "client"),
            section(Share, "share"),
            section(Mount, "mount"),
            section(Daemon, "daemon"),
            int(answer.outputs.get("findings") or 0),
        )
