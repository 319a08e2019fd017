# SPDX-License-Identifier: MIT
"""The package itself: its types, what is generated of it, and the wheel."""
import os
import pathlib
import shutil
import subprocess
import sys
import zipfile

import pytest

PACKAGE = pathlib.Path(os.environ["HOSTADM_PACKAGE"])
SOURCE = PACKAGE.parent
MYPY_CACHE = os.environ.get("HOSTADM_MYPY_CACHE", os.devnull)


def run(*words, **more):
    return subprocess.run(list(map(str, words)), text=True, capture_output=True, **more)


def test_the_type_stubs_are_those_of_the_methods():
    made = run(PACKAGE / "make-stubs", os.environ["HOSTADM"])
    assert made.stderr == ""
    assert (
        made.stdout == (PACKAGE / "hostadm/_methods.pyi").read_text()
    ), "write them anew: python/make-stubs build/bin/hostadm > python/hostadm/_methods.pyi"


def test_the_declarations_are_those_of_the_headers():
    made = run(PACKAGE / "make-declarations", SOURCE / "include")
    assert made.stderr == ""
    assert (
        made.stdout == (PACKAGE / "hostadm/_declarations.py").read_text()
    ), "write them anew: python/make-declarations include > python/hostadm/_declarations.py"


GOOD = """
import hostadm
from hostadm import client

answer = hostadm.client.add_diskless(hostname="c1", address="10.0.0.1", ethernet="8:0:20:1:2:3",
    instruction_set="kel4", implementation_arch="kel4m", os_name="Quorvel", os_version="2.5",
    boot="rpl", prepare=False)
path: str = answer.pathname
step: str = answer.rows[0].step
changed: bool | None = answer.changed
for client_row in client.list():
    print(client_row.hostname)
preview = hostadm.on("server2").client.remove.preview(hostname="c1")
print(preview.diff, preview.answer.changed, preview.changes[0].path)
hostadm.host.check(clients=["c1", "c2"])
print(hostadm.run("client/list").rows, hostadm.check().findings[0].where, hostadm.status().clients[0].name)
"""
BAD = {
    'hostadm.client.remove(hostnam="c1")': "hostnam",
    "hostadm.client.remove()": "Missing named argument",
    "hostadm.client.remove(hostname=7)": "incompatible type",
    'hostadm.filesystem.mount(resource="a:/b", mountpt="/b", takeeffect="never")': "incompatible type",
    'hostadm.client.ad_diskless(hostname="c1")': "no attribute",
}


def type_check(tmp_path, text):
    (tmp_path / "sample.py").write_text(text)
    return run(
        *(sys.executable, "-m", "mypy", "--strict", "--cache-dir", MYPY_CACHE, "sample.py"),
        cwd=tmp_path,
        env={**os.environ, "MYPYPATH": str(PACKAGE)},
    )


def test_type_checkers_accept_what_is_right(tmp_path):
    checked = type_check(tmp_path, GOOD)
    assert checked.returncode == 0, checked.stdout


def test_type_checkers_refuse_what_is_wrong(tmp_path):
    checked = type_check(tmp_path, "import hostadm\n" + "\n".join(BAD) + "\n")
    lines = checked.stdout.splitlines()
    for number, (text, words) in enumerate(BAD.items(), start=2):
        assert any(line.startswith(f"sample.py:{number}: ") and words in line for line in lines), (
            text,
            lines,
        )


def test_the_package_itself_is_well_typed():
    checked = run(sys.executable, "-m", "mypy", "--cache-dir", MYPY_CACHE, cwd=PACKAGE)
    assert checked.returncode == 0, checked.stdout


def test_the_wheel_holds_the_package_and_works(tmp_path):
    # A copy: what builds it writes beside its sources.
    shutil.copytree(
        PACKAGE, tmp_path / "tree/python", ignore=shutil.ignore_patterns("__pycache__", "build", "*.egg-info")
    )
    (tmp_path / "tree/include").mkdir()
    shutil.copy(SOURCE / "include/hostadm.h", tmp_path / "tree/include")
    made = run(
        *(
            sys.executable,
            "-m",
            "pip",
            "wheel",
            "--quiet",
            "--disable-pip-version-check",
            "--no-deps",
            "--no-index",
        ),
        *("--no-build-isolation", "--wheel-dir", tmp_path, tmp_path / "tree/python"),
    )
    assert made.returncode == 0, made.stderr
    [wheel] = tmp_path.glob("hostadm-*-py3-none-any.whl")
    names = set(zipfile.ZipFile(wheel).namelist())
    for path in (PACKAGE / "hostadm").iterdir():
        if path.is_file():
            assert f"hostadm/{path.name}" in names
    answer = run(
        *(
            sys.executable,
            "-c",
            "import hostadm, sys; print(hostadm.Server(command=sys.argv[1]).client.list)",
        ),
        os.environ["HOSTADM"],
        env={**os.environ, "PYTHONPATH": str(wheel)},
    )
    assert answer.returncode == 0, answer.stderr


@pytest.mark.parametrize("script", ["make-stubs", "make-declarations"])
def test_what_writes_the_generated_files_says_how_it_is_used(script):
    told = run(PACKAGE / script)
    assert (told.returncode, told.stderr.startswith("usage: ")) == (2, True)
