#!/usr/bin/python
# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Reads the history of commits."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: history
short_description: Read the history of commits
version_added: 1.1.0
description:
  - Tells which commits were made, by whom, when and why, the newest first; of a single one, also what
    it has changed.
options:
  commit:
    description:
      - Tell of this commit alone, and all about it.
    type: int
  limit:
    description:
      - How many commits to tell of, at most. With C(0) all that the archive still has.
    type: int
    default: 20
extends_documentation_fragment:
  - ucfgd.config.session
attributes:
  check_mode:
    description: Nothing is changed in any mode.
    support: full
author:
  - The ucfgd authors (@ucfgd)
"""

EXAMPLES = r"""
- name: Who was it?
  ucfgd.config.history:
    limit: 5
  register: recent

- name: All about commit 7
  ucfgd.config.history:
    commit: 7
"""

RETURN = r"""
commits:
  description: The commits.
  returned: success
  type: list
  elements: dict
  contains:
    number:
      description: Its number.
      type: int
      sample: 7
    state:
      description: C(done), C(trial), C(undone), C(failed) or C(open).
      type: str
      sample: done
    time:
      description: When it began.
      type: str
      sample: 2026-05-04 10:00:00 UTC
    user:
      description: Who made it.
      type: str
      sample: root
    from:
      description: The listener, and what the system says of the process behind it.
      type: str
      sample: local, uid=0 gid=0 pid=4881, session 2dbd9297305e
    comment:
      description: What its author said about it.
      type: str
      sample: Away from the usual port
    files:
      description: The files that were replaced, created or removed.
      type: list
      elements: str
      sample: ["replaced /etc/ssh/sshd_config"]
    notes:
      description: What the hooks did. Of a single commit only.
      type: list
      elements: str
      sample: []
    changes:
      description: What has changed, parameter by parameter. Of a single commit only.
      type: list
      elements: str
      sample: ["- ssh.port: 22", "+ ssh.port: 2222"]
    diff:
      description: The lines that have changed, for who may see them. Of a single commit only.
      type: str
      sample: "--- a/etc/ssh/sshd_config\n+++ b/etc/ssh/sshd_config\n"
"""

from ..module_utils import interpreter  # noqa: F401, first  pylint: disable=unused-import
from ..module_utils.daemon import SESSION_ARGUMENTS, brief, details, make_module, state_of, with_session


def main():
    """Runs the module."""
    module = make_module(
        argument_spec=dict(
            commit=dict(type="int"),
            limit=dict(type="int", default=20),
            **SESSION_ARGUMENTS
        ),
        supports_check_mode=True,
    )

    def tell(session):
        number = module.params["commit"]
        if number is None:
            return {"commits": [brief(commit) for commit in session.history(module.params["limit"] or None)]}
        if not state_of(session, number):
            return {"failed": True, "msg": "there is no commit %d" % number, "commits": []}
        return {"commits": [details(module, session, number)]}

    with_session(module, tell)


if __name__ == "__main__":
    main()
