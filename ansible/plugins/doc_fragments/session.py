# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Documentation of the options that every module has."""

from __future__ import annotations


class ModuleDocFragment:
    DOCUMENTATION = r"""
options:
  socket:
    description:
      - The local socket of the daemon on the target.
      - Unless given, the one that C(UCFGD_SOCKET) names there, else C(/dev/ucfgd).
    type: path
  user:
    description:
      - The user to log in as; unless given, the account that the module runs under.
      - With C(become) that is the account that has been become.
    type: str
  password:
    description:
      - The user's password, where the listener asks for one.
    type: str
  timeout:
    description:
      - The longest wait for an answer, in seconds.
    type: int
    default: 60
requirements:
  - Python 3.9 or later on the target, and nothing else
"""

    WRITER = r"""
options:
  force:
    description:
      - End all other sessions that may write, before anything is read.
    type: bool
    default: false
  comment:
    description:
      - Says why, for the history of commits.
    type: str
  trial:
    description:
      - Commit on trial; the daemon takes the commit back by itself after so many seconds.
      - The controller confirms it over a new connection, so what has locked the controller out is
        taken back, and the task fails.
      - With C(0) the commit is for good at once.
    type: int
    default: 0
  trial_delay:
    description:
      - Seconds between the commit and the new connection. A service that is restarted in the
        background gets the time to do so.
    type: int
    default: 1
  confirm:
    description:
      - Whether the commit on trial is confirmed by this task. Otherwise a later task does so with
        M(ucfgd.config.trial), after checks of your own.
    type: bool
    default: true
attributes:
  check_mode:
    description: Everything is tried on the target, and nothing is committed.
    support: full
  diff_mode:
    description: The real change of the files, as a unified diff.
    support: full
"""
