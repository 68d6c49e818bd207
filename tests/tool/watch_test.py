# SPDX-License-Identifier: MIT
"""watch: tells a change that another program made, and reads no more than it has to."""
import re
import signal

from support import *


class Watch(ToolTest):
    def setUp(self):
        super().setUp()
        make_store()

    def watch(self, *words):
        running = subprocess.Popen(self.command("watch", *words, "--interval", "5"), stdout=subprocess.PIPE, text=True)
        self.addCleanup(running.kill)  # of a case that fails: it would keep the runner's output open
        return running

    def told(self, running):
        line = running.stdout.readline()
        self.assertRegex(line, r"\A\d{4}-\d\d-\d\d \d\d:\d\d:\d\d .*\n\Z")
        return line[20:-1]

    def write(self, text, key="ssid"):
        self.assertEqual(self.host("write", "wifi", key, "5", "20", text), ["0"])

    def test_changes_of_another_program_are_told_as_they_come(self):
        running = self.watch("wifi", "ssid", "--count", "4")
        self.assertEqual(self.told(running), '"Garden house"')
        self.write("one")
        self.assertEqual(self.told(running), '"one"')
        self.write("elsewhere", "psk")  # of another item
        self.write("two\n")
        self.assertEqual(self.told(running), '"two\\n"')
        self.expect("set", "wifi", "ssid", "Garden house", err=STORED)
        self.assertEqual(self.told(running), '"Garden house"')
        self.assertEqual(running.wait(timeout=30), 0)
        running.stdout.close()

    def test_a_lock_that_goes_without_a_change_lets_it_see(self):
        holder = sqlite3.connect(BACKUP, isolation_level=None)
        holder.execute("begin exclusive")
        running = self.watch("wifi", "ssid", "--count", "2")
        self.assertEqual(self.told(running), "(the file cannot be read)")
        holder.execute("rollback")
        holder.close()
        self.assertEqual(self.told(running), '"Garden house"')
        self.assertEqual(running.wait(timeout=30), 0)
        running.stdout.close()

    def test_json_is_one_document_a_line(self):
        running = self.watch("wifi", "channel", "--json", "--count", "2")
        first = json.loads(running.stdout.readline())
        self.assertRegex(first.pop("time"), r"\A\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\Z")
        self.assertEqual(first, {"state": "value", "table": "wifi", "key": "channel", "id": 21, "type": 1, "type_name": "u8", "length": 1,
                                 "value": 11, "hex": "0b", "crc": "ok", "stored_crc": 0, "computed_crc": 0})
        self.expect("set", "wifi", "channel", "12", err=STORED)
        self.assertEqual(json.loads(running.stdout.readline())["value"], 12)
        self.assertEqual(running.wait(timeout=30), 0)
        running.stdout.close()

    def test_json_tells_an_item_that_is_gone_from_a_file_that_is_locked(self):
        def told(running):
            seen = json.loads(running.stdout.readline())
            del seen["time"]
            return seen

        holder = sqlite3.connect(BACKUP, isolation_level=None)
        holder.execute("begin exclusive")
        running = self.watch("wifi", "ssid", "--json", "--count", "4")
        self.assertEqual(told(running), {"state": "unreadable", "table": "wifi", "key": "ssid", "value": None})
        holder.execute("rollback")
        self.assertEqual(told(running)["state"], "value")
        holder.execute("delete from wifi where key='ssid'")
        self.assertEqual(told(running), {"state": "none", "table": "wifi", "key": "ssid", "value": None})
        holder.close()
        make_items("/tmp/new.db")
        os.rename("/tmp/new.db", BACKUP)
        self.assertEqual(told(running)["state"], "value")
        self.assertEqual(running.wait(timeout=30), 0)
        running.stdout.close()

    def test_what_is_not_there_is_told_and_waited_for(self):
        for path in (PRIMARY, BACKUP):
            os.unlink(path)
        running = self.watch("wifi", "ssid", "--count", "3")
        self.assertEqual(self.told(running), "(no such item: programs get the default)")
        make_items("/tmp/new.db")
        os.rename("/tmp/new.db", BACKUP)
        self.assertEqual(self.told(running), '"Garden house"')
        make_items("/tmp/new.db")
        sql("/tmp/new.db", "update wifi set crc=1")
        os.rename("/tmp/new.db", BACKUP)
        self.assertEqual(self.told(running), '"Garden house" (bad checksum: programs get the default)')
        self.assertEqual(running.wait(timeout=30), 0)
        running.stdout.close()

    def test_another_file_with_the_same_counter_is_told(self):
        running = self.watch("wifi", "ssid", "--count", "2")
        self.assertEqual(self.told(running), '"Garden house"')
        make_items("/data/new.db", changed("Router"))
        self.assertEqual(read_bytes("/data/new.db")[24:28], read_bytes(BACKUP)[24:28])
        os.rename("/data/new.db", BACKUP)
        self.assertEqual(self.told(running), '"Router"')
        self.assertEqual(running.wait(timeout=30), 0)
        running.stdout.close()

    def test_files_that_cannot_be_read_and_empty_values_are_told(self):
        for make, text in ((lambda: spoil(BACKUP), "(the file cannot be read)"),
                           (lambda: self.host("write", "wifi", "ssid", "5", "20", ""),
                            '"" (empty: programs get the default)')):
            make_store()
            make()
            self.assertEqual(self.vexadm("watch", "wifi", "ssid", "--count", "1").out[20:], text + "\n")

    def test_as_long_as_nothing_changes_it_looks_at_the_counter_alone(self):
        self.not_emulated("the counts are the emulator's")
        running = self.watch("wifi", "ssid")
        self.told(running)

        def counts():
            text = read_bytes(f"/proc/{running.pid}/io").decode()
            return [int(re.search(rf"{name}: (\d+)", text).group(1)) for name in ("syscr", "rchar")]

        calls, characters = counts()
        while counts()[0] < calls + 50:  # as the last reading of the values may still be among the first
            pass
        calls, characters = counts()
        while counts()[0] < calls + 100:
            pass
        later = counts()
        running.send_signal(signal.SIGINT)
        self.assertEqual(running.wait(timeout=30), -signal.SIGINT)
        running.stdout.close()
        self.assertLessEqual(later[1] - characters, 4 * (later[0] - calls + 1))
