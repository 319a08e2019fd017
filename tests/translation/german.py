#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""german.py HOSTADM DE.PO: runs the command for a German reader, and finds English sentences of the catalogue in what it
says and in the manual pages that it writes, lines that are too wide, and JSON that has changed with the language."""
import json
import os
import re
import subprocess
import sys
import tempfile
import unicodedata
from pathlib import Path

import po_file

HOSTADM, CATALOGUE = sys.argv[1:3]
WIDTH = 80


def said(*words, language="de"):
    """What the command says, on either output."""
    surroundings = {"PATH": os.environ["PATH"], "LANG": "C.UTF-8", "LANGUAGE": language, "COLUMNS": str(WIDTH)}
    for name in ("ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"):
        if name in os.environ:
            surroundings[name] = os.environ[name]
    run = subprocess.run([HOSTADM, *words], env=surroundings, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, check=False)
    return run.stdout.decode()


def one_line(text):
    return re.sub(r"\s+", " ", text)


def english_pieces(entries):
    """The parts of English texts between their places that are long enough to be no accident in German."""
    german = one_line(" ".join(form for entry in entries for form in entry.translated))
    pieces = set()
    for entry in entries:
        for form in entry.english:
            for piece in re.split(r"\{[1-9]\}", one_line(form)):
                piece = piece.strip(" .,;:\"")
                if len(re.findall(r"[A-Za-z]{2,}", piece)) >= 3 and piece not in german:
                    pieces.add(piece)
    return sorted(pieces)


def english_in(text, pieces):
    spoken = one_line(text)
    return [piece for piece in pieces if re.search(r"(?<!\w)" + re.escape(piece) + r"(?!\w)", spoken)]


def without_markup(page):
    for mark, meant in (("\\-", "-"), ("\\(ga", "`"), ("\\e", "\\"), ("\\&", "")):
        page = page.replace(mark, meant)
    return page


def defects_of_manual_pages(pieces, methods):
    """The pages that are written for a German reader are German, and lie where man looks for such."""
    with tempfile.TemporaryDirectory() as share:
        said("generate", share)
        pages = sorted(Path(share).rglob("*.[18]"))
        if len(pages) != methods + 1:
            yield f"{len(pages)} manual pages of {methods} methods"
        for page in pages:
            name = page.relative_to(share)
            if not str(name).startswith("man/de/man"):
                yield f"{name} lies where the English pages do"
            yield from (f"{name}: English: {piece}" for piece in
                        english_in(without_markup(page.read_text(encoding="utf-8")), pieces))


def columns_of(line):
    return sum(2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in line if not unicodedata.combining(c))


def main():
    pieces = english_pieces(po_file.read(CATALOGUE))
    assert len(pieces) > 1000
    methods = [line.split()[0] for line in said("list", language="en").splitlines() if re.match(r"\w+/\w+", line)]
    assert len(methods) > 40, methods
    commands = ["list", "help", "run", "preview", "status", "check", "rehearse", "watch", "arg"]
    runs = [["list"], ["--help"], ["lst"], ["help", "no/such"], ["run", "no/such"], ["run", "client/show"],
            ["run", "client/add_diskless"], ["run", "client/show", "hostname=-"], ["run", "client/show", "host=x"],
            ["run", "client/show", "hostname=a", "hostname=b"], ["run", "client/show", "word"],
            ["run", "service/add", "os_name=x", "os_version=5.5", "instruction_set=i386"], ["arg", "set"],
            ["list", "no_such"], ["--no-such"]]
    runs += [["help", method] for method in methods]
    runs += [[command, "--help"] for command in commands]
    defects = []
    wide = {("help", method) for method in methods} | {(command, "--help") for command in commands} | {("list",)}
    for words in runs:
        text = said(*words)
        shown = " ".join(words)
        if text == said(*words, language="en"):
            defects.append(f"hostadm {shown}: says the same in English: {text}")
        defects += [f"hostadm {shown}: English: {piece}" for piece in english_in(text, pieces)]
        defects += [f"hostadm {shown}: heading in English: {heading}" for heading in ("Options:", "Subcommands:", "Usage:")
                    if heading in text]
        if tuple(words) in wide:
            defects += [f"hostadm {shown}: wider than {WIDTH}: {line}" for line in text.splitlines()
                        if columns_of(line) > WIDTH and " " in line.strip()]
    for words in (["list", "--json"], ["run", "--json", "client/show"]):
        german, english = json.loads(said(*words).split("\nhostadm:")[0]), json.loads(
            said(*words, language="en").split("\nhostadm:")[0])
        keys = [entry.keys() if isinstance(entry, dict) else entry for entry in (german, english)]
        if isinstance(german, list):
            keys = [[entry["method"] for entry in one] for one in (german, english)]
        if keys[0] != keys[1]:
            defects.append(f"hostadm {' '.join(words)}: names in JSON depend on the language")
    defects += defects_of_manual_pages(pieces, len(methods))
    print("\n".join(defects))
    sys.exit(1 if defects else 0)


if __name__ == "__main__":
    main()
