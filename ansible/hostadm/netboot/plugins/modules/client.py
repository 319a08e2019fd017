#!/usr/bin/python
# SPDX-License-Identifier: MIT
"""Clients that boot from a server."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: client
short_description: Keep a client that boots from a server, or not
version_added: 1.0.0
description:
  - Lets a client boot from a server, keeps it from booting, or takes it off the server.
  - A client that is there already is changed where it differs from what is said, and completed where something of it
    is missing.
  - Cache-only clients are made of diskless ones by the method C(client/add_cachelet); see M(hostadm.netboot.hostadm).
options:
  name:
    description: The client's host name.
    type: str
    required: true
    aliases: [hostname]
  kind:
    description: What kind of client it is when it is added.
    type: str
    choices: [diskless, dataless, install]
    default: diskless
  address:
    description: Its IPv4 address.
    type: str
  ethernet:
    description: Its Ethernet address.
    type: str
  instruction_set:
    description: Its instruction set.
    type: str
  implementation_arch:
    description: Its implementation architecture.
    type: str
  os_name:
    description: Name of its operating system.
    type: str
  os_version:
    description: Release number of it, as a text.
    type: str
  server:
    description: The server's name, as the client is told. This server's own name without it.
    type: str
  tree:
    description: The ready tree that its root is filled from.
    type: path
  packages:
    description: The directories of packages that its root is filled from.
    type: list
    elements: path
  install_hierarchy:
    description: Where its operating system is found, if the server keeps no such service.
    type: path
  boot_program:
    description: Its boot program, if the operating system does not hold it.
    type: path
  swap_size:
    description: The size of its swap file, with k, m or g behind it if wanted.
    type: str
  share_options:
    description: The options with which all that is its own is shared, once it is there.
    type: str
  arguments:
    description: Further arguments of the method that adds it, C(client/add_diskless), C(client/add_dataless) or
      C(client/add_install).
    type: dict
    default: {}
  purge:
    description: With C(state=absent), whether its root and dump file go as well.
    type: bool
    default: false
  state:
    description:
      - C(present) lets it boot. Whether it is added or changed depends on whether it is there.
      - C(absent) takes it off the server.
      - C(disabled) keeps it from booting, and keeps all that is its own. One that is not there is added first.
    type: str
    choices: [present, absent, disabled]
    default: present
notes:
  - To add a client, at least I(address), I(ethernet), I(instruction_set), I(os_name) and I(os_version) are needed. One
    that is there needs none of them.
extends_documentation_fragment:
  - hostadm.netboot.hostadm
author:
  - The hostadm maintainers !UNKNOWN
'''

EXAMPLES = r'''
- name: Each client of the inventory boots
  hostadm.netboot.client:
    name: "{{ item }}"
    address: "{{ hostvars[item].address }}"
    ethernet: "{{ hostvars[item].ethernet }}"
    instruction_set: kel4
    implementation_arch: kel4m
    os_name: Quorvel
    os_version: "2.5"
  loop: "{{ groups['diskless'] }}"

- name: The client has a new network card
  hostadm.netboot.client:
    name: client1
    ethernet: 08:00:20:aa:bb:07

- name: It does not boot for now
  hostadm.netboot.client:
    name: client1
    state: disabled

- name: It is gone, with its files
  hostadm.netboot.client:
    name: client1
    state: absent
    purge: true
'''

RETURN = r'''
outputs:
  description: What the last method returned, by name.
  returned: always
  type: dict
  sample: {"changed": "yes"}
rows:
  description: What was looked after, step by step.
  returned: always
  type: list
  elements: dict
  sample: [{"step": "hosts", "result": "done", "detail": "192.168.1.10 client1"}]
commands:
  description: The commands that would be run, each as its words.
  returned: in check mode
  type: list
  elements: list
  sample: [["/usr/sbin/share", "-F", "nfs", "/export/root/client1"]]
code:
  description: The code of the failure.
  returned: when a method failed and told a reason
  type: int
  sample: 113
'''

from ansible_collections.hostadm.netboot.plugins.module_utils.command import Failure, carry_out, main

TO_ADD = ('address', 'ethernet', 'instruction_set', 'implementation_arch', 'os_name', 'os_version', 'server', 'tree',
          'packages', 'install_hierarchy', 'boot_program', 'swap_size')
NEEDED = ('address', 'ethernet', 'instruction_set', 'os_name', 'os_version')
TO_CHANGE = ('address', 'ethernet', 'server', 'boot_program', 'swap_size', 'share_options')


def given(params, names):
    return dict((name, params[name]) for name in names if params[name] is not None)


def steps_to_present(params, client):
    name = dict(hostname=params['name'])
    steps = []
    if client and client.get('disabled') == 'yes' and params['state'] == 'present':
        steps.append(('client/enable', name))
    changes = given(params, TO_CHANGE)
    if client and changes:
        steps.append(('client/change', dict(name, **changes)))
    missing = [one for one in NEEDED if params[one] is None]
    if not missing and (not client or params['state'] == 'present'):
        arguments = dict(given(params, TO_ADD), **params['arguments'])
        steps.append(('client/add_%s' % params['kind'], dict(name, **arguments)))
        if not client and params['share_options'] is not None:
            steps.append(('client/change', dict(name, share_options=params['share_options'])))
    elif not client:
        raise Failure('there is no client %s on this server, and to add it these are missing: %s'
                      % (params['name'], ', '.join(missing)))
    return steps


def steps_of(params, command):
    name = dict(hostname=params['name'])
    if params['state'] == 'absent':
        return [('client/remove', dict(name, purge=params['purge']))]
    found = [row for row in command.rows('client/list') if row.get('name') == params['name']]
    steps = steps_to_present(params, found[0] if found else None)
    if params['state'] == 'disabled':
        steps.append(('client/disable', name))
    return steps


def work(module, command):
    return carry_out(command, steps_of(module.params, command))


if __name__ == '__main__':
    main(dict(
        name=dict(type='str', required=True, aliases=['hostname']),
        kind=dict(type='str', choices=['diskless', 'dataless', 'install'], default='diskless'),
        address=dict(type='str'),
        ethernet=dict(type='str'),
        instruction_set=dict(type='str'),
        implementation_arch=dict(type='str'),
        os_name=dict(type='str'),
        os_version=dict(type='str'),
        server=dict(type='str'),
        tree=dict(type='path'),
        packages=dict(type='list', elements='path'),
        install_hierarchy=dict(type='path'),
        boot_program=dict(type='path'),
        swap_size=dict(type='str'),
        share_options=dict(type='str'),
        arguments=dict(type='dict', default={}),
        purge=dict(type='bool', default=False),
        state=dict(type='str', choices=['present', 'absent', 'disabled'], default='present'),
    ), work)
