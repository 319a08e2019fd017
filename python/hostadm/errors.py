# SPDX-License-Identifier: MIT
"""What can go wrong, as exceptions. All of them are an Error."""
from __future__ import annotations

from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    from .answers import Answer, Preview

CANNOT_RUN = 101
"""The method could not be run, crashed, or answered something that cannot be understood."""
INVALID_ARGUMENT = 102
"""An argument was refused, or there is no such method; nothing was done."""


class Error(Exception):
    """The command could not be asked, or its answer cannot be used."""


class TimedOut(Error, TimeoutError):
    """The time limit passed. What the method said while it ended is the cause (`__cause__`), if it said
    something."""


class TooMuchOutput(Error):
    """The answer is larger than the limit of its Server."""


@dataclass(frozen=True)
class Step:
    """One error that a method recorded, in the order in which they happened."""

    code: int
    text: str

    def __str__(self) -> str:
        return f"{self.text} (error {self.code})"


class MethodError(Error):
    """A method did not do its work.

    method       CLASS/NAME
    code         of the last error: docs/error-codes.md
    message      its text
    steps        every error that was recorded, this one last
    left_undone  what is left half done, a text each
    half_done    whether something is left half done
    answer       what the method returned before it failed (of a preview: what it would have changed until
    then)
    """

    def __init__(
        self,
        method: str,
        code: int,
        message: str,
        steps: tuple[Step, ...] = (),
        left_undone: tuple[str, ...] = (),
        half_done: bool = False,
        answer: Answer | Preview[Any] | None = None,
    ) -> None:
        # All of them, so that the exception crosses between processes.
        super().__init__(method, code, message, steps, left_undone, half_done, answer)
        self.method = method
        self.code = code
        self.message = message
        self.steps = steps
        self.left_undone = left_undone
        self.half_done = half_done
        self.answer = answer

    def __str__(self) -> str:
        text = f"{self.method}: {self.message} (error {self.code})"
        for undone in self.left_undone:
            text += f"\nleft half done: {undone}"
        if self.half_done and not self.left_undone:
            text += "\nsomething may be left half done"
        return text


class Refused(MethodError, ValueError):
    """There is no such method, or an argument's value is not accepted. Nothing was done."""


class Failed(MethodError):
    """The method was run and failed, or could not be run."""
