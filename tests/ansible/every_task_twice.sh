#!/bin/bash
# SPDX-License-Identifier: MIT
# every_task_twice.sh BUILD HERE: tasks of the Ansible collection on a real server in a throwaway root. Each runs in check
# mode, which must say that it changes something and change nothing, then for real, and once more, which must change
# nothing.
set -u
build=$1
here=$(dirname "$(readlink -f "$0")")
command -v ansible-playbook >/dev/null || { echo "skipped: there is no ansible-playbook"; exit 77; }
# shellcheck source=tests/faults/server.sh
. "$here/../faults/server.sh"

install_hostadm >/tmp/install.log 2>&1 || { cat /tmp/install.log; exit 2; }
lay_cable
good_server >/tmp/server.log 2>&1 || { cat /tmp/server.log; exit 2; }

export HOME=/tmp/home LC_ALL=C.UTF-8 ANSIBLE_COLLECTIONS_PATH=/tmp/collections ANSIBLE_NOCOLOR=1 ANSIBLE_PYTHON_INTERPRETER=/usr/bin/python3
export ANSIBLE_LOCALHOST_WARNING=false ANSIBLE_INVENTORY_UNPARSED_WARNING=false ANSIBLE_RETRY_FILES_ENABLED=false
mkdir -p $HOME /tmp/collections/ansible_collections/hostadm
cp -a "$here/../../ansible/hostadm/netboot" /tmp/collections/ansible_collections/hostadm/netboot
mkdir -p /export/shared
cd /tmp || exit 2
"$here/playbook.py" >playbook.yml || exit 2
timeout 600 ansible-playbook -i localhost, -c local playbook.yml >play.log 2>&1
status=$?
[ $status = 0 ] || tail -n 80 play.log

printf 'plugin: hostadm.netboot.clients\nkeyed_groups: [{key: hostadm_architecture, prefix: arch}]\n' >clients.hostadm.yml
hostadm run client/disable hostname=client2 >/dev/null || status=2
ansible-inventory -i clients.hostadm.yml --list >inventory.json 2>inventory.log
seen=$(jq -cS '[.hostadm_diskless.hosts, .hostadm_disabled.hosts, .arch_kel4m.hosts, (._meta.hostvars.client1.ansible_host | .__ansible_unsafe? // .)]' inventory.json)
[ "$seen" = '[["client1","client2"],["client2"],["client1","client2"],"192.168.1.10"]' ] ||
    { echo "FAILED: the inventory: $seen"; cat inventory.log inventory.json; status=1; }
exit $status
