# SPDX-License-Identifier: MIT
"""What a method says of itself, and how Python's values become those that it takes."""
from __future__ import annotations

import difflib
import inspect
import ipaddress
import keyword
import os
from collections.abc import Callable, Iterable, Mapping
from dataclasses import dataclass
from typing import Any, Literal, Union, cast

from .errors import INVALID_ARGUMENT, Refused

Text = Union[str, "os.PathLike[str]", "os.PathLike[bytes]", bytes]
Value = Union[Text, bool, int, ipaddress.IPv4Address, Iterable[str], None]
"""What any argument may be given as. None counts as not given."""

# How the values of a list are joined into one.
_SEPARATORS = {"hosts": ",", "options": ",", "words": " "}


@dataclass(frozen=True)
class Argument:
    """An argument of a method."""

    name: str
    kind: str
    purpose: str = ""
    required: bool = False
    default: str = ""
    choices: tuple[str, ...] = ()

    @property
    def annotation(self) -> Any:
        """The type of its values."""
        if self.kind == "choice":
            return Literal[self.choices]
        if self.kind == "yes_no":
            return Union[bool, Literal["yes", "no"]]
        if self.kind in ("number", "size"):
            return Union[int, str]
        if self.kind in _SEPARATORS:
            return Union[str, Iterable[str]]
        if self.kind == "path":
            return Text
        if self.kind == "address":
            return Union[str, ipaddress.IPv4Address]
        return str

    def text(self, value: Value) -> str:
        """The value as the method takes it. TypeError: it is of another type."""
        if isinstance(value, str):
            return value
        if isinstance(value, bool):
            if self.kind == "yes_no":
                return "yes" if value else "no"
        elif isinstance(value, int):
            if self.kind in ("number", "size"):
                return str(int(value))
        elif isinstance(value, (bytes, os.PathLike)):
            if self.kind == "path":
                return os.fsdecode(value)
        elif isinstance(value, ipaddress.IPv4Address):
            if self.kind == "address":
                return str(value)
        elif self.kind in _SEPARATORS and isinstance(value, Iterable):
            return self._joined(list(cast("Iterable[str]", value)))
        raise TypeError(f"the argument {self.name} ({self.kind}) cannot be of type {type(value).__name__}")

    def _joined(self, values: list[str]) -> str:
        separator = _SEPARATORS[self.kind]
        for value in values:
            if not isinstance(value, str):
                raise TypeError(
                    f"the argument {self.name} takes a list of str, not of {type(value).__name__}"
                )
            if separator in value:
                raise ValueError(f"a value of the argument {self.name} holds {separator!r}: {value!r}")
        return separator.join(values)


@dataclass(frozen=True)
class Result:
    """An output of a method, or a column of its rows."""

    name: str
    purpose: str = ""
    required: bool = False


@dataclass(frozen=True)
class Description:
    """A method: what it is for, what it takes, what it returns, and what it touches."""

    name: str
    purpose: str = ""
    arguments: tuple[Argument, ...] = ()
    outputs: tuple[Result, ...] = ()
    columns: tuple[Result, ...] = ()
    edits: tuple[str, ...] = ()
    starts: tuple[str, ...] = ()
    shares: tuple[str, ...] = ()

    @classmethod
    def from_json(cls, json: Mapping[str, Any]) -> Description:
        """From an element of `hostadm list --json`; members that are not known are passed over."""

        def results(key: str) -> tuple[Result, ...]:
            return tuple(
                Result(one["name"], one.get("purpose", ""), one.get("required", False))
                for one in json.get(key, ())
            )

        return cls(
            name=json["method"],
            purpose=json["purpose"],
            arguments=tuple(
                Argument(
                    one["name"],
                    one["kind"],
                    one.get("purpose", ""),
                    one.get("required", False),
                    one.get("default", ""),
                    tuple(one.get("choices", ())),
                )
                for one in json.get("arguments", ())
            ),
            outputs=results("outputs"),
            columns=results("columns"),
            edits=tuple(json.get("edits", ())),
            starts=tuple(json.get("starts", ())),
            shares=tuple(json.get("shares", ())),
        )

    def texts(self, given: Mapping[str, Value]) -> dict[str, str]:
        """The arguments as the method takes them. TypeError: there is none of a name, a required one is
        missing, or a value is of the wrong type. Refused: a choice is none of its choices, or a value holds
        a NUL."""
        known = {argument.name: argument for argument in self.arguments}
        for name in given:
            if name not in known:
                raise TypeError(f"{self.name} takes no argument {name!r}{self._instead_of(name)}")
        missing = [one.name for one in self.arguments if one.required and given.get(one.name) is None]
        if missing:
            word = "argument" if len(missing) == 1 else "arguments"
            raise TypeError(f"{self.name} lacks the required {word} {', '.join(missing)}")
        texts = {}
        for name, value in given.items():
            if value is not None:
                texts[name] = self._checked(known[name], known[name].text(value))
        return texts

    def _checked(self, argument: Argument, text: str) -> str:
        if "\0" in text:
            raise Refused(self.name, INVALID_ARGUMENT, f"the argument {argument.name} holds a NUL character")
        if argument.choices and text and text not in argument.choices:
            meant = nearest(text, argument.choices)
            raise Refused(
                self.name,
                INVALID_ARGUMENT,
                f"the argument {argument.name} cannot be {text!r}; "
                + (
                    f"did you mean {meant!r}?"
                    if meant
                    else f"it must be one of {', '.join(argument.choices)}"
                ),
            )
        return text

    def _instead_of(self, name: str) -> str:
        names = [argument.name for argument in self.arguments]
        if meant := nearest(name, names):
            return f"; did you mean {meant!r}?"
        return f"; it takes {', '.join(names)}" if names else "; it takes none"

    @staticmethod
    def texts_of_undescribed(given: Mapping[str, Value]) -> dict[str, str]:
        """The arguments of a method that does not say what it takes: texts, which it checks itself."""
        for name, value in given.items():
            if not isinstance(value, (str, type(None))):
                raise TypeError(f"the argument {name} cannot be of type {type(value).__name__}")
        return {name: value for name, value in given.items() if isinstance(value, str)}

    @property
    def signature(self) -> inspect.Signature:
        """As of a function with keyword arguments only. Where an argument's default is None the method has
        its own."""
        parameters = []
        odd = False
        for argument in self.arguments:
            if not argument.name.isidentifier() or keyword.iskeyword(argument.name):
                odd = True
                continue
            annotation = argument.annotation
            parameters.append(
                inspect.Parameter(
                    argument.name,
                    inspect.Parameter.KEYWORD_ONLY,
                    default=inspect.Parameter.empty if argument.required else argument.default or None,
                    annotation=annotation if argument.required else Union[annotation, None],
                )
            )
        # Required ones first, as they are read first; each in the order of the description.
        parameters.sort(key=lambda one: one.default is not inspect.Parameter.empty)
        if odd:
            parameters.append(inspect.Parameter("others", inspect.Parameter.VAR_KEYWORD, annotation=str))
        return inspect.Signature(parameters)

    @property
    def help(self) -> str:
        """The docstring of its function."""
        text = f"{self.purpose}\n"
        text += _section("Arguments", [(one.name, _explained(one)) for one in self.arguments])
        text += _section("Outputs", [(one.name, one.purpose) for one in self.outputs])
        text += _section("Columns of its rows", [(one.name, one.purpose) for one in self.columns])
        touched = [("edits", self.edits), ("starts", self.starts), ("shares", self.shares)]
        return text + _section("It touches", [(verb, ", ".join(what)) for verb, what in touched if what])


def nearest(word: str, known: Iterable[str]) -> str | None:
    """The known word that was probably meant."""
    return next(iter(difflib.get_close_matches(word, list(known), n=1)), None)


def _explained(argument: Argument) -> str:
    text = argument.purpose
    if argument.choices:
        text += f"; one of {', '.join(argument.choices)}"
    if argument.required:
        return f"{text} (required)"
    return f"{text} (default: {argument.default})" if argument.default else text


def _section(title: str, lines: list[tuple[str, str]]) -> str:
    widest = max((len(name) for name, _ in lines), default=0)
    shown: Callable[[tuple[str, str]], str] = lambda line: f"  {line[0]:{widest}}  {line[1]}".rstrip()
    return f"\n{title}:\n" + "".join(f"{shown(line)}\n" for line in lines) if lines else ""
