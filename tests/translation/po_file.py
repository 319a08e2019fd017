# SPDX-License-Identifier: MIT
"""Reads the entries of a .po or .pot file."""
import dataclasses
import re


@dataclasses.dataclass
class Entry:
    english: list[str]  # the text, and its plural if it has one
    translated: list[str]
    fuzzy: bool


def read(path):
    """Every entry but the head."""
    with open(path, encoding="utf-8") as file:
        blocks = re.split(r"\n\s*\n", file.read())
    entries = []
    for block in blocks:
        english, translated, fuzzy, into = [], [], False, None
        for line in block.splitlines():
            if line.startswith("#~"):
                break
            if line.startswith("#,"):
                fuzzy = fuzzy or "fuzzy" in line
            found = re.match(r'(msgid|msgid_plural|msgstr(?:\[\d\])?)\s+"(.*)"$', line)
            if found:
                into = english if found.group(1).startswith("msgid") else translated
                into.append(found.group(2))
            elif line.startswith('"') and into:
                into[-1] += line[1:-1]
        if english and english[0]:
            plain = [[_plain(text) for text in texts] for texts in (english, translated)]
            entries.append(Entry(plain[0], plain[1], fuzzy))
    return entries


def _plain(text):
    return re.sub(r"\\(.)", lambda found: {"n": "\n", "t": "\t"}.get(found.group(1), found.group(1)), text)
