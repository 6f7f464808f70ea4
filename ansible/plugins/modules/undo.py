#!/usr/bin/python
# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Takes back commits."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: undo
short_description: Take back what commits have changed
version_added: 1.1.0
description:
  - Takes back what one commit has changed and leaves what has been changed since, or brings all files back
    to what they were after a commit. Either is a commit of its own.
  - For administrators only, as the daemon wants it.
options:
  commit:
    description:
      - The number of the commit to take back. C(last) is the newest one that is in effect.
      - What has been taken back already is left alone; with C(last) each run takes back one more.
    type: str
  back_to:
    description:
      - The number of the commit after which the files were as they shall be again.
    type: int
extends_documentation_fragment:
  - ucfgd.config.session
  - ucfgd.config.session.writer
seealso:
  - module: ucfgd.config.history
author:
  - The ucfgd authors (@ucfgd)
"""

EXAMPLES = r"""
- name: Take back commit 7
  ucfgd.config.undo:
    commit: 7

- name: Look what it would be to go back to commit 5
  ucfgd.config.undo:
    back_to: 5
  check_mode: true
  diff: true
"""

RETURN = r"""
commit:
  description: The number of the new commit. None when nothing was committed.
  returned: success
  type: int
  sample: 8
changes:
  description: What has changed, parameter by parameter.
  returned: success
  type: list
  elements: str
  sample: ["- ssh.port: 2222", "+ ssh.port: 22"]
files:
  description: The files that were replaced, created or removed.
  returned: when something was committed
  type: list
  elements: str
  sample: ["replaced /etc/ssh/sshd_config"]
notes:
  description: What the hooks of the commit did.
  returned: when something was committed
  type: list
  elements: str
  sample: []
trial:
  description: The trial of this commit, as M(ucfgd.config.config) returns it.
  returned: when committed on trial
  type: dict
  sample: {seconds: 60, running: false, confirmed: true, undone: false}
"""

import re

from ..module_utils import interpreter  # noqa: F401, first  pylint: disable=unused-import
from ..module_utils.commit import WRITER_ARGUMENTS, change
from ..module_utils.daemon import make_module


def main():
    """Runs the module."""
    module = make_module(
        argument_spec=dict(
            commit=dict(type="str"),
            back_to=dict(type="int"),
            **WRITER_ARGUMENTS
        ),
        one_of=("commit", "back_to"),
        mutually_exclusive=[("commit", "back_to")],
        supports_check_mode=True,
    )
    commit = module.params["commit"]
    if commit is not None and commit != "last" and not re.match("0*[1-9][0-9]*$", commit):
        module.fail_json(msg="commit: %s is neither a number of a commit nor last" % commit)

    def edit(session):
        if commit is None:
            session.load(module.params["back_to"])
        elif commit == "last":
            done = next((made for made in session.history() if made.state == "done"), None)
            if done is not None:
                session.undo(done.number)
        else:
            session.undo(int(commit))

    change(module, edit)


if __name__ == "__main__":
    main()
