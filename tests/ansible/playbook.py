#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes a playbook in which each task is foretold in check mode, done, and done once more. By hand, with CASES=WORDS in the
environment, only those whose title holds the words."""
import json
import os

STATE = (
    "cd / && cat etc/hosts etc/ethers etc/bootparams etc/dfs/dfstab etc/dfs/sharetab 2>/dev/null;"
    " find export tftpboot var/sadm -printf '%p %l %m %u %g\\n' 2>/dev/null | sort"
)

SERVICE = {"os_name": "Quorvel", "os_version": "2.6", "instruction_set": "kel4"}
CLIENT = dict(
    SERVICE,
    name="client9",
    address="192.168.1.19",
    ethernet="08:00:20:aa:bb:09",
    implementation_arch="kel4m",
    swap_size="1m",
    server="server",
)
SHARED = {"path": "/export/shared"}

# Title, module, arguments, and what the difference must hold.
CASES = [
    ("a new share", "share", dict(SHARED, options="ro"), "/export/shared"),
    ("a share with other options", "share", dict(SHARED, options="rw=client1"), "+share"),
    ("a share that is withdrawn for now", "share", dict(SHARED, state="disabled"), "unshare"),
    ("a share that is back", "share", dict(SHARED, options="rw=client1"), "run "),
    ("a share that is gone", "share", dict(SHARED, state="absent"), "-share"),
    ("a new service", "service", dict(SERVICE, tree="/export/tree", boot_program="/export/bootprog"), "/export"),
    ("a new client", "client", CLIENT, "+192.168.1.19"),
    ("a client with another address", "client", dict(CLIENT, address="192.168.1.29"), "+192.168.1.29"),
    ("a client of whom one thing is said", "client", {"name": "client9", "ethernet": "08:00:20:aa:bb:19"}, "bb:19"),
    ("a client that is disabled", "client", {"name": "client9", "state": "disabled"}, "ethers"),
    ("a client that is enabled", "client", {"name": "client9"}, "ethers"),
    ("a service whose clients are disabled", "service", dict(SERVICE, state="disabled"), "ethers"),
    ("a client that is gone", "client", {"name": "client9", "state": "absent", "purge": True}, "-192.168.1.29"),
    ("a new client that is disabled at once", "client", dict(CLIENT, state="disabled"), "+192.168.1.19"),
    ("a disabled client that is gone", "client", {"name": "client9", "state": "absent", "purge": True}, "removed"),
    ("a service that is gone", "service", dict(SERVICE, state="absent"), "removed"),
    (
        "any method",
        "hostadm",
        {"method": "database/set_host", "arguments": {"hostname": "printer", "address": "192.168.1.200"}},
        "+192.168.1.200",
    ),
]


def case(title, module, arguments, word):
    task = {"hostadm.netboot." + module: arguments}
    return [
        {"name": title + ": before", "ansible.builtin.shell": STATE, "register": "before"},
        dict(task, name=title + ": foretold", check_mode=True, diff=True, register="foretold"),
        {"name": title + ": meanwhile", "ansible.builtin.shell": STATE, "register": "meanwhile"},
        dict(task, name=title, diff=module == "share", register="first"),
        dict(task, name=title + ": again", register="second"),
        dict(task, name=title + ": foretold when it is so", check_mode=True, diff=True, register="so_already"),
        {
            "name": title + ": asserted",
            "ansible.builtin.assert": {
                "that": [
                    "foretold.changed",
                    "word in foretold.diff.prepared",
                    "before.stdout == meanwhile.stdout",
                    "first.changed",
                    "not second.changed",
                    "not so_already.changed",
                    "so_already.diff.prepared == ''",
                ]
                + (
                    ["(first.diff.prepared.splitlines() | sort) == (foretold.diff.prepared.splitlines() | sort)"]
                    if module == "share"
                    else []
                )
            },
            "vars": {"word": word},
        },
    ]


def fails(title, module, arguments, *conditions):
    return [
        {
            "name": title,
            "hostadm.netboot." + module: arguments,
            "register": "failing",
            "ignore_errors": True,
        },
        {
            "name": title + ": asserted",
            "ansible.builtin.assert": {"that": ["failing is failed"] + list(conditions)},
        },
    ]


TASKS = [task for one in CASES if os.environ.get("CASES", "") in one[0] for task in case(*one)]
TASKS += fails(
    "a client without an address", "client", {"name": "client7"}, "'address, ethernet' in failing.msg"
)
TASKS += fails(
    "a client whose address is none",
    "client",
    dict(CLIENT, address="192.168.1"),
    "'the argument address' in failing.msg",
)
TASKS += fails(
    "a service that is not there", "service", dict(SERVICE, state="disabled"), "'there is no service' in failing.msg"
)
TASKS += fails(
    "an unknown method", "hostadm", {"method": "client/ad_diskless"}, "'did you mean' in failing.msg"
)
TASKS += fails(
    "a share of what is not there", "share", {"path": "/export/missing"}, "failing.code > 0"
)
TASKS += [
    {"name": "Facts", "hostadm.netboot.hostadm_facts": {}},
    {
        "name": "Facts: asserted",
        "ansible.builtin.assert": {
            "that": [
                "ansible_facts.hostadm.clients | map(attribute='name') | sort == ['client1', 'client2']",
                "ansible_facts.hostadm.services == []",
                "ansible_facts.hostadm.findings >= 0",
                "ansible_facts.hostadm.shares | length > 0",
            ]
        },
    },
    {
        "name": "A value for the shell is none",
        "hostadm.netboot.hostadm": {
            "method": "filesystem/share",
            "arguments": {"pathname": "/export/shared", "description": "it's $(touch /tmp/shell) `touch /tmp/shell`"},
        },
        "register": "odd",
    },
    {"name": "No shell", "ansible.builtin.command": "test ! -e /tmp/shell"},
]

print(json.dumps([{"hosts": "localhost", "gather_facts": False, "tasks": TASKS}], indent=1))
