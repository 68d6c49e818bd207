# SPDX-License-Identifier: MIT
"""The diagnosis that README.md shows is what the program says."""
import os
import re
import shlex

from support import GARDEN, PRIMARY, READY, ToolTest, item, make_journal, make_store, spoil, TEXT, U8

README = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "README.md")
KEPT = re.compile(r"vexadm-repair_[0-9-]+_[0-9_]+")


def diagnosis():
    """The commands that the page shows, each with what it says behind it."""
    with open(README, encoding="utf-8") as page:
        block = page.read().split("```console\n", 1)[1].split("```", 1)[0]
    steps = []
    for line in block.splitlines(keepends=True):
        if line.startswith("$ "):
            steps.append((shlex.split(line[2:]), ""))
        else:
            steps[-1] = (steps[-1][0], steps[-1][1] + line)
    return steps


class Readme(ToolTest):
    def test_shows_a_real_diagnosis(self):
        # A write was cut before the backup had it, and then the primary's first page went.
        make_store((item("NET", 9, "apn", TEXT, "fast.example"), item("wifi", 21, "channel", U8, 11),
                    item("wifi", 20, "ssid", TEXT, "Router")))
        make_journal(READY, GARDEN[-1])
        spoil(PRIMARY, count=20)

        steps = diagnosis()
        self.assertEqual([words[:2] for words, _ in steps],
                         [["vexadm", command] for command in ("check", "list", "repair", "set", "check")])
        for words, shown in steps:
            said = self.vexadm(*words[1:])
            self.assertEqual(KEPT.sub("vexadm-repair_DATE", said.out + said.err), KEPT.sub("vexadm-repair_DATE", shown))
