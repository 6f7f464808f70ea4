"""Paths of parameters and management nodes.

A component may hold any character: `path("network", "hosts", "192.0.2.10")` has three. As people
type it, that path is `network.hosts."192.0.2.10"`, and as it travels
`network.hosts.192%2e0%2e2%2e10`.
"""

from __future__ import annotations

import re
from typing import Iterator, List, Tuple, Union, overload

from .errors import UsageError
from .protocol import COMPONENT_LIMIT, WORD_LIMIT, escape, unescape

_SPECIAL = re.compile(r"[\x00-\x20.\"'\\#;<>]")
_IN_QUOTES = {"n": "\n", "t": "\t", "r": "\r"}


class Path:
    """A path: an immutable sequence of plain components, empty for the root."""

    __slots__ = ("_components",)

    def __init__(self, *components: str) -> None:
        for component in components:
            if not isinstance(component, str):
                raise TypeError(f"a component is a string, not {component!r}")
            if not component:
                raise UsageError("a component of a path cannot be empty")
        self._components: Tuple[str, ...] = components

    @classmethod
    def parse(cls, typed: str) -> Path:
        """The path that somebody types: components separated by dots, those with dots, blanks
        or quotes in quotes."""
        return cls(*_components_typed(typed)) if typed else cls()

    @classmethod
    def from_wire(cls, wire: str) -> Path:
        """The path from how it travels."""
        return cls(*map(unescape, wire.split("."))) if wire else cls()

    @property
    def wire(self) -> str:
        """How the path travels: each component escaped."""
        return ".".join(map(escape, self._components))

    @property
    def components(self) -> Tuple[str, ...]:
        """The plain components."""
        return self._components

    @property
    def name(self) -> str:
        """The last component, "" of the root."""
        return self._components[-1] if self._components else ""

    @property
    def parent(self) -> Path:
        """The path without its last component; the root is its own parent."""
        return Path(*self._components[:-1])

    def __truediv__(self, other: Union[str, Path]) -> Path:
        """One component more, or all those of another path."""
        if isinstance(other, Path):
            return Path(*self._components, *other._components)
        return Path(*self._components, other)

    def __str__(self) -> str:
        return ".".join(map(_quoted, self._components))

    def __repr__(self) -> str:
        return f"path({', '.join(map(repr, self._components))})"

    def __iter__(self) -> Iterator[str]:
        return iter(self._components)

    def __len__(self) -> int:
        return len(self._components)

    @overload
    def __getitem__(self, index: int) -> str: ...
    @overload
    def __getitem__(self, index: slice) -> Path: ...
    def __getitem__(self, index: Union[int, slice]) -> Union[str, Path]:
        if isinstance(index, slice):
            return Path(*self._components[index])
        return self._components[index]

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Path):
            return NotImplemented
        return self._components == other._components

    def __hash__(self) -> int:
        return hash(self._components)


#: Where a path is asked for, text is taken as somebody would type it.
PathLike = Union[str, Path]


def path(*components: str) -> Path:
    """A path of plain components: `path("network", "hosts", "192.0.2.10")`."""
    return Path(*components)


def as_path(given: PathLike) -> Path:
    """The path itself, or the one that a text stands for."""
    return given if isinstance(given, Path) else Path.parse(given)


def wire_path(given: PathLike, limit: int = WORD_LIMIT) -> str:
    """How a path travels, once it is sure that the daemon takes it whole: it would cut a longer
    component, and mean another node."""
    wire = as_path(given).wire
    if not wire:
        raise UsageError("a path is needed")
    if len(wire.encode()) > limit:
        raise UsageError("the path is too long")
    if any(len(part.encode()) > COMPONENT_LIMIT for part in wire.split(".")):
        raise UsageError("a component of the path is too long")
    return wire


def _quoted(component: str) -> str:
    if not _SPECIAL.search(component):
        return component
    text = component.replace("\\", "\\\\").replace('"', '\\"')
    text = text.replace("\n", "\\n").replace("\t", "\\t")
    return '"' + re.sub(r"[\x00-\x1f]", lambda c: f"\\x{ord(c.group()):02x}", text) + '"'


def _escape_in_quotes(text: str, at: int) -> Tuple[str, int]:
    """What a backslash before text[at] stands for, and where it ends."""
    if text[at] == "x":
        digits = re.compile("[0-9A-Fa-f]{2}").match(text, at + 1)
        if digits:
            return bytes.fromhex(digits.group()).decode(errors="surrogateescape"), at + 3
    return _IN_QUOTES.get(text[at], text[at]), at + 1


def _components_typed(text: str) -> List[str]:
    components = [""]
    quote = ""
    at = 0
    while at < len(text):
        character = text[at]
        at += 1
        if not quote and character == ".":
            components.append("")
        elif not quote and character in "\"'":
            quote = character
        elif character == quote:
            quote = ""
        elif character == "\\" and quote != "'" and at < len(text):
            plain, at = _escape_in_quotes(text, at) if quote else (text[at], at + 1)
            components[-1] += plain
        else:
            components[-1] += character
    if quote:
        raise UsageError(f"{text}: a quote is not closed")
    if "" in components:
        raise UsageError(f"{text}: a component is empty (two dots, or a dot at an end)")
    return components
