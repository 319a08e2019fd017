#!/usr/bin/python
# SPDX-License-Identifier: MIT
"""Operating systems that a server keeps for its clients."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: service
short_description: Keep an operating system for clients, or not
version_added: 1.0.0
description:
  - Keeps an operating system on a server, for clients that boot from it, or takes it away.
options:
  os_name:
    description: Name of the operating system.
    type: str
    required: true
  os_version:
    description: Its release number, as a text.
    type: str
    required: true
  instruction_set:
    description: The instruction set that it is for.
    type: str
    required: true
  implementation_arch:
    description: An implementation architecture that boots it. Without it those count of which a boot program is found.
    type: str
  tree:
    description: The ready root file system that it is made of.
    type: path
  packages:
    description: The directories of packages that it is made of.
    type: list
    elements: path
  install_hierarchy:
    description: The export area, or tree, that it is made of.
    type: path
  boot_program:
    description: Its boot program, if it is not that of the tree or of the install hierarchy.
    type: path
  patches:
    description: The store that patches for its instruction set are taken from.
    type: path
  state:
    description:
      - C(present) keeps it.
      - C(absent) takes it away. That is refused while a client uses it.
      - C(disabled) keeps it, and keeps each of its clients from booting. To let them boot again, say so of each with
        M(hostadm.netboot.client), since only you know which of them shall.
    type: str
    choices: [present, absent, disabled]
    default: present
extends_documentation_fragment:
  - hostadm.netboot.hostadm
author:
  - The hostadm maintainers !UNKNOWN
'''

EXAMPLES = r'''
- name: Clients can be given Quorvel 2.5
  hostadm.netboot.service:
    os_name: Quorvel
    os_version: "2.5"
    instruction_set: kel4
    tree: /export/tree
    boot_program: /export/bootprog

- name: None of its clients boots while it is looked after
  hostadm.netboot.service:
    os_name: Quorvel
    os_version: "2.5"
    instruction_set: kel4
    state: disabled
'''

RETURN = r'''
outputs:
  description: What the last method returned, by name.
  returned: always
  type: dict
  sample: {"pathname": "/export", "changed": "yes"}
rows:
  description: What was looked after, step by step.
  returned: always
  type: list
  elements: dict
  sample: [{"step": "catalogue", "result": "done", "detail": "/var/sadm"}]
commands:
  description: The commands that would be run, each as its words.
  returned: in check mode
  type: list
  elements: list
  sample: []
code:
  description: The code of the failure.
  returned: when a method failed and told a reason
  type: int
  sample: 114
'''

from ansible_collections.hostadm.netboot.plugins.module_utils.command import Failure, carry_out, main

NAMES = ('os_name', 'os_version', 'instruction_set')
MADE_OF = ('implementation_arch', 'tree', 'packages', 'install_hierarchy', 'boot_program', 'patches')


def users_of(command, names):
    """The clients that use the service."""
    for row in command.rows('service/list'):
        if all(row.get(name) == value for name, value in names.items()):
            return [name for name in row.get('clients', '').replace(',', ' ').split() if name != '-']
    raise Failure('there is no service %(os_name)s %(os_version)s for %(instruction_set)s on this server' % names)


def steps_of(params, command):
    names = dict((name, params[name]) for name in NAMES)
    if params['state'] == 'present':
        return [('service/add', dict(names, **dict((name, params[name]) for name in MADE_OF)))]
    if params['state'] == 'absent':
        return [('service/remove', names)]
    return [('client/disable', dict(hostname=name)) for name in users_of(command, names)]


def work(module, command):
    return carry_out(command, steps_of(module.params, command))


if __name__ == '__main__':
    main(dict(
        os_name=dict(type='str', required=True),
        os_version=dict(type='str', required=True),
        instruction_set=dict(type='str', required=True),
        implementation_arch=dict(type='str'),
        tree=dict(type='path'),
        packages=dict(type='list', elements='path'),
        install_hierarchy=dict(type='path'),
        boot_program=dict(type='path'),
        patches=dict(type='path'),
        state=dict(type='str', choices=['present', 'absent', 'disabled'], default='present'),
    ), work)
