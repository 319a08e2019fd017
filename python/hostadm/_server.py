# SPDX-License-Identifier: MIT
"""A server whose methods are called as functions."""
from __future__ import annotations

import base64
import json
import keyword
import re
import threading
from collections.abc import Iterable, Iterator, Mapping
from typing import TYPE_CHECKING, Any, Protocol, cast

from . import _command
from .answers import Answer, Preview, Report, Status, error_of
from .description import Description, Value, nearest
from .errors import INVALID_ARGUMENT, Error, MethodError, Refused, TimedOut

if TYPE_CHECKING:
    from ._methods import Methods
else:

    class Methods:
        """The classes of methods as attributes."""


class Method(Protocol):
    """A method as a function. Its arguments are keyword arguments; help() and inspect.signature tell them."""

    description: Description
    __name__: str

    def __call__(self, **arguments: Value) -> Answer:
        ...

    def preview(self, **arguments: Value) -> Preview[Answer]:
        """What the run would answer, change and call."""


def _function(server: Server, description: Description) -> Method:
    def run(**arguments: Value) -> Answer:
        return server.run(description.name, **arguments)

    def preview(**arguments: Value) -> Preview[Answer]:
        return server.preview(description.name, **arguments)

    for function, result in ((run, Answer), (preview, Preview)):
        function.__name__ = description.name.rpartition("/")[2]
        function.__qualname__ = description.name.replace("/", ".")
        function.__module__ = "hostadm"
        function.__doc__ = description.help
        signature = description.signature.replace(return_annotation=result)
        function.__signature__ = signature  # type: ignore[attr-defined]
    preview.__qualname__ += ".preview"
    run.preview = preview  # type: ignore[attr-defined]
    run.description = description  # type: ignore[attr-defined]
    return cast(Method, run)


class MethodClass:
    """The methods of one class as attributes."""

    def __init__(self, name: str, methods: Mapping[str, Method]) -> None:
        self._name = name
        self._methods = methods

    # Type checkers know the methods by name.
    if not TYPE_CHECKING:

        def __getattr__(self, name: str) -> Method:
            if name.startswith("_"):
                raise AttributeError(name)
            name = _plain(name)
            if name not in self._methods:
                raise AttributeError(f"there is no method {self._name}/{name}" + _meant(name, self._methods))
            return self._methods[name]

    def __iter__(self) -> Iterator[Method]:
        return iter(self._methods.values())

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self._methods]

    def __repr__(self) -> str:
        return f"<methods {self._name}/*>"


def _plain(name: str) -> str:
    """The name without the "_" that tells it from a word of Python's own."""
    return name[:-1] if name.endswith("_") and keyword.iskeyword(name[:-1]) else name


def _meant(name: str, names: Iterable[str]) -> str:
    near = nearest(name, names)
    return f"; did you mean {near}?" if near else ""


def _plain_or_bytes(text: str) -> str | dict[str, str]:
    """A text as JSON takes it: as it is, or in base64 where it holds bytes that are no UTF-8."""
    try:
        text.encode()
    except UnicodeEncodeError:
        return {"base64": base64.b64encode(text.encode("utf-8", "surrogateescape")).decode("ascii")}
    return text


def _without_frame(said: str, method: str) -> str:
    """What the command said of a method, without what it says of everything."""
    # The word before the code is that of the reader's language.
    return re.sub(rf" \([^()]* {INVALID_ARGUMENT}\)$", "", said.removeprefix(f"hostadm: {method}: "))


_USAGE = 2  # the command's exit status when it was asked for what there is not


class _NoAnswer(Error):
    """The command said something else than an answer."""

    def __init__(self, said: str, status: int) -> None:
        super().__init__(said, status)
        self.status = status

    def __str__(self) -> str:
        return str(self.args[0])


class Server(Methods):
    """A server, and how its methods are run.

    host          on which host, over ssh; None: on this one. What a method takes is looked up on this host.
    timeout       seconds after which a run is ended; None: never
    grace         seconds that a method then has to take back what it has begun
    output_limit  the largest answer, in bytes
    command       the path of hostadm; None: it is found

    A Server may be used by several threads at once. It asks what a method takes once, and keeps it.
    """

    def __init__(
        self,
        *,
        host: str | None = None,
        timeout: float | None = None,
        grace: float = 10.0,
        output_limit: int = 1 << 28,
        command: str | None = None,
    ) -> None:
        if host == "":
            raise ValueError("the host has no name; leave it out to run methods here")
        self._host = host
        self._timeout = timeout
        self._grace = grace
        self._output_limit = output_limit
        self._path = command
        self._lock = threading.Lock()
        self._descriptions: dict[str, Description] = {}

    # ---- running methods ----

    def run(self, method: str, /, **arguments: Value) -> Answer:
        """Runs a method, CLASS/NAME (or NAME where that is unique).

        Raises Refused when nothing was done, Failed when the method failed, TimedOut, and TypeError for an
        argument that is missing, unknown or of the wrong type.
        """
        json_answer = self._performed("run", method, arguments)
        answer = Answer(json_answer)
        self._raise(error_of(json_answer, answer))
        return answer

    def preview(self, method: str, /, **arguments: Value) -> Preview[Answer]:
        """What a run would answer, change and call; nothing is changed. Needs root.

        Raises what the run would raise; the exception's answer is then the preview.
        """
        json_answer = self._performed("preview", method, arguments)
        preview = Preview(json_answer, Answer(json_answer))
        self._raise(error_of(json_answer, preview))
        return preview

    def check(self, *clients: str) -> Report:
        """What keeps clients (all, or those named) from booting. Changes nothing."""
        return Report.of(self.run("host/check", **{"clients": clients} if clients else {}))

    def status(self) -> Status:
        """What this server serves."""
        return Status.of(self.run("host/status"))

    # ---- what there is ----

    def describe(self, method: str, /) -> Description:
        """What a method says of itself."""
        with self._lock:
            known = self._descriptions.get(method)
        if known is None:
            try:
                known = Description.from_json(self._asked(["help", "--json", "--", method], method))
            except _NoAnswer as error:
                if error.status != _USAGE:
                    raise
                raise Refused(method, INVALID_ARGUMENT, _without_frame(str(error), method)) from None
            with self._lock:
                self._descriptions[method] = known
        return known

    def methods(self) -> list[Description]:
        """Every method, in the order of their names."""
        return [Description.from_json(one) for one in self._asked(["list", "--json"])]

    def classes(self) -> list[str]:
        """The classes of the methods."""
        return list(dict.fromkeys(method.name.partition("/")[0] for method in self.methods()))

    # Type checkers know the methods by name.
    if not TYPE_CHECKING:

        def __getattr__(self, name: str) -> MethodClass:
            if name.startswith("_"):
                raise AttributeError(name)
            plain = _plain(name)
            try:
                found = [Description.from_json(one) for one in self._asked(["list", "--json", "--", plain])]
            except _NoAnswer as error:
                if error.status != _USAGE:
                    raise
                classes = self.classes()
                raise AttributeError(
                    f"there is no class of methods {plain}" + _meant(plain, classes)
                ) from None
            with self._lock:
                self._descriptions.update((one.name, one) for one in found)
            method_class = MethodClass(
                plain, {one.name.partition("/")[2]: _function(self, one) for one in found}
            )
            self.__dict__[name] = method_class
            return method_class

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self.classes()]

    def __repr__(self) -> str:
        return f"Server(host={self._host!r})"

    # ---- the command ----

    def _command(self) -> str:
        if self._path is None:
            self._path = _command.found_command()
        return self._path

    def _performed(self, command: str, method: str, arguments: Mapping[str, Value]) -> Any:
        try:
            texts = self.describe(method).texts(arguments)
        except _NoAnswer:
            texts = Description.texts_of_undescribed(arguments)
        words = [command, "--json", "--from", "-"]
        if self._host is not None:
            words.append(f"--host={self._host}")
        given = json.dumps({name: _plain_or_bytes(text) for name, text in texts.items()}).encode()
        return self._asked([*words, "--", method], method, given)

    def _asked(self, words: list[str], method: str = "", given: bytes = b"") -> Any:
        """What the command answers. An Error: it did not."""
        ended = _command.run([self._command(), *words], given, self._timeout, self._grace, self._output_limit)
        answer, defect = None, None
        try:
            answer = json.loads(ended.output)
        except ValueError as error:
            defect = error
        if ended.timed_out:
            raise TimedOut(
                f"{method or 'hostadm'} had not ended after {self._timeout:g} seconds and was stopped"
            ) from (
                error_of(answer, Answer(answer)) if isinstance(answer, dict) and "status" in answer else None
            )
        if defect is not None:
            said = ended.said or f"hostadm ended with status {ended.status} and gave no answer"
            raise _NoAnswer(said, ended.status) from None
        return answer

    @staticmethod
    def _raise(error: MethodError | None) -> None:
        if error is not None:
            raise error
