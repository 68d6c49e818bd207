# SPDX-License-Identifier: MIT
"""The completion in a real bash, without the package bash-completion."""
import re
import shlex
import shutil

from support import *

COMPLETION = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../cli/vexadm.bash")


class Completion(ToolTest):
    def setUp(self):
        super().setUp()
        make_store()
        os.makedirs("/tmp/bin")
        os.makedirs("/tmp/cwd/folder")
        write_bytes("/tmp/cwd/file.txt", b"")
        self.program = "/tmp/bin/vexadm"
        write_bytes(self.program, ("#!/bin/sh\nexec " + " ".join(self.command('"$@"')) + "\n").encode())
        os.chmod(self.program, 0o755)

    def complete(self, *words):
        """What is offered for the last word, as the words stand on the line."""
        script = (f". {shlex.quote(COMPLETION)}; COMP_WORDS=({' '.join(map(shlex.quote, (self.program,) + words))}); "
                  "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); set -u; _vexadm; [ ${#COMPREPLY[@]} -eq 0 ] || "
                  "printf '%s\\n' \"${COMPREPLY[@]}\"")
        done = subprocess.run(["bash", "--norc", "-c", script], capture_output=True, cwd="/tmp/cwd", timeout=50, check=True,
                              env={**os.environ, "HOME": "/tmp"})
        self.assertEqual(done.stderr, b"")
        return done.stdout.decode().splitlines()

    def test_commands(self):
        self.assertEqual(self.complete("de"), ["defaults"])
        self.assertEqual(self.complete("--quiet", "ver"), ["versions", "version"])
        self.assertEqual(self.complete(""), self.vexadm("__words", "commands").out.split())
        self.assertEqual(self.complete("help", "di"), ["diff"])
        self.assertEqual(self.complete("help", "diff", ""), [])

    def test_options_of_the_command_and_of_all(self):
        self.assertEqual(self.complete("--r"), ["--root"])
        self.assertEqual(self.complete("get", "--ra"), ["--raw"])
        self.assertEqual(self.complete("list", "--ra"), [])
        self.assertEqual(self.complete("get", "wifi", "--h"), ["--hex"])
        self.assertEqual(self.complete("get", "--", "--h"), [])

    def test_tables_and_keys_of_the_store(self):
        self.assertEqual(self.complete("list", ""), ["NET", "SQL_VER_TAB", "system", "wifi"])
        self.assertEqual(self.complete("get", "wi"), ["wifi"])
        self.assertEqual(self.complete("get", "--raw", "wifi", ""), ["channel", "psk", "ssid"])
        self.assertEqual(self.complete("set", "WIFI", "ps"), ["psk"])
        self.assertEqual(self.complete("get", "wifi", "ssid", ""), [])

    def test_the_store_that_the_line_names(self):
        shutil.copytree("/data", "/tmp/tree/data")
        os.makedirs("/tmp/two words/data")
        for path in ("/tmp/tree/data/configbak.db", "/tmp/two words/data/configbak.db"):
            make_items(path, [item("lan", 1, "mtu", U16, 1500)])
        self.assertEqual(self.complete("--root", "/tmp/tree", "get", ""), ["SQL_VER_TAB", "lan"])
        self.assertEqual(self.complete("get", "--root", "=", "/tmp/tree", "lan", ""), ["mtu"])
        self.assertEqual(self.complete("get", "--root", "/tmp/two\\ words", "la"), ["lan"])
        self.assertEqual(self.complete("get", "--root", "'/tmp/two words'", "la"), ["lan"])
        self.assertEqual(self.complete("--store", "/tmp/tree/data/", "list", "la"), ["lan"])
        self.assertEqual(self.complete("--store", "/tmp/tree/data/", "--backup-store", "/data/", "list", "wi"), ["wifi"])
        self.assertEqual(self.complete("--root", "/nowhere", "list", ""), [])

    def test_values_of_options(self):
        self.assertEqual(self.complete("list", "--file", "f"), ["factory", "file.txt", "folder"])
        self.assertEqual(self.complete("list", "--file", "=", "pr"), ["primary"])
        self.assertEqual(self.complete("list", "--file", "="), self.complete("list", "--file", ""))
        self.assertEqual(self.complete("set", "--type", "u"), ["u8", "u16", "u32", "u32alt"])
        self.assertEqual(self.complete("set", "--from", "fi"), ["file.txt"])
        self.assertEqual(self.complete("--root", "f"), ["folder"])
        self.assertEqual(self.complete("watch", "--count", ""), [])
        self.assertEqual(self.complete("watch", "--count", "3", "wifi", "s"), ["ssid"])

    def test_files_and_interfaces(self):
        self.assertEqual(self.complete("load", "f"), ["file.txt", "folder"])
        self.assertEqual(self.complete("diff", "folder", "fo"), ["folder"])
        self.assertIn("lo", self.complete("gateway", "l"))

    def test_names_are_offered_so_that_the_shell_reads_one_word(self):
        make_items(BACKUP, [item("t", number, key, U8, 1) for number, key in enumerate(
            ("a b", "a$(touch /tmp/pwned)", "a`touch /tmp/pwned`", "a;b", "a\nb", "a\x1bb", "\u00fcber", "a'b"))])
        offered = self.complete("get", "t", "")
        self.assertEqual(len(offered), 6)  # none with a control character
        read = subprocess.run(["bash", "--norc", "-c", "printf '%s\\n' " + " ".join(offered)], capture_output=True, check=True)
        self.assertEqual(sorted(read.stdout.decode().splitlines()),
                         sorted(("a b", "a$(touch /tmp/pwned)", "a`touch /tmp/pwned`", "a;b", "\u00fcber", "a'b")))
        self.assertEqual(self.complete("get", "t", '"a b'), ["a b"])
        self.assertEqual(self.complete("get", "t", "a\\ "), ["a\\ b"])
        self.assertFalse(os.path.exists("/tmp/pwned"))

    def test_a_damaged_store_offers_what_is_left_and_says_nothing(self):
        spoil(BACKUP)
        self.assertEqual(self.complete("get", "wi"), ["wifi"])  # the primary's
        spoil(PRIMARY)
        self.assertEqual(self.complete("get", ""), [])

    def test_it_knows_every_option_that_has_a_value(self):
        with open(COMPLETION, encoding="utf-8") as file:
            known = set(re.search(r"^ +(--root \| .*)\) waiting=", file.read(), re.M).group(1).split(" | "))
        takes = set()
        for command in self.vexadm("__words", "commands").out.split():
            for page in (self.vexadm("help").out, self.vexadm("help", command).out):
                takes |= set(re.findall(r"^  (--[a-z-]+) [A-Z]+\b", page, re.M))
        self.assertEqual(known, takes)
