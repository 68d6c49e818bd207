# SPDX-License-Identifier: MIT
"""The manual page, which is made from what the program says of itself."""
import re

from support import *

TREE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")


class Manual(ToolTest):
    def page(self):
        subprocess.run([os.path.join(TREE, "tools/tool-manual"), os.path.join(TREE, "packaging/debian/changelog"),
                        "/tmp/vexadm.1", *self.command()], check=True)
        return read_bytes("/tmp/vexadm.1").decode("ascii")

    def test_it_has_every_section_and_command(self):
        page = self.page()
        self.assertEqual(re.findall(r"^\.SH (.*)$", page, re.M), [
            "NAME", "SYNOPSIS", "DESCRIPTION", "COMMANDS", "OPTIONS", "EXIT STATUS", "FILES", "ENVIRONMENT", "SEE ALSO"])
        self.assertEqual(re.findall(r'^\.SS "vexadm ([a-z\\-]+)', page, re.M),
                         [one.replace("-", r"\-") for one in self.vexadm("__words", "commands").out.split()])
        self.assertRegex(page, r'\A\.TH VEXADM 1 \d{4}-\d\d-\d\d "vexadm [0-9.]+" "User Commands"\n')

    def test_it_has_every_option_and_every_example_in_full(self):
        page = self.page()
        for command in self.vexadm("__words", "commands").out.split():
            name = command.replace("-", r"\-")
            part = re.search(rf'^\.SS "vexadm {re.escape(name)}[" ].*?(?=\n\.S)', page, re.M | re.S).group(0)
            text = self.vexadm("help", command).out
            for option in re.findall(r"^  (--[a-z-]+)", text, re.M):
                self.assertIn(option.replace("-", r"\-"), part, command)
            example = text.split("\nexample:\n")[1].splitlines()
            shown = part.split(".EX\n")[1].split("\n.EE")[0].replace(r"\-", "-").replace(r"\(aq", "'").replace(r"\e", "\\")
            self.assertEqual([one.removeprefix(r"\&") for one in shown.split("\n")], [one[2:].rstrip() for one in example],
                             command)

    def test_it_is_the_same_each_time(self):
        self.assertEqual(self.page(), self.page())
