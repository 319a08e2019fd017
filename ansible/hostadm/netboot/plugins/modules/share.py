#!/usr/bin/python
# SPDX-License-Identifier: MIT
"""Shares of a server."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: share
short_description: Keep a directory shared, or not
version_added: 1.0.0
description:
  - Shares a directory over NFS, now and whenever the server starts, or withdraws it.
options:
  path:
    description: The directory.
    type: path
    required: true
  options:
    description:
      - Who may do what, such as C(ro), C(rw=client1:client2,root=client1) or C(anon=0).
      - Without them a new share is C(rw).
    type: str
  description:
    description: Words about the share, shown in its list.
    type: str
  when:
    description:
      - Whether C(state=present) and C(state=absent) speak of what is shared C(now), of what is shared when the server
        starts (C(boot)), or of both.
    type: str
    choices: [both, now, boot]
    default: both
  state:
    description:
      - C(present) shares it.
      - C(absent) withdraws it.
      - C(disabled) withdraws it now, and keeps its line for the next start of the server. With I(options) the line is
        made if there is none.
    type: str
    choices: [present, absent, disabled]
    default: present
extends_documentation_fragment:
  - hostadm.netboot.hostadm
author:
  - The hostadm maintainers !UNKNOWN
'''

EXAMPLES = r'''
- name: All may read the installation area
  hostadm.netboot.share:
    path: /export/install
    options: ro
    description: installation area

- name: Nobody does until the server starts again
  hostadm.netboot.share:
    path: /export/install
    state: disabled

- name: Nobody does any more
  hostadm.netboot.share:
    path: /export/install
    state: absent
'''

RETURN = r'''
outputs:
  description: What the last method returned, by name.
  returned: always
  type: dict
  sample: {"pathname": "/export/install", "changed": "yes"}
commands:
  description: The commands that would be run, each as its words.
  returned: in check mode
  type: list
  elements: list
  sample: [["/usr/sbin/share", "-F", "nfs", "/export/install"]]
code:
  description: The code of the failure.
  returned: when a method failed and told a reason
  type: int
  sample: 114
'''

from ansible_collections.hostadm.netboot.plugins.module_utils.command import carry_out, main

TAKE_EFFECT = dict(both='nowandboot', now='nowonly', boot='bootonly')


def steps_of(params):
    path = dict(pathname=params['path'])
    options = dict(path, options=params['options'], description=params['description'])
    take_effect = TAKE_EFFECT[params['when']]
    if params['state'] == 'present':
        return [('filesystem/share', dict(options, takeeffect=take_effect))]
    if params['state'] == 'absent':
        return [('filesystem/unshare', dict(path, takeeffect=take_effect))]
    steps = [('filesystem/unshare', dict(path, takeeffect='nowonly'))]
    if params['options'] is not None:
        steps.append(('filesystem/set_share_entry', options))
    return steps


def work(module, command):
    return carry_out(command, steps_of(module.params))


if __name__ == '__main__':
    main(dict(
        path=dict(type='path', required=True),
        options=dict(type='str'),
        description=dict(type='str'),
        when=dict(type='str', choices=['both', 'now', 'boot'], default='both'),
        state=dict(type='str', choices=['present', 'absent', 'disabled'], default='present'),
    ), work)
