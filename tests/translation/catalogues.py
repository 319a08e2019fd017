#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""catalogues.py TEMPLATE FOLDER -- EXTRACT...: makes the template anew and holds each LANG.po in FOLDER against it: nothing
is missing, fuzzy or left over, and every translation has the places {1}, {2}, ... and the commands in `...` of its text."""
import pathlib
import re
import subprocess
import sys

import po_file

PLACE = re.compile(r"\{[1-9]\}")
COMMAND = re.compile(r"`[^`]*`")


def defects_of(entry):
    """What is wrong with a translation, in words."""
    text = entry.english[0]
    if not entry.translated or not all(entry.translated):
        yield f"not translated: {text}"
        return
    if entry.fuzzy:
        yield f"fuzzy: {text}"
    # One of the forms may say the number in words.
    wanted = [set(PLACE.findall(form)) for form in entry.english]
    for at, form in enumerate(entry.translated):
        places = set(PLACE.findall(form))
        if places not in wanted:
            yield f"other places than its text: {form}"
        if sorted(COMMAND.findall(form)) != sorted(COMMAND.findall(text)):
            yield f"other commands in `...` than its text: {form}"
        if len(entry.english) == 1 and at > 0:
            yield f"forms that its text does not have: {text}"
        if (text.startswith(" "), text.endswith(" ")) != (form.startswith(" "), form.endswith(" ")):
            yield f"blanks at its ends differ from its text: {form}"


def main():
    template, folder, extract = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[4:]
    subprocess.run([*extract, template], check=True)
    wanted = {tuple(entry.english) for entry in po_file.read(template)}
    assert len(wanted) > 1000, "hardly any text was found"
    defects = []
    translations = sorted(folder.glob("*.po"))
    assert translations
    for path in translations:
        entries = po_file.read(path)
        here = {tuple(entry.english) for entry in entries}
        defects += [f"{path.name}: lacks: {english[0]}" for english in sorted(wanted - here)]
        defects += [f"{path.name}: is no text any more: {english[0]}" for english in sorted(here - wanted)]
        defects += [f"{path.name}: {defect}" for entry in entries for defect in defects_of(entry)]
        subprocess.run(["msgfmt", "--check", "--output-file=/dev/null", path], check=True)
    print("\n".join(defects))
    if defects:
        sys.exit("run the target update-translations and translate what is new")


if __name__ == "__main__":
    main()
