#!/usr/bin/python
# SPDX-License-Identifier: MIT
"""What a server serves, as facts."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: hostadm_facts
short_description: Learn what a server serves
version_added: 1.0.0
description:
  - Tells what C(hostadm status) tells of a server that boots clients over the network, and its services, as facts below
    C(hostadm).
  - Nothing on the server changes.
extends_documentation_fragment:
  - hostadm.netboot.hostadm
author:
  - The hostadm maintainers !UNKNOWN
'''

EXAMPLES = r'''
- name: Learn what the server serves
  hostadm.netboot.hostadm_facts:

- name: Nothing keeps a client from booting
  ansible.builtin.assert:
    that: ansible_facts.hostadm.findings == 0
'''

RETURN = r'''
ansible_facts:
  description: The facts.
  returned: always
  type: dict
  contains:
    hostadm:
      description: What the server serves.
      returned: always
      type: dict
      contains:
        clients:
          description: The clients, a dictionary each.
          returned: always
          type: list
          elements: dict
        services:
          description: The operating systems that it keeps for them.
          returned: always
          type: list
          elements: dict
        shares:
          description: What it shares.
          returned: always
          type: list
          elements: dict
        mounts:
          description: What it has mounted from others.
          returned: always
          type: list
          elements: dict
        daemons:
          description: The daemons that a boot needs, and whether they run.
          returned: always
          type: list
          elements: dict
        findings:
          description: How many findings C(hostadm check) has.
          returned: always
          type: int
'''

from ansible_collections.hostadm.netboot.plugins.module_utils.command import Failure, main


def work(module, command):
    status, code = command.answer('status', '--json')
    if code != 0:
        raise Failure('hostadm status could not tell all; run it by hand to see why', rc=code)
    status['services'] = command.rows('service/list')
    return dict(changed=False, ansible_facts=dict(hostadm=status))


if __name__ == '__main__':
    main(dict(), work)
