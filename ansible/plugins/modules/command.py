#!/usr/bin/python
# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Runs actions of the management tree."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: command
short_description: Run an action of the management tree
version_added: 1.1.0
description:
  - Runs an action of the machine, as C(ucfgsh admin) does, or reads what a node of the management tree tells,
    as C(ucfgsh info).
options:
  path:
    description:
      - The node, as C(ucfgsh) takes it. A name with a dot stands in double quotes.
    type: str
    required: true
  arguments:
    description:
      - Its arguments.
    type: list
    elements: str
    default: []
  info:
    description:
      - Read the text of the node. That changes nothing, and is done in check mode, too.
    type: bool
    default: false
extends_documentation_fragment:
  - ucfgd.config.session
attributes:
  check_mode:
    description: An action is not run. Information is read.
    support: partial
author:
  - The ucfgd authors (@ucfgd)
"""

EXAMPLES = r"""
- name: How long has it been up?
  ucfgd.config.command:
    path: system.uptime
    info: true
  register: uptime

- name: Does it reach its gateway?
  ucfgd.config.command:
    path: network.ping
    arguments: [192.0.2.1]
  changed_when: false
"""

RETURN = r"""
stdout:
  description: What the action printed, or the text of the node.
  returned: success
  type: str
  sample: 3 days
stdout_lines:
  description: The same, line by line.
  returned: success
  type: list
  elements: str
  sample: ["3 days"]
stderr:
  description: What the action printed to its standard error.
  returned: success
  type: str
  sample: ""
stderr_lines:
  description: The same, line by line.
  returned: success
  type: list
  elements: str
  sample: []
"""

from ..module_utils import interpreter  # noqa: F401, first  pylint: disable=unused-import
from ..module_utils.daemon import SESSION_ARGUMENTS, make_module, option_path, run_action, with_session


def main():
    """Runs the module."""
    module = make_module(
        argument_spec=dict(
            path=dict(type="str", required=True),
            arguments=dict(type="list", elements="str", default=[]),
            info=dict(type="bool", default=False),
            **SESSION_ARGUMENTS
        ),
        supports_check_mode=True,
    )
    path = option_path(module, "path", module.params["path"])
    if module.check_mode and not module.params["info"]:
        module.exit_json(skipped=True, msg="an action is not run in check mode")

    def run(session):
        if module.params["info"]:
            return {"changed": False, "stdout": session.info(path, *module.params["arguments"]), "stderr": ""}
        stdout, stderr, refusal = run_action(session, path, module.params["arguments"])
        result = {"changed": not refusal, "stdout": stdout, "stderr": stderr}
        if refusal:
            result.update(failed=True, msg=stderr or refusal)
        return result

    with_session(module, run)


if __name__ == "__main__":
    main()
