#!/usr/bin/python
# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Reads parameters as data."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
---
module: facts
short_description: Read parameters as data
version_added: 1.1.0
description:
  - Reads the parameters of a machine, in the shape that M(ucfgd.config.config) takes.
  - What cannot be read by this user, or by anybody, is left out.
options:
  paths:
    description:
      - The sections, lists and parameters to read, as C(ucfgsh) takes them; all unless given.
      - A name with a dot stands in double quotes.
    type: list
    elements: str
  management:
    description:
      - Read the texts of the management tree, below I(paths).
    type: bool
    default: false
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
- name: Everything
  ucfgd.config.facts:

- name: One host
  ucfgd.config.facts:
    paths: ['network.hosts."192.0.2.10"']
  register: read

- name: Its name
  ansible.builtin.debug:
    msg: "{{ read.parameters.network.hosts['192.0.2.10'].name }}"

- name: The same parameters elsewhere
  ucfgd.config.config:
    parameters: "{{ read.parameters }}"
  delegate_to: other.example.net
"""

RETURN = r"""
parameters:
  description: The values, nested from the root of the tree.
  returned: success
  type: dict
  sample:
    ssh:
      port: "22"
ansible_facts:
  description: The same as a fact. Not of the management tree.
  returned: success
  type: dict
  contains:
    ucfgd:
      description: The values, nested from the root of the tree.
      type: dict
      sample:
        ssh:
          port: "22"
"""

from ..module_utils import interpreter  # noqa: F401, first  pylint: disable=unused-import
from ..module_utils.daemon import SESSION_ARGUMENTS, make_module, option_path, with_session
from ..module_utils.ucfg import NotFound, UcfgError
from ..module_utils.subtree import read_management, read_parameters


def main():
    """Runs the module."""
    module = make_module(
        argument_spec=dict(
            paths=dict(type="list", elements="str"),
            management=dict(type="bool", default=False),
            **SESSION_ARGUMENTS
        ),
        supports_check_mode=True,
    )
    if module.params["management"] and not module.params["paths"]:
        module.fail_json(msg="management wants paths: all of that tree would be too much")
    paths = [option_path(module, "paths", path) for path in module.params["paths"] or [""]]

    def read(session):
        for path in paths:
            if path and not is_known(session, path, module.params["management"]):
                module.warn("paths: there is nothing of the name %s" % path)
        if module.params["management"]:
            return {"parameters": read_management(session, paths)}
        parameters = read_parameters(session, paths)
        return {"parameters": parameters, "ansible_facts": {"ucfgd": parameters}}

    with_session(module, read)


def is_known(session, path, management):
    """Whether there is a node, or could be an entry, of that name."""
    try:
        session.attr(path, management)
    except NotFound:
        return False
    except UcfgError:
        pass
    return True


if __name__ == "__main__":
    main()
