# SPDX-License-Identifier: MIT
"""What the tests of the Python package share. HOSTADM is the command under test, HOSTADM_PACKAGE the folder
of the package, HOSTADM_TEST_ROOT the small installation with methods that behave as they are told."""
import os
import pathlib
import stat
import sys
import textwrap

import pytest

PACKAGE = pathlib.Path(os.environ["HOSTADM_PACKAGE"])
sys.path.insert(0, str(PACKAGE))

import hostadm  # noqa: E402


@pytest.fixture
def server():
    """The methods of this build."""
    return hostadm.Server(command=os.environ["HOSTADM"], timeout=120)


@pytest.fixture
def trial():
    """The methods that behave as they are told."""
    return hostadm.Server(command=os.environ["HOSTADM_TEST_ROOT"] + "/bin/hostadm", timeout=120)


@pytest.fixture
def fake(tmp_path):
    """Makes a command of a few lines of Python, which see `words`, the arguments, and `answer(JSON)`."""

    def make(lines: str) -> str:
        path = tmp_path / "hostadm"
        path.write_text(
            "#!/usr/bin/python3\n"
            "import json, os, signal, sys, time\n"
            "words = sys.argv[1:]\n"
            "def answer(json_answer): print(json.dumps(json_answer), flush=True)\n"
            "if words[0] == 'help':\n"
            "    answer({'method': words[-1], 'purpose': 'a fake', 'arguments': []})\n"
            "    sys.exit()\n" + textwrap.dedent(lines)
        )
        path.chmod(path.stat().st_mode | stat.S_IXUSR)
        return str(path)

    return make
