#!/usr/bin/python
# SPDX-License-Identifier: MIT
"""Runs any method of hostadm."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: hostadm
short_description: Run a method of hostadm
version_added: 1.0.0
description:
  - Runs one method on a server that boots clients over the network.
  - C(hostadm list) on the server shows the methods, C(hostadm help CLASS/METHOD) the arguments of each.
  - For clients, services and shares there are modules that say what shall be so, not what to do.
options:
  method:
    description: The method, as CLASS/NAME.
    type: str
    required: true
  arguments:
    description:
      - Its arguments. Truth values become C(yes) and C(no), lists have commas between their items.
      - An argument without a value is left out.
    type: dict
    default: {}
extends_documentation_fragment:
  - hostadm.netboot.hostadm
author:
  - The hostadm maintainers !UNKNOWN
'''

EXAMPLES = r'''
- name: The server answers for the client's name
  hostadm.netboot.hostadm:
    method: database/set_host
    arguments:
      hostname: client1
      address: 192.168.1.10

- name: What would become of the boot area
  hostadm.netboot.hostadm:
    method: netboot/cleanup_tftpboot
    arguments:
      hostname: client1
  check_mode: true
  diff: true
'''

RETURN = r'''
outputs:
  description: What the method returned, by name.
  returned: always
  type: dict
  sample: {"changed": "yes"}
rows:
  description: The table that it returned, a dictionary for each row.
  returned: always
  type: list
  elements: dict
  sample: []
commands:
  description: The commands that it would run, each as its words.
  returned: in check mode
  type: list
  elements: list
  sample: [["/usr/sbin/share", "-F", "nfs", "/export"]]
code:
  description: The code of the failure.
  returned: when the method failed and told a reason
  type: int
  sample: 114
half_done:
  description: Whether something may be left half done.
  returned: when the method failed
  type: bool
'''

from ansible_collections.hostadm.netboot.plugins.module_utils.command import carry_out, main


def work(module, command):
    return carry_out(command, [(module.params['method'], module.params['arguments'])])


if __name__ == '__main__':
    main(dict(method=dict(type='str', required=True), arguments=dict(type='dict', default={})), work)
