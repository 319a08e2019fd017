# SPDX-License-Identifier: MIT
"""The clients of a server as hosts."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
name: clients
short_description: The clients of a server that boots them over the network
version_added: 1.0.0
description:
  - Lists the clients that boot from a server, with what the server knows of each as variables whose names begin with
    C(hostadm_), and C(ansible_host) as their address.
  - Each client is in the group C(hostadm_clients), in one of its kind, such as C(hostadm_diskless), and, while it is
    kept from booting, in C(hostadm_disabled).
  - The file's name must end in C(hostadm.yml) or C(hostadm.yaml).
options:
  plugin:
    description: This plugin's name.
    type: str
    required: true
    choices: [hostadm.netboot.clients]
  server:
    description:
      - The server, as HOST or USER@HOST. It is asked over ssh, where a login must succeed without a password.
      - Without it the clients are those of the host that Ansible runs on.
    type: str
  sudo:
    description: Whether to become root by sudo on the server.
    type: bool
    default: false
  timeout:
    description: How many seconds the server may take for its answer.
    type: int
    default: 60
  executable:
    description: The command C(hostadm) on the host that Ansible runs on.
    type: str
    default: hostadm
extends_documentation_fragment:
  - constructed
requirements:
  - the command C(hostadm) on the host that Ansible runs on
author:
  - The hostadm maintainers !UNKNOWN
'''

EXAMPLES = r'''
# clients.hostadm.yml: the clients of one server, with a group for each architecture
plugin: hostadm.netboot.clients
server: admin@server1
sudo: true
keyed_groups:
  - key: hostadm_architecture
    prefix: arch
'''

import json
import re
import subprocess

from ansible.errors import AnsibleParserError
from ansible.module_utils.common.text.converters import to_native
from ansible.plugins.inventory import BaseInventoryPlugin, Constructable
from ansible.utils.unsafe_proxy import wrap_var

HOST_NAME = re.compile(r'[A-Za-z0-9][A-Za-z0-9._-]{0,254}\Z')


class InventoryModule(BaseInventoryPlugin, Constructable):
    """The plugin."""

    NAME = 'hostadm.netboot.clients'

    def verify_file(self, path):
        return super(InventoryModule, self).verify_file(path) and path.endswith(('hostadm.yml', 'hostadm.yaml'))

    def parse(self, inventory, loader, path, cache=True):
        super(InventoryModule, self).parse(inventory, loader, path, cache)
        self._read_config_data(path)
        self.inventory.add_group('hostadm_clients')
        for row in self.rows():
            self.add_client(row)

    def rows(self):
        """What client/list says."""
        timeout = self.get_option('timeout')
        line = [self.get_option('executable'), 'run', '--json']
        if self.get_option('server'):
            line += ['--host=%s' % self.get_option('server'), '--connect-timeout=%d' % timeout,
                     '--answer-timeout=%d' % timeout] + (['--sudo'] if self.get_option('sudo') else [])
        line.append('client/list')
        try:
            said = subprocess.run(line, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                  timeout=2 * timeout + 10, check=False)
            answer = json.loads(said.stdout.decode('utf-8'))
        except (OSError, subprocess.SubprocessError) as error:
            raise AnsibleParserError('%s: %s' % (line[0], to_native(error)))
        except ValueError:
            raise AnsibleParserError('%s: %s' % (line[0], to_native(said.stderr).strip() or 'no answer'))
        if answer.get('status') != 'done':
            raise AnsibleParserError(to_native(said.stderr).strip())
        return answer['rows']

    def add_client(self, row):
        """Adds a client. What the server's tables hold is never taken for a template."""
        name = row.get('name', '')
        if not isinstance(name, str) or not HOST_NAME.match(name):
            self.display.warning('a client of this name cannot be a host of the inventory: %r' % (name,))
            return
        self.inventory.add_host(name, group='hostadm_clients')
        for column, value in row.items():
            if value not in ('', '-'):
                self.inventory.set_variable(name, 'hostadm_%s' % column, wrap_var(value))
        if row.get('address', '-') not in ('', '-'):
            self.inventory.set_variable(name, 'ansible_host', wrap_var(row['address']))
        groups = ['hostadm_%s' % re.sub('[^a-z0-9]', '_', str(row.get('kind', 'unknown')).lower())]
        if row.get('disabled') == 'yes':
            groups.append('hostadm_disabled')
        for group in groups:
            self.inventory.add_child(self.inventory.add_group(group), name)
        variables = self.inventory.get_host(name).get_vars()
        strict = self.get_option('strict')
        self._set_composite_vars(self.get_option('compose'), variables, name, strict=strict)
        self._add_host_to_composed_groups(self.get_option('groups'), variables, name, strict=strict)
        self._add_host_to_keyed_groups(self.get_option('keyed_groups'), variables, name, strict=strict)
