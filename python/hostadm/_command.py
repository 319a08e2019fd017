# SPDX-License-Identifier: MIT
"""Runs the command: without a shell, for a limited time, and with a limited answer."""
from __future__ import annotations

import os
import selectors
import shutil
import signal
import subprocess
import time
from collections.abc import Sequence
from dataclasses import dataclass
from typing import IO

from .errors import Error, TooMuchOutput

_CHUNK = 1 << 16
_SAID_LIMIT = 1 << 16  # of what is said on standard error the beginning is enough


@dataclass(frozen=True)
class Ended:
    """A run of the command that came to its end."""

    status: int
    output: bytes
    said: str
    timed_out: bool


def found_command() -> str:
    """The command's path."""
    path = shutil.which("hostadm") or shutil.which("hostadm", path="/usr/bin:/usr/local/bin:/usr/sbin")
    if path is None:
        raise Error(
            "the command hostadm is not installed; install it, or name its path: Server(command=PATH)"
        )
    return path


class _Conversation:
    """Writes the input and reads what comes back, until the answer ends or a limit is reached."""

    def __init__(self, process: subprocess.Popen[bytes], text: bytes, output_limit: int) -> None:
        assert process.stdin and process.stdout and process.stderr
        self._process = process
        self._rest = memoryview(text)
        self._limit = output_limit
        self._output: list[bytes] = []
        self._length = 0
        self._said = b""
        self._selector = selectors.DefaultSelector()
        for stream in (process.stdin, process.stdout, process.stderr):
            os.set_blocking(stream.fileno(), False)
        self._selector.register(process.stdin, selectors.EVENT_WRITE, self._write)
        self._selector.register(process.stdout, selectors.EVENT_READ, self._read)
        self._selector.register(process.stderr, selectors.EVENT_READ, self._listen)
        self._is_answered = False

    @property
    def output(self) -> bytes:
        return b"".join(self._output)

    @property
    def said(self) -> str:
        return self._said.decode("utf-8", "replace").strip()

    def go_on(self, deadline: float | None) -> bool:
        """Until the answer has ended (True) or the time has come (False)."""
        while not self._is_answered:
            left = None if deadline is None else deadline - time.monotonic()
            if left is not None and left <= 0:
                return False
            self._turn(left)
        # What the method leaves running may hold its standard error: only what is there by now is read.
        while self._turn(0):
            pass
        return True

    def close(self) -> None:
        self._selector.close()

    def _turn(self, timeout: float | None) -> bool:
        ready = self._selector.select(timeout)
        for key, _ in ready:
            key.data(key.fileobj)
        return bool(ready)

    def _end(self, stream: IO[bytes]) -> None:
        self._selector.unregister(stream)
        if stream is not self._process.stderr:
            stream.close()

    def _write(self, stream: IO[bytes]) -> None:
        try:
            self._rest = (
                self._rest[os.write(stream.fileno(), self._rest[:_CHUNK]) :] if self._rest else self._rest
            )
        except BrokenPipeError:
            self._rest = self._rest[:0]
        if not self._rest:
            self._end(stream)

    def _read(self, stream: IO[bytes]) -> None:
        chunk = os.read(stream.fileno(), _CHUNK)
        self._output.append(chunk)
        self._length += len(chunk)
        if self._length > self._limit:
            raise TooMuchOutput(f"the answer of hostadm is larger than {self._limit} bytes")
        if not chunk:
            self._is_answered = True
            self._end(stream)

    def _listen(self, stream: IO[bytes]) -> None:
        chunk = os.read(stream.fileno(), _CHUNK)
        self._said += chunk[: _SAID_LIMIT - len(self._said)]
        if not chunk:
            self._end(stream)


def run(
    words: Sequence[str],
    text: bytes = b"",
    timeout: float | None = None,
    grace: float = 10.0,
    output_limit: int = 1 << 28,
) -> Ended:
    """Runs the words with the text as standard input.

    When the time limit passes, the command is asked to end, which lets a method take back what it has begun,
    and is killed after the grace. The same happens when waiting for it is interrupted.
    """
    try:
        process = subprocess.Popen(
            list(words),
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            process_group=0,
        )
    except OSError as error:
        raise Error(f"{words[0]} cannot be started: {error.strerror}") from error
    with process:
        conversation = _Conversation(process, text, output_limit)
        timed_out = False
        try:
            if not conversation.go_on(None if timeout is None else time.monotonic() + timeout):
                timed_out = True
                process.send_signal(signal.SIGTERM)
                conversation.go_on(time.monotonic() + grace)
        except BaseException:
            process.send_signal(signal.SIGTERM)
            raise
        finally:
            conversation.close()
            _wait_or_kill(process, grace)
        return Ended(process.returncode, conversation.output, conversation.said, timed_out)


def _wait_or_kill(process: subprocess.Popen[bytes], grace: float) -> None:
    try:
        process.wait(grace)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
