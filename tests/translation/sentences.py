#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""sentences.py SOURCES: lists sentences that are told to a person beside the catalogue: literals of several words that
are handed to what refuses, fails, complains or tells, and do not go through tr() or its kin."""
import pathlib
import re
import sys

ROOMS = ("base", "framework", "server", "methods", "cli", "rehearsal", "sandbox", "compat")
# What tells a person something, by the end of what stands before a text.
TELLS = re.compile(r"(\b(fail|fail_errno|fail_with_errno|refuse|complain|print_error|print_complaint|progress|left_undone|"
                   r"call\.fail|skipped|passed|failed|Failure|Refusal|ShareRefused|ShareUsage|runtime_error|"
                   r"BeneathError|add_flag|add_option|add_subcommand|footer)\(\s*(Code::\w+,\s*|[\w.]+,\s*|\"[\w-]+\",\s*)*|"
                   r"\b(warn|kept)\(\"[\w ]+\",\s*|\.(what|why)\s*=\s*|(what|why)\s*\+?=\s*)$")
LITERAL = re.compile(r'"(?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*')
SENTENCE = re.compile(r"[a-z]{2,} [a-z]{2,}")
COMMAND = re.compile(r"^(hostadm|systemctl|cp|ln|mv|rm|chmod|chown|mkdir|ip|nft|kill|apt-get) ")
# Complaints of share that the library looks for by their words; and a text that nobody is told.
FIXED = ("sub-directory (", "parent (", ": not shared", "the library has recorded why")


def untold(path):
    text = path.read_text(encoding="utf-8")
    text = re.sub(r"//[^\n]*", lambda found: " " * len(found.group()), text)
    for found in LITERAL.finditer(text):
        words = "".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', found.group()))
        if not SENTENCE.search(words) or COMMAND.match(words) or words.startswith(FIXED):
            continue
        if TELLS.search(text[max(0, found.start() - 160):found.start()]):
            yield f"{path}:{text.count(chr(10), 0, found.start()) + 1}: {words}"


def main():
    sources = pathlib.Path(sys.argv[1])
    # What writes the manual pages runs when this is built, what completes words speaks to shells.
    files = [path for room in ROOMS for path in sorted((sources / room).rglob("*.[ch]pp"))
             if path.name not in ("generate.cpp", "complete.cpp")]
    assert len(files) > 200
    found = [line for path in files for line in untold(path)]
    print("\n".join(found))
    if found:
        sys.exit("these are not translated; base/translation.hpp tells how")


if __name__ == "__main__":
    main()
