# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Makes the parameters of a session what they are wanted to be.

What is wanted becomes steps, each of which looks first and changes only what differs. Parameters may
depend on each other (an interface is static once it has an address), and nobody should have to know in
which order: steps that are refused are tried again behind the others, as long as that leads further.
"""

from __future__ import annotations

from typing import Any, Callable, Iterable

from . import ucfg
from .changes import is_secret
from .daemon import worded
from .ucfg import Path
from .words import order_of

# Keeps a value out of what is told.
Hide = Callable[[str], None]
Step = tuple[str, Callable[[], None]]

# The daemon's no to one step, unlike the end of the session.
REFUSALS = (ucfg.Failed, ucfg.Refused, ValueError)

# How a boolean is spelled depends on the choices that a parameter has.
_BOOLEANS = (("on", "off"), ("yes", "no"), ("true", "false"), ("enabled", "disabled"), ("1", "0"))


class Refused(Exception):
    """What was refused: (name, reason) of each step."""

    def __init__(self, refusals: list[tuple[str, Exception]]) -> None:
        super().__init__("; ".join(f"{name}: {worded(error)}" for name, error in refusals))
        self.refusals = refusals


def apply_parameters(session: ucfg.Session, wanted: dict[str, Any], hide: Hide) -> None:
    """Sets what a dictionary names. Edits of the session, nothing more; raises Refused."""
    steps = list(_Plan(session, hide).section(Path(), wanted))
    while steps:
        refusals: list[tuple[str, Exception]] = []
        left: list[Step] = []
        for step in steps:
            try:
                step[1]()
            except REFUSALS as error:
                refusals.append((step[0], error))
                left.append(step)
        if len(left) == len(steps):
            raise Refused(refusals)
        steps = left


def apply_orders(session: ucfg.Session, lines: Iterable[str], hide: Hide) -> None:
    """Gives orders in their order; the first refusal ends it."""
    plan = _Plan(session, hide)
    for line in lines:
        try:
            kind, path, words = order_of(line)
            plan.order(kind, path, words)
        except REFUSALS as error:
            raise Refused([(line, error)]) from error


class _Plan:
    def __init__(self, session: ucfg.Session, hide: Hide) -> None:
        self._session = session
        self._hide = hide

    def order(self, kind: str, path: Path, words: list[str]) -> None:
        if kind == "set":
            self._set(path, words[0])
        elif kind == "add":
            self._add(path, words[0])
        elif kind == "del":
            self._delete(path, words[0])
        else:
            self._session.move(path, words[0], words[1])

    def section(self, path: Path, wanted: dict[str, Any]) -> Iterable[Step]:
        try:
            is_list = len(path) > 0 and "a" in self._session.attr(path).operations
        except REFUSALS as error:
            raise Refused([(str(path), error)]) from error
        for name, value in wanted.items():
            below = path / str(name)
            if is_list:
                yield str(below), lambda name=str(name): self._add(path, name)
            if isinstance(value, dict):
                yield from self.section(below, value)
            elif isinstance(value, list):
                names = _names_of(below, value)
                yield str(below), lambda below=below, names=names: self._entries(below, names)
            elif value is not None:
                yield str(below), lambda below=below, value=value: self._set(below, value)
            elif not is_list:
                raise Refused([(str(below), ValueError("has no value"))])

    def _entries(self, path: Path, wanted: list[str]) -> None:
        """Exactly these entries, in this order where the list lets its entries be moved."""
        operations = self._session.attr(path).operations
        if "a" not in operations:
            raise ValueError("is no list of entries")
        for name in self._session.list(path):
            if name not in wanted:
                self._session.delete(path, name)
        for name in wanted:
            self._add(path, name)
        if "m" in operations:
            self._arrange(path, wanted)

    def _arrange(self, path: Path, wanted: list[str]) -> None:
        # Whether a list swaps two entries or puts one before the other, this is right for both.
        for at, name in enumerate(wanted):
            present = list(self._session.list(path))
            if sorted(present) != sorted(wanted):
                raise ValueError("the entries are not those that are wanted")
            if present[at] != name:
                self._session.move(path, name, present[at])
        if list(self._session.list(path)) != wanted:
            raise ValueError("the list keeps an order of its own")

    def _set(self, path: Path, value: Any) -> None:
        attributes = self._session.attr(path)
        if not set(attributes.operations) & {"g", "s"}:
            raise ValueError("is no parameter")
        text = _text_of(value, attributes.choices)
        if is_secret(attributes):
            self._hide(text)
        if "g" in attributes.operations and self._session.get(path) == text:
            return
        self._session.set(path, text)

    def _add(self, path: Path, name: str) -> None:
        if name not in self._session.list(path):
            self._session.add(path, name)

    def _delete(self, path: Path, name: str) -> None:
        if name in self._session.list(path):
            self._session.delete(path, name)


def _names_of(path: Path, entries: list[Any]) -> list[str]:
    names = [str(entry) for entry in entries]
    for entry in entries:
        if isinstance(entry, bool) or not isinstance(entry, (str, int)):
            raise Refused([(str(path), ValueError(f"{entry} is no name of an entry; put it in quotes if it is meant"))])
        if names.count(str(entry)) > 1:
            raise Refused([(str(path), ValueError(f"{entry} stands there twice"))])
    return names


def _text_of(value: Any, choices: Iterable[str]) -> str:
    if isinstance(value, bool):
        for pair in _BOOLEANS:
            if set(pair) <= set(choices):
                return pair[0] if value else pair[1]
        raise ValueError(f"a boolean ({value}) does not tell what is to be written: put the value in quotes")
    if isinstance(value, float):
        raise ValueError(f"a number with a point ({value}) may have lost digits: put the value in quotes")
    return str(value)
