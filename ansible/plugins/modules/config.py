#!/usr/bin/python
# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Sets parameters and commits them."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: config
short_description: Set parameters of a machine that ucfgd manages
version_added: 1.1.0
description:
  - Sets parameters, adds, deletes and moves entries of lists, and commits all of it or nothing.
  - Looks first. What is so already is left alone, and nothing is committed when no file would change.
  - When somebody else commits meanwhile, the module begins again on what is there then.
options:
  parameters:
    description:
      - What is wanted, as a dictionary of sections, entries and parameters. Keys are names as they
        are, C(192.0.2.10) needs no further quotes.
      - A dictionary below a list adds the entries that are not there, and leaves others alone. An entry
        without settings has an empty value.
      - A list of names makes them the entries of a list, without any other, and in this order where the
        list has one.
      - A boolean becomes the one of the parameter's choices that means it, C(on), C(yes) and their like.
      - The order does not matter. What is refused is tried again behind the others, since one parameter
        may need another one first.
    type: dict
  orders:
    description:
      - Orders as C(ucfgsh) takes them, in their order, behind I(parameters). C(set PATH VALUE),
        C(add LIST NAME), C(del LIST NAME), C(move LIST NAME PLACE).
      - An entry that is there already is not added, one that is not there is not deleted.
    type: list
    elements: str
extends_documentation_fragment:
  - ucfgd.config.session
  - ucfgd.config.session.writer
seealso:
  - module: ucfgd.config.undo
  - module: ucfgd.config.trial
author:
  - The ucfgd authors (@ucfgd)
"""

EXAMPLES = r"""
- name: SSH on another port, which may lock us out
  ucfgd.config.config:
    parameters:
      ssh:
        port: 2222
    comment: Away from the usual port
    trial: 60

- name: These name servers and no others, and a host
  ucfgd.config.config:
    parameters:
      network:
        resolver:
          nameservers: [192.0.2.53, 192.0.2.54]
        hosts:
          192.0.2.20:
            name: camera.example.net

- name: What "ucfgsh save" has written elsewhere
  ucfgd.config.config:
    orders: "{{ lookup('ansible.builtin.file', 'gateway.ucfg').splitlines() | reject('match', '^(#|$)') | list }}"

- name: A host that is no more
  ucfgd.config.config:
    orders:
      - del network.hosts 192.0.2.20
"""

RETURN = r"""
commit:
  description: The number of the commit in the history. None when nothing was committed.
  returned: success
  type: int
  sample: 7
changes:
  description: What has changed, parameter by parameter.
  returned: success
  type: list
  elements: str
  sample: ["- ssh.port: 22", "+ ssh.port: 2222"]
files:
  description: The files that were replaced, created or removed.
  returned: when something was committed
  type: list
  elements: str
  sample: ["replaced /etc/ssh/sshd_config"]
notes:
  description: What the hooks of the commit did, as telling a service.
  returned: when something was committed
  type: list
  elements: str
  sample: ["ssh reloaded: ok"]
trial:
  description: The trial of this commit.
  returned: when committed on trial
  type: dict
  contains:
    seconds:
      description: How long it takes.
      type: int
      sample: 60
    running:
      description: Whether it still runs.
      type: bool
      sample: false
    confirmed:
      description: Whether it was confirmed by this task.
      type: bool
      sample: true
    undone:
      description: Whether the daemon was seen to have taken the commit back.
      type: bool
      sample: false
refused:
  description: What was refused, and why. Nothing was committed then.
  returned: when something was refused
  type: list
  elements: dict
  sample:
    - name: ssh.port
      reason: 70000 is not a port (1 to 65535)
      error: error.type.port
      arguments: ["70000", "1", "65535"]
"""

from functools import partial

from ..module_utils import interpreter  # noqa: F401, first  pylint: disable=unused-import
from ..module_utils.changes import hide
from ..module_utils.commit import WRITER_ARGUMENTS, change
from ..module_utils.daemon import make_module
from ..module_utils.plan import apply_orders, apply_parameters


def main():
    """Runs the module."""
    module = make_module(
        argument_spec=dict(
            parameters=dict(type="dict"),
            orders=dict(type="list", elements="str"),
            **WRITER_ARGUMENTS
        ),
        one_of=("parameters", "orders"),
        supports_check_mode=True,
    )

    def edit(session):
        apply_parameters(session, module.params["parameters"] or {}, partial(hide, module))
        apply_orders(session, module.params["orders"] or [], partial(hide, module))

    change(module, edit)


if __name__ == "__main__":
    main()
