# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Ends the module in words where the target's Python is too old for what the modules share. It is imported
before that, and written, as the modules are, so that every Python takes it."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json
import sys

# What ends a module otherwise is not there yet.  pylint: disable=ansible-bad-function

if sys.version_info < (3, 9):
    print(json.dumps({
        "failed": True,
        "msg": "the target's %s is Python %d.%d, and 3.9 or later is needed; set "
               "ansible_python_interpreter to another one" % (sys.executable, sys.version_info[0], sys.version_info[1]),
    }))
    sys.exit(1)
