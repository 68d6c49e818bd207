# SPDX-License-Identifier: MIT
"""The command line: where options stand, what is refused and with which code, and the help, whose
examples are run."""
import re
import shlex
import shutil

from support import *

EXPECTED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected")
COMMANDS = ("list get set empty watch check repair journal versions defaults backups export dump load diff clean kv "
            "ussd at gateway wait-ip crc help version").split()
TIME = re.compile(r"\d{4}-\d\d-\d\d[ _]\d\d[:_]\d\d[:_]\d\d")


class Help(ToolTest):
    def same_as_accepted(self, name, text):
        """With VEXA_TOOL_ACCEPT=1 what is printed becomes what is expected; read the difference then."""
        path = os.path.join(EXPECTED, name + ".txt")
        if os.environ.get("VEXA_TOOL_ACCEPT") == "1":
            write_bytes(path, text.encode())
        self.assertEqual(text, read_bytes(path).decode())

    def page(self, *words):
        result = self.vexadm(*words)
        self.assertEqual((result.code, result.err), (0, ""), words)
        return result.out

    def test_every_page_is_the_accepted_one(self):
        self.assertEqual(sorted(os.listdir(EXPECTED)), sorted(["help.txt"] + [f"help-{one}.txt" for one in COMMANDS]))
        self.same_as_accepted("help", self.page("help"))
        for command in COMMANDS:
            self.same_as_accepted("help-" + command, self.page("help", command))

    def test_every_way_to_the_help_leads_there(self):
        overview, page = self.page("help"), self.page("help", "list")
        for words in ((), ("--help",), ("-h",), ("--json", "-h")):
            self.assertEqual(self.page(*words), overview)
        for words in (("list", "--help"), ("--help", "list"), ("list", "wifi", "-h"), ("help", "list")):
            self.assertEqual(self.page(*words), page)

    def test_the_overview_names_every_command(self):
        listed = re.findall(r"^  ([a-z-]+) ", self.page("help"), re.M)
        self.assertEqual([one for one in listed if not one.startswith("--")], COMMANDS)
        self.assertEqual(self.page("__words", "commands").split(), COMMANDS)

    def test_pages_are_for_a_terminal(self):
        for words in [("help",)] + [("help", command) for command in COMMANDS]:
            page = self.page(*words)
            self.assertTrue(page.startswith("usage: vexadm "), words)
            self.assertLessEqual(max(map(len, page.splitlines())), 105, words)
            self.assertTrue(page.isascii(), words)

    def test_help_of_what_is_not_there_is_wrong_usage(self):
        self.expect("help", "frob", code=2, err="vexadm: there is no command frob; vexadm help lists them\n")

    # ---- the examples, which print what they say ---------------------------------

    def examples(self, command):
        """Command lines with what is shown below each."""
        text = self.page("help", command).split("\nexample:\n")[1]
        shown = []
        for line in text.splitlines(keepends=True):
            self.assertTrue(line.startswith("  ") or line == "\n", (command, line))
            line = line[2:] if line != "\n" else line
            if line.startswith("$ "):
                shown.append([line[2:].strip(), ""])
            else:
                shown[-1][1] += line if line.strip() else "\n"
        self.assertTrue(shown, command)
        return shown

    def tells_the_truth(self, command):
        os.makedirs("/tmp/cwd", exist_ok=True)
        for line, shown in self.examples(command):
            words = shlex.split(line)
            if words[0] != "vexadm":
                continue
            self.assertEqual(words[1], command)
            result = self.vexadm(*words[1:], cwd="/tmp/cwd")
            said = "\n".join(one.rstrip() for one in TIME.sub("TIME", result.out).splitlines())
            self.assertEqual(said, TIME.sub("TIME", shown).rstrip(), line)
            self.assertIn(result.code, (0, 1), line)

    def test_examples_of_looking_tell_the_truth(self):
        ssid = GARDEN[-1]
        make_store((item("wifi", 21, "channel", U8, 11), ssid))
        make_defaults((ssid._replace(value=b"Router"),))
        for command in ("get", "journal", "dump", "crc", "version", "ussd"):
            self.tells_the_truth(command)
        self.expect("defaults", "wifi", out="\n".join(one[2:] for one in self.page("help", "defaults").split(
            "$ vexadm defaults wifi\n")[1].splitlines()) + "\n")
        self.tells_the_truth("list")
        make_items(BACKUP, [item("system", 30, "hosts", TEXT, "router,192.168.1.1;printer,192.168.1.9;")])
        self.tells_the_truth("kv")

    def test_examples_of_files_tell_the_truth(self):
        make_store(changed("Router")[-1:])
        os.makedirs("/tmp/cwd/before")
        make_store(changed("Router")[-1:], "/tmp/cwd/before/")
        os.makedirs("/tmp/cwd/after")
        make_store(GARDEN[-1:], "/tmp/cwd/after/")
        self.tells_the_truth("diff")
        write_bytes("/tmp/cwd/settings.txt", b'vexadm dump 1\nwifi ssid 20 text "Garden house"\n')
        self.tells_the_truth("load")
        self.expect("get", "wifi", "ssid", out="Garden house\n")
        self.tells_the_truth("export")
        self.tells_the_truth("empty")
        self.tells_the_truth("set")
        make_store(changed("Router")[-1:])
        spoil(PRIMARY)
        self.tells_the_truth("repair")
        self.tells_the_truth("clean")
        self.assertEqual(len(self.json("backups")["copies"]), 1)

    def test_examples_of_a_diagnosis_tell_the_truth(self):
        make_store(GARDEN[-3:])
        make_defaults()
        self.tells_the_truth("versions")
        os.unlink(DEFAULTS)
        spoil(PRIMARY)
        self.tells_the_truth("check")


class Arguments(ToolTest):
    def test_options_stand_before_and_behind_the_command(self):
        make_store()
        shutil.copytree("/data", "/tmp/tree/data")
        make_items("/tmp/tree/data/configbak.db", changed("Tree"))
        for words in (("--root", "/tmp/tree", "get", "wifi", "ssid"), ("get", "--root", "/tmp/tree", "wifi", "ssid"),
                      ("get", "wifi", "ssid", "--root=/tmp/tree"), ("--root=/tmp/tree/", "get", "--", "wifi", "ssid"),
                      ("--quiet", "get", "wifi", "--root", "/nowhere", "ssid", "--root", "/tmp/tree")):
            self.expect(*words, out="Tree\n")

    def test_words_behind_two_dashes_are_no_options(self):
        make_store((item("t", 1, "--raw", TEXT, "odd"), item("t", 2, "-1", TEXT, "negative")))
        self.expect("get", "t", "--", "--raw", out="odd\n")
        self.expect("get", "--raw", "--", "t", "--raw", out="odd")
        self.expect("get", "t", "-1", out="negative\n")
        self.expect("set", "t", "-1", "-5", err=STORED)
        self.expect("get", "t", "-1", out="-5\n")
        self.expect("--", "get", "t", "--", code=1, err="vexadm: /data/configbak.db has no -- in table t; vexadm list t "
                                                        "shows what there is\n")

    def test_a_dash_alone_is_standard_input(self):
        self.expect("load", "-", stdin="vexadm dump 1\nt k 1 u8 5\n", err="vexadm: 1 item stored\n")
        self.expect("set", "t", "k", "--from", "-", stdin="7\n", err=STORED)
        self.expect("get", "t", "k", out="7\n")

    def test_wrong_usage_is_exit_2_and_says_what_is_right(self):
        lines = {
            ("frob",): "there is no command frob; vexadm help lists them",
            ("--quiet",): "which command? vexadm help lists them",
            ("--frob", "list"): "there is no option --frob that could stand before the command",
            ("--file", "primary", "list"): "there is no option --file that could stand before the command",
            ("list", "--frob"): "list knows no option --frob; see vexadm help list",
            ("list", "-x"): "list knows no option -x; see vexadm help list",
            ("list", "--file"): "--file needs WHICH behind it",
            ("list", "--root"): "--root needs DIR behind it",
            ("list", "--json=yes"): "--json takes no value",
            ("list", "a", "b"): "usage: vexadm list [TABLE]",
            ("get", "wifi"): "usage: vexadm get TABLE KEY",
            ("check", "all"): "usage: vexadm check",
            ("diff", "a"): "usage: vexadm diff A B",
            ("dump", "--json"): "dump has no --json form",
            ("clean", "--json"): "clean has no --json form",
            ("list", "--file", "frob"):
                "--file frob: primary, backup, factory, defaults, or a path with a slash or a dot in it",
            ("crc", "0"): "HEX: bytes in hexadecimal",
            ("crc", ""): "HEX: bytes in hexadecimal",
            ("ussd", "zz", "00"): "DCS zz: two hexadecimal digits, such as 0f or 48",
            ("ussd", "0f", ""): "HEX: 1 to 255 bytes in hexadecimal",
            ("ussd", "0f", "00" * 256): "HEX: 1 to 255 bytes in hexadecimal",
            ("watch", "t", "k", "--interval", "0"): "--interval 0: milliseconds, 1 to 3600000",
            ("watch", "t", "k", "--count", "x"): "--count x: how many values to print, 1 at least",
            ("clean",): "this deletes /data/config.db, its backup and its journal; say --yes if that is meant",
            ("set", "wifi", "ssid"): None, ("set", "wifi", "ssid", "x", "--from", "y"): None,
        }
        make_store()
        before = snapshot("/data")
        for words, text in lines.items():
            result = self.vexadm(*words)
            self.assertEqual((result.code, result.out), (2, ""), words)
            if text is not None:
                self.assertEqual(result.err.rstrip(), ("vexadm: " + text).rstrip(), words)
        self.assertEqual(snapshot("/data"), before)

    def test_store_ends_in_a_slash_and_has_at_most_50_characters(self):
        self.expect("list", "--store", "/tmp/x", code=2,
                    err="vexadm: --store /tmp/x: the directory needs a slash at its end\n")
        self.expect("list", "--backup-store=", code=2,
                    err="vexadm: --backup-store : the directory needs a slash at its end\n")
        fits, too_long = "/tmp/" + "s" * 44 + "/", "/tmp/" + "s" * 45 + "/"
        os.mkdir(fits)
        make_store(directory=fits)
        self.expect("--store", fits, "get", "wifi", "ssid", out="Garden house\n")
        self.expect("--store", fits, "set", "wifi", "ssid", "x", err=STORED)
        self.expect("--store", too_long, "list", code=2,
                    err=f"vexadm: --store {too_long}: 51 characters, and 50 is the most that the library takes\n")

    def test_a_moved_store_is_read_and_written_where_it_is(self):
        os.mkdir("/tmp/one")
        os.mkdir("/tmp/two")
        self.expect("--store", "/tmp/one/", "--backup-store", "/tmp/two/", "set", "t", "k", "--id", "1", "--type", "u8", "5",
                    err=STORED)
        self.assertEqual((sorted(os.listdir("/tmp/one")), os.listdir("/tmp/two"), os.listdir("/data")),
                         (["config.db", "state.db"], ["configbak.db"], []))
        files = self.json("check", "--store", "/tmp/one/", "--backup-store", "/tmp/two/")["files"]
        self.assertEqual([files[name]["file"] for name in ("primary", "backup", "journal")],
                         ["/tmp/one/config.db", "/tmp/two/configbak.db", "/tmp/one/state.db"])
        self.expect("--store", "/tmp/one/", "list", code=1,
                    err="vexadm: /tmp/one/configbak.db is not there, so programs read defaults; vexadm check tells more, "
                        "--file primary shows the primary\n")

    def test_quiet_leaves_out_remarks_and_no_failures(self):
        self.expect("set", "t", "k", "--id", "1", "--type", "u8", "5", "--quiet")
        self.expect("set", "t", "k", "5", "--quiet")
        self.expect("get", "t", "k", "--quiet", out="5\n")
        self.expect("get", "t", "x", "--quiet", code=1,
                    err="vexadm: /data/configbak.db has no x in table t; vexadm list t shows what there is\n")
