# SPDX-License-Identifier: MIT
"""The version stands in the library's header, and nowhere else."""
import pathlib
import re

from setuptools import setup

header = pathlib.Path(__file__).resolve().parent.parent / "include/hostadm.h"
numbers = re.findall(
    r"^#define HOSTADM_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)$", header.read_text(), re.MULTILINE
)
setup(version=".".join(numbers))
