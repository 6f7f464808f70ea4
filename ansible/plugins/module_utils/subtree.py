# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Subtrees as nested dictionaries."""

from __future__ import annotations

from typing import Any, Iterable

from . import ucfg
from .ucfg import Path

# Orders for a session's next commit, no parameters of the machine.
ORDERS = "commits"


def read_parameters(session: ucfg.Session, paths: Iterable[Path]) -> dict[str, Any]:
    """The values at and below the paths, nested from the root. An entry of a list that has none is an
    empty dictionary."""
    tree: dict[str, Any] = {}
    for path in paths:
        nodes = [node for node in _nodes(session, path, False) if node and node[0] != ORDERS]
        values = session.get_many(nodes)
        above = {node.parent for node in nodes}
        for node in nodes:
            if node in values and node not in above:
                _put(tree, node, values[node])
            elif node not in above and _is_list(session, node.parent):
                _put(tree, node, {})
    return tree


def read_management(session: ucfg.Session, paths: Iterable[Path]) -> dict[str, Any]:
    """The texts at and below the paths of the management tree, nested from its root."""
    tree: dict[str, Any] = {}
    for path in paths:
        nodes = [node for node in _nodes(session, path, True) if node]
        above = {node.parent for node in nodes}
        for node in nodes:
            try:
                if node not in above and "I" in session.attr(node, management=True).operations:
                    _put(tree, node, session.info(node))
            except (ucfg.Failed, ucfg.Refused):
                continue  # it wants arguments, or another user
    return tree


def _nodes(session: ucfg.Session, path: Path, management: bool) -> list[Path]:
    try:
        return [path] + [path / node for node in session.list_all(path, management=management)]
    except ucfg.NotFound:
        return [path]  # a parameter, or nothing at all


def _is_list(session: ucfg.Session, path: Path) -> bool:
    try:
        return len(path) > 0 and "a" in session.attr(path).operations
    except (ucfg.Failed, ucfg.Refused):
        return False


def _put(tree: dict[str, Any], path: Path, value: Any) -> None:
    for part in path.parent:
        tree = tree.setdefault(part, {})
    tree[path.name] = value
