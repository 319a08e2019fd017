# SPDX-License-Identifier: MIT
"""What the documentation of all modules shares."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type


class ModuleDocFragment(object):
    DOCUMENTATION = r'''
options:
  executable:
    description:
      - The command C(hostadm) of the server, if it does not lie where commands lie.
    type: path
attributes:
  check_mode:
    description: A preview tells what would change; nothing on the server does.
    support: full
  diff_mode:
    description: The preview's differences of files, and a line for whatever else would change.
    support: full
requirements:
  - the command C(hostadm) on the server
  - C(become), unless Ansible logs in as root
'''
