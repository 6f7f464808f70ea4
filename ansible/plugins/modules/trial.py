#!/usr/bin/python
# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Confirms or cancels a commit on trial."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: trial
short_description: Confirm or cancel a commit on trial
version_added: 1.1.0
description:
  - Keeps the commit that is on trial for good, or undoes it at once.
options:
  state:
    description:
      - What becomes of the commit.
    type: str
    choices: [confirmed, cancelled]
    default: confirmed
  commit:
    description:
      - The number of the commit, so that nobody else's is confirmed.
      - With it, C(confirmed) is right also when that commit is in effect for good already, and
        C(cancelled) when it has been undone already. Without it, there must be a commit on trial.
    type: int
extends_documentation_fragment:
  - ucfgd.config.session
attributes:
  check_mode:
    description: Nothing is confirmed or cancelled.
    support: full
seealso:
  - module: ucfgd.config.config
author:
  - The ucfgd authors (@ucfgd)
"""

EXAMPLES = r"""
- name: SSH on another port
  ucfgd.config.config:
    parameters: {ssh: {port: 2222}}
    trial: 120
    confirm: false
  register: attempt

- name: Does it answer?
  ansible.builtin.wait_for:
    port: 2222
    timeout: 60

- name: Then it shall stay
  ucfgd.config.trial:
    state: confirmed
    commit: "{{ attempt.commit }}"
  when: attempt is changed
"""

RETURN = r"""
commit:
  description: The number of the commit.
  returned: always
  type: int
  sample: 7
state:
  description: The state of the commit behind this task.
  returned: always
  type: str
  sample: done
"""

import time

from ..module_utils import interpreter  # noqa: F401, first  pylint: disable=unused-import
from ..module_utils.daemon import SESSION_ARGUMENTS, make_module, state_of, with_session

# Undoing writes files and runs hooks; the daemon goes on with it whoever waits.
LONGEST_UNDO = 30


def main():
    """Runs the module."""
    module = make_module(
        argument_spec=dict(
            state=dict(type="str", choices=["confirmed", "cancelled"], default="confirmed"),
            commit=dict(type="int"),
            **SESSION_ARGUMENTS
        ),
        supports_check_mode=True,
    )
    wanted = "done" if module.params["state"] == "confirmed" else "undone"

    def settle(session):
        running = session.trial()
        number = module.params["commit"]
        if number is None:
            if running is None:
                return {"failed": True, "msg": "no commit is on trial", "commit": None, "state": ""}
            number = running.number
        state = state_of(session, number)
        if state == "trial":
            if not module.check_mode:
                (session.confirm if wanted == "done" else session.cancel)()
                state = settled_state(session, number)
            return {"changed": True, "commit": number, "state": state}
        result = {"changed": False, "commit": number, "state": state}
        if state != wanted:
            result.update(failed=True, msg="commit %d is not on trial, its state is: %s" % (number, state or "unknown"))
        return result

    with_session(module, settle)


def settled_state(session, number):
    """The state of the commit once it is on trial no more."""
    end = time.monotonic() + LONGEST_UNDO
    while True:
        state = state_of(session, number)
        if state != "trial" or time.monotonic() >= end:
            return state
        time.sleep(0.1)


if __name__ == "__main__":
    main()
