# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Subtrees as nested dictionaries."""

from __future__ import annotations

from typing import Any, Callable, Iterable

from . import ucfg
from .ucfg import Path

# Orders for a session's next commit, no parameters of the machine.
ORDERS = Path("commits")


def read_parameters(session: ucfg.Session, paths: Iterable[Path]) -> dict[str, Any]:
    """The values at and below the paths, nested from the root."""
    def value(path: Path) -> str | None:
        return session.get(path) if "g" in session.attr(path).operations else None

    return _read(paths, session.list, value)


def read_management(session: ucfg.Session, paths: Iterable[Path]) -> dict[str, Any]:
    """The texts at and below the paths of the management tree, nested from its root."""
    def text(path: Path) -> str | None:
        return session.info(path) if "I" in session.attr(path, management=True).operations else None

    return _read(paths, lambda path: session.list(path, management=True), text)


def _read(paths: Iterable[Path], children: Callable[[Path], Iterable[str]],
          value: Callable[[Path], str | None]) -> dict[str, Any]:
    tree: dict[str, Any] = {}
    for path in paths:
        found = _node(path, children, value)
        if found is None:
            continue
        place = tree
        for part in path[:-1]:
            place = place.setdefault(part, {})
        if len(path):
            place[path[-1]] = found
        else:
            tree.update(found)
    return tree


def _node(path: Path, children: Callable[[Path], Iterable[str]],
          value: Callable[[Path], str | None]) -> Any:
    """A value, a dictionary of what is below, or None for what is neither."""
    try:
        names = list(children(path))
    except ucfg.UcfgError:
        names = []
    below = {name: _node(path / name, children, value) for name in names if path / name != ORDERS}
    if names or not len(path):
        return {name: found for name, found in below.items() if found is not None}
    try:
        return value(path)
    except ucfg.UcfgError:
        return None
