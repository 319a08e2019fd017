#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""shells_test.py INSTALLATION COMPLETIONS

Types command lines with a tab in them to real shells and looks at the words that each shell makes of the line:
INSTALLATION is a tree with bin/hostadm, COMPLETIONS the folder of the shells' completion files. Whatever the
files and tables of a server are called, no shell ever runs a part of a name.
"""

import os
import pty
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

INSTALLATION, COMPLETIONS = Path(sys.argv[1]), Path(sys.argv[2])
LONGEST_WAIT = 60  # seconds, on a machine that has much else to do

CLIENT_LIST = r"""#!/bin/sh
if [ "$1" = --describe ]; then
    echo '{"name": "client/list_names", "purpose": "clients", "columns": [{"name": "name"}]}'
    exit
fi
for name in alpha beta '$(touch gone)x' '`touch gone`y' ';touch gone' '-dash' "quo'te" 'dou"ble' 'bang!x' 'new
line' 'two words' '*' '~tilde' '#comment' 'back\slash' '|touch gone' '&touch gone' '<gone' '>gone' '{a,b}'; do
    hostadm arg row name="$name"
done
"""
SITE_TAKE = r"""#!/bin/sh
cat <<'END'
{"name": "site/take", "purpose": "take", "arguments": [{"name": "client", "kind": "text"}],
 "values": [{"argument": "client", "method": "client/list_names", "column": "name"}]}
END
"""
# Instead of running the line, its words are written down.
SHOW = """#!/bin/sh
printf '%s\\0' "$@" >"$SEEN.new"
mv "$SEEN.new" "$SEEN"
"""

STARTS = {
    "bash": ["bash", "--norc", "--noprofile", "-i"],
    "zsh": ["zsh", "-f", "-i"],
    "fish": ["fish", "--no-config", "--interactive"],
}
SETUPS = {
    "bash": "bind 'set enable-bracketed-paste off'; bind 'set bell-style none'; "
    "bind 'set completion-query-items -1'; bind 'set page-completions off'; . '{files}/hostadm.bash'",
    "zsh": "fpath=('{files}' $fpath); autoload -U compinit; compinit -D -u; bindkey -e; unsetopt beep; "
    "zstyle ':completion:*' insert-tab false; LISTMAX=1000",
    "fish": "source '{files}/hostadm.fish'",
}
TO_BEGIN_OF_LINE = b"\x01"
CLEAR_LINE = b"\x05\x15"  # to the end, then all before it


class Shell:
    """An interactive shell on a terminal of its own."""

    def __init__(self, name, home):
        self.seen = home / "seen"
        environment = {
            "PATH": f"{home}/bin:{home}/root/bin:/usr/bin:/bin:/usr/sbin:/sbin",
            "HOME": str(home),
            "XDG_CONFIG_HOME": str(home / "config"),
            "XDG_DATA_HOME": str(home / "data"),
            "TERM": "xterm",
            "LC_ALL": "C.UTF-8",
            "SEEN": str(self.seen),
            "PS1": "> ",
        }
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.chdir(home / "work")
            os.execvpe(STARTS[name][0], STARTS[name], environment)
        self.heard = b""
        self.type(SETUPS[name].format(files=home / "files").encode() + b"\r")
        self.words("show ready", "")

    def close(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        os.close(self.terminal)

    def type(self, keys):
        while keys:
            self.listen(0)
            keys = keys[os.write(self.terminal, keys) :]

    def listen(self, seconds):
        while select.select([self.terminal], [], [], seconds)[0]:
            seconds = 0
            try:
                self.heard += os.read(self.terminal, 65536)
            except OSError:
                return

    def words(self, typed, more="\t"):
        """The words of a line when it was typed and completed."""
        self.seen.unlink(missing_ok=True)
        # The name of the command that writes the words down comes in front last, when everything is completed.
        self.type(typed.encode() + more.encode() + TO_BEGIN_OF_LINE + (b"show " if more else b"") + b"\r")
        end = time.monotonic() + LONGEST_WAIT
        while not self.seen.exists():
            if time.monotonic() > end:
                raise AssertionError(f"nothing came of {typed!r}; the terminal shows {self.heard[-3000:]!r}")
            self.listen(0.02)
        return [word.decode() for word in self.seen.read_bytes().split(b"\0")[:-1]]


HOSTILE = ["$(touch gone)", "`touch gone`", ";touch gone", "two words", "quo'te", 'dou"ble', "bang!x", "star*",
           "~tilde", "#comment", "back\\slash", "|touch gone", "&touch gone", "<gone", ">gone", "{a,b}", "[ab]", "?x",
           "^caret", "=cmd", "%1", "(sub)", "a:b@c", "dollar$HOME"]


class ShellsTest:
    shell_name = ""

    def setUp(self):
        self.home = Path(tempfile.mkdtemp(prefix="hostadm-shells-"))
        self.addCleanup(shutil.rmtree, self.home, ignore_errors=True)
        shutil.copytree(INSTALLATION, self.home / "root", symlinks=True)
        shutil.copytree(COMPLETIONS, self.home / "files")
        for folder in ("bin", "config", "data", "work"):
            (self.home / folder).mkdir()
        self.write("bin/show", SHOW)
        self.write("root/libexec/hostadm/methods/client/list_names", CLIENT_LIST)
        self.write("root/libexec/hostadm/methods/site/take", SITE_TAKE)
        self.shell = None

    def write(self, name, text):
        path = self.home / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        path.chmod(0o755)

    def words(self, typed):
        if self.shell is None:
            self.shell = Shell(self.shell_name, self.home)
            self.addCleanup(self.shell.close)
        return self.shell.words(typed)

    def nothing_was_run(self):
        self.assertEqual(sorted(self.home.rglob("gone")), [])

    def test_commands_methods_arguments_and_values_are_completed(self):
        self.assertEqual(self.words("hostadm prev"), ["hostadm", "preview"])
        self.assertEqual(self.words("hostadm run test/ec"), ["hostadm", "run", "test/echo"])
        self.assertEqual(self.words("hostadm run test/echo tim"), ["hostadm", "run", "test/echo", "times="])
        self.assertEqual(self.words("hostadm run test/echo rows=y"), ["hostadm", "run", "test/echo", "rows=yes"])
        self.assertEqual(self.words("hostadm run site/take client=al"),
                         ["hostadm", "run", "site/take", "client=alpha"])
        self.assertEqual(self.words("hostadm check be"), ["hostadm", "check", "beta"])
        self.assertEqual(self.words("hostadm run --js"), ["hostadm", "run", "--json"])

    def test_one_goes_on_typing_behind_a_name_and_behind_a_whole_word(self):
        self.assertEqual(self.words("hostadm run test/echo rows\ty"), ["hostadm", "run", "test/echo", "rows=yes"])
        self.assertEqual(self.words("hostadm ru\ttest/ec\tro\ty"), ["hostadm", "run", "test/echo", "rows=yes"])
        (self.home / "work/folder").mkdir()
        (self.home / "work/folder/trace.pcap").touch()
        self.assertEqual(self.words("hostadm watch --read fol\ttr"),
                         ["hostadm", "watch", "--read", "folder/trace.pcap"])

    def test_what_is_typed_in_quotes_is_completed(self):
        for opening in ("'", '"'):
            self.assertEqual(self.words(f"hostadm run site/take {opening}client=two"),
                             ["hostadm", "run", "site/take", "client=two words"])
            self.assertEqual(self.words(f"hostadm run site/take client={opening}two"),
                             ["hostadm", "run", "site/take", "client=two words"])

    def test_names_of_files_are_never_run(self):
        for number, name in enumerate(HOSTILE):
            folder = f"f{number}"
            (self.home / "work" / folder).mkdir()
            (self.home / "work" / folder / name).touch()
            with self.subTest(name):
                self.assertEqual(self.words(f"hostadm watch --read {folder}/"),
                                 ["hostadm", "watch", "--read", f"{folder}/{name}"])
        self.nothing_was_run()

    def test_names_of_files_are_never_run_in_quotes(self):
        for number, name in enumerate(HOSTILE):
            folder = f"f{number}"
            (self.home / "work" / folder).mkdir()
            (self.home / "work" / folder / name).touch()
            for quote in ("'", '"'):
                with self.subTest(name, quote=quote):
                    self.assertEqual(self.words(f"hostadm watch --read {quote}{folder}/"),
                                     ["hostadm", "watch", "--read", f"{folder}/{name}"])
        self.nothing_was_run()

    def test_names_of_files_in_the_folder_where_one_is_are_never_taken_for_options(self):
        (self.home / "work/-dash").touch()
        (self.home / "work/--json").touch()
        self.assertEqual(self.words("hostadm watch --read "), ["hostadm", "watch", "--read"])

    def test_names_that_a_table_holds_are_never_run(self):
        for beginning, name in (("\\$", "$(touch gone)x"), ("\\`", "`touch gone`y"), ("\\;", ";touch gone"),
                                ("quo", "quo'te"), ("dou", 'dou"ble'), ("bang", "bang!x"), ("two", "two words"),
                                ("\\~", "~tilde"), ("back", "back\\slash"), ("\\|", "|touch gone"),
                                ("\\&", "&touch gone"), ("\\<", "<gone"), ("\\>", ">gone"), ("\\{", "{a,b}")):
            with self.subTest(name):
                self.assertEqual(self.words(f"hostadm run site/take client={beginning}"),
                                 ["hostadm", "run", "site/take", f"client={name}"])
        self.nothing_was_run()

    def test_nothing_that_would_steer_the_terminal_is_shown(self):
        (self.home / "work/one\x1b[2Jx").touch()
        (self.home / "work/one\nline").touch()
        (self.home / "work/one").touch()
        self.assertEqual(self.words("hostadm watch --read on"), ["hostadm", "watch", "--read", "one"])

    def test_a_line_that_nothing_fits_stays_as_it_is(self):
        self.assertEqual(self.words("hostadm run test/echo zzz"), ["hostadm", "run", "test/echo", "zzz"])
        self.assertEqual(self.words("hostadm zzz zzz"), ["hostadm", "zzz", "zzz"])

    def test_without_the_methods_the_commands_are_completed(self):
        shutil.rmtree(self.home / "root/libexec/hostadm/methods")
        self.assertEqual(self.words("hostadm prev"), ["hostadm", "preview"])
        self.assertEqual(self.words("hostadm check al"), ["hostadm", "check", "al"])

    @unittest.skipIf(os.geteuid() != 0, "only root can be somebody else")
    def test_who_may_read_nothing_gets_no_values_and_no_complaint(self):
        self.home.chmod(0o755)
        hostadm = str(self.home / "root/bin/hostadm")
        for mode, offered in ((0o755, "alpha\n"), (0o700, "")):
            (self.home / "root/libexec/hostadm/methods").chmod(mode)
            said = subprocess.run([hostadm, "complete", "zsh", "hostadm", "check", "al"], user=65534, group=65534,
                                  extra_groups=[], cwd="/", capture_output=True, text=True, check=False)
            self.assertEqual((said.returncode, said.stdout, said.stderr), (0, offered, ""))


class Bash(ShellsTest, unittest.TestCase):
    shell_name = "bash"


class Zsh(ShellsTest, unittest.TestCase):
    shell_name = "zsh"


class Fish(ShellsTest, unittest.TestCase):
    shell_name = "fish"


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
