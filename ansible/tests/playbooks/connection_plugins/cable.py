"""The local connection at the end of a cable, which does not lead to one certain address: a machine that
has taken it cannot be reached."""

from __future__ import annotations

from ansible.errors import AnsibleConnectionFailure
from ansible.plugins.connection.local import Connection as Local

DOCUMENTATION = """
name: cable
short_description: A connection that ends when the machine takes another address
description: For tests.
options:
  interfaces:
    description: The file that tells the machine's address.
    vars: [{name: cable_interfaces}]
  nowhere:
    description: The address to which the cable does not lead.
    vars: [{name: cable_nowhere}]
"""


class Connection(Local):
    transport = "cable"

    def exec_command(self, cmd, in_data=None, sudoable=True):
        with open(self.get_option("interfaces"), encoding="utf-8") as file:
            if not self._connected and self.get_option("nowhere") in file.read():
                raise AnsibleConnectionFailure("No route to host")
        return super().exec_command(cmd, in_data, sudoable)

    def reset(self):
        self.close()
