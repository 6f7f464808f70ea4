# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Changes as people read them: paths as they are typed, and without secrets."""

from __future__ import annotations

import re

from ansible.module_utils.basic import AnsibleModule

from . import ucfg
from .ucfg import Path

# As the daemon knows them: a word among the flags of a parameter, or its type.
_SECRET = {"hidden", "password", "secret"}
# Shorter lines of a secret stand in files for other reasons, too, and shorter numbers in the result.
_LEAST_LINE = 4
_TRUTHS = "True False None"

_CHANGE = re.compile(r"([-+]) ([^ ]+?)(?:: (.*))?")
_ESCAPED = re.compile(r"\\(.)")


def is_secret(attributes: ucfg.Attributes) -> bool:
    """Whether nobody is to read the value of the parameter where it is told what has changed."""
    return not _SECRET.isdisjoint((*attributes.flags, attributes.type or ""))


def hide(module: AnsibleModule, value: str) -> None:
    """Keeps a value out of everything that the module will tell, the lines of files among it. What Ansible would
    find in the numbers and truths of the result, too, and spoil these, stays."""
    lines = [line for line in value.splitlines() if len(line) >= _LEAST_LINE]
    if value.isdecimal() and len(value) < _LEAST_LINE or value in _TRUTHS:
        return
    module.no_log_values.update((value, *lines))


def told(module: AnsibleModule, session: ucfg.Session, changes: str) -> list[str]:
    """The daemon's lines "+ PATH: VALUE" with the path as it is typed. The values of secrets are hidden."""
    # Not splitlines(), which takes characters that a value may have for line ends.
    return [_told(module, session, line) for line in changes.split("\n") if line]


def _told(module: AnsibleModule, session: ucfg.Session, line: str) -> str:
    change = _CHANGE.fullmatch(line)
    if not change:
        return line
    sign, wire, value = change.groups()
    path = Path.from_wire(wire)
    if value is None:
        return f"{sign} {path}"
    if value and _names_secret(session, path):
        hide(module, _ESCAPED.sub(lambda found: "\n" if found[1] == "n" else found[1], value))
        value = "(secret)"
    return f"{sign} {path}: {value}"


def _names_secret(session: ucfg.Session, path: Path) -> bool:
    try:
        return is_secret(session.attr(path))
    except (ucfg.Failed, ucfg.Refused):
        return True  # as the daemon takes it
