# SPDX-License-Identifier: MIT
"""On a terminal: colour, progress, and a person who types in a shell."""
import os
import pty
import select
import termios
import time

from support import *

RED, YELLOW, BOLD, END = "\x1b[31m", "\x1b[33m", "\x1b[1m", "\x1b[0m"


class Screen:
    """The far end of a terminal."""

    def __init__(self):
        self.near, self.far = pty.openpty()
        attributes = termios.tcgetattr(self.far)
        attributes[1] &= ~termios.OPOST  # lines end as the program ends them
        termios.tcsetattr(self.far, termios.TCSANOW, attributes)
        self.text = b""

    def read(self, until=None, seconds=30):
        """Until the text comes, or else until the other side closes."""
        end = time.monotonic() + seconds
        while until is None or until not in self.text:
            ready, _, _ = select.select([self.near], [], [], max(0, end - time.monotonic()))
            if not ready:
                raise AssertionError(f"{until!r} did not come; there is: {self.text!r}")
            try:
                part = os.read(self.near, 65536)
            except OSError:  # closed
                part = b""
            if not part:
                break
            self.text += part
        return self.text.decode(errors="surrogateescape")

    def close(self):
        os.close(self.near)


class Terminal(ToolTest):
    def on_terminal(self, *words, stream="stdout", environment=None):
        """What comes on that stream, which alone is a terminal, and what on the other."""
        screen = Screen()
        other = {"stdout": "stderr", "stderr": "stdout"}[stream]
        variables = {**os.environ, "TERM": "xterm", **(environment or {})}
        variables = {name: value for name, value in variables.items() if value is not None}
        running = subprocess.Popen(self.command(*words), stdin=subprocess.DEVNULL, env=variables,
                                   **{stream: screen.far, other: subprocess.PIPE})
        os.close(screen.far)
        shown = screen.read()
        rest = getattr(running, other).read().decode()
        getattr(running, other).close()
        running.wait(timeout=30)
        screen.close()
        return shown, rest

    def setUp(self):
        super().setUp()
        make_store()
        sql(BACKUP, "update wifi set crc=1 where key='ssid'")

    def test_colour_is_for_terminals(self):
        shown, rest = self.on_terminal("list", "wifi")
        self.assertEqual(rest, "")
        self.assertIn(f"{BOLD}TABLE{END}", shown)
        self.assertIn(f"{RED}bad{END}", shown)
        plain = self.vexadm("list", "wifi").out
        self.assertNotIn("\x1b", plain)
        for code in (RED, BOLD, END):
            shown = shown.replace(code, "")
        self.assertEqual(shown, plain)

    def test_colour_is_not_for_those_who_want_none(self):
        plain = self.vexadm("list", "wifi").out
        for environment in ({"NO_COLOR": "1"}, {"TERM": "dumb"}, {"TERM": None}):
            self.assertEqual(self.on_terminal("list", "wifi", environment=environment)[0], plain, environment)
        self.assertIn(RED, self.on_terminal("list", "wifi", environment={"NO_COLOR": ""})[0])

    def test_json_is_never_coloured(self):
        self.assertEqual(self.on_terminal("check", "--json")[0], self.vexadm("check", "--json").out)

    def test_faults_are_red_and_remarks_yellow(self):
        write_bytes("/data/.vexadm-copy-config", b"")
        shown = self.on_terminal("check")[0]
        self.assertIn(f"{RED}FAULT   {END}", shown)
        self.assertIn(f"{YELLOW}remark  {END}", shown)

    def test_values_cannot_move_the_cursor(self):
        make_items(BACKUP, [item("t", 1, "k", TEXT, "a\x1b[2Jb\x9b"), item("t", 2, "kv", TEXT, "x,\x1b[2J;")])
        self.assertEqual(self.on_terminal("get", "t", "k", environment={"TERM": "dumb"})[0], "a\\x1b[2Jb\\xc2\\x9b\n")
        self.assertEqual(self.on_terminal("kv", "t", "kv", "x", environment={"TERM": "dumb"})[0], "\\x1b[2J\n")
        self.expect("get", "t", "k", out="a\x1b[2Jb\x9b\n")

    def test_load_shows_its_progress_on_a_terminal_alone(self):
        write_bytes("/tmp/dump", b"vexadm dump 1\nt a 1 u8 1\nt b 2 u8 2\nt c 3 u8 3\n")
        shown, rest = self.on_terminal("load", "--force", "/tmp/dump", stream="stderr")
        self.assertEqual((shown, rest), ("\ritem 1 of 3\ritem 2 of 3\ritem 3 of 3\r\x1b[Kvexadm: 3 items stored\n", ""))
        write_bytes("/tmp/dump", b"vexadm dump 1\nt a 1 u8 4\n")
        self.assertEqual(self.on_terminal("load", "--force", "--quiet", "/tmp/dump", stream="stderr"), ("", ""))
        write_bytes("/tmp/dump", b"vexadm dump 1\nt a 1 u8 5\n")
        self.expect("load", "--force", "/tmp/dump", err="vexadm: 1 item stored\n")

    def test_a_wait_for_a_lock_is_told_there_alone(self):
        make_store()
        holder = sqlite3.connect(BACKUP, isolation_level=None)
        holder.execute("begin exclusive")
        refusal = "vexadm: /data/configbak.db cannot be read: database is locked; vexadm check tells more\n"
        waiting = "waiting for a lock on /data/configbak.db\r\x1b[K"
        self.assertEqual(self.on_terminal("get", "wifi", "ssid", stream="stderr"), (waiting + refusal, ""))
        self.assertEqual(self.on_terminal("get", "wifi", "ssid", "--quiet", stream="stderr"), (refusal, ""))
        self.expect("get", "wifi", "ssid", code=1, err=refusal)
        holder.close()


class Session(ToolTest):
    def test_a_person_finds_an_item_by_the_tabulator_and_changes_it(self):
        make_store()
        os.mkdir("/tmp/bin")
        write_bytes("/tmp/bin/vexadm", ("#!/bin/sh\nexec " + " ".join(self.command('"$@"')) + "\n").encode())
        os.chmod("/tmp/bin/vexadm", 0o755)
        completion = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../cli/vexadm.bash")
        screen = Screen()
        shell = subprocess.Popen(
            ["bash", "--norc", "--noprofile", "-i"], stdin=screen.far, stdout=screen.far, stderr=screen.far,
            start_new_session=True, cwd="/tmp",
            env={**os.environ, "PATH": "/tmp/bin:/usr/bin:/bin", "TERM": "dumb", "PS1": "<ready>", "HOME": "/tmp",
                 "INPUTRC": "/dev/null", "HISTFILE": "/dev/null"})
        os.close(screen.far)

        def types(text, until):
            screen.text = b""
            os.write(screen.near, text)
            return screen.read(until)

        screen.read(b"<ready>")
        types(f". {completion}; bind 'set enable-bracketed-paste off'\r".encode(), b"<ready>")
        types(b"vexadm ge\t", b"get ")
        types(b"wi\t", b"wifi ")
        types(b"ss\t", b"ssid ")
        self.assertIn("Garden house", types(b"\r", b"<ready>"))
        types(b"vexadm set wifi ch\t7\r", b"<ready>")
        self.assertIn("7\n", types(b"vexadm get wifi channel\r", b"<ready>").replace("\r", ""))
        os.write(screen.near, b"exit\r")
        shell.wait(timeout=30)
        screen.close()
