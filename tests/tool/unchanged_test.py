# SPDX-License-Identifier: MIT
"""Looking changes nothing: no byte, no time, no entry of a directory; and what is shown of a file that
was left in the middle of a transaction is what any reader would see after it was rolled back."""
import shutil

from support import *

LOOKS = (
    ("list",), ("list", "--file", "primary"), ("list", "--json"), ("list", "--file", "factory"), ("get", "wifi", "ssid"),
    ("get", "wifi", "ssid", "--raw", "--file=primary"), ("check",), ("check", "--json"), ("journal",),
    ("journal", "--json"), ("versions",), ("versions", "--json"), ("defaults",), ("dump",), ("dump", "--damaged"),
    ("dump", "--file", "primary"), ("diff", "/", "/data"), ("diff", "--json", "/data/config.db", "/"),
    ("watch", "wifi", "ssid", "--count", "1"), ("backups",), ("backups", "--json"), ("kv", "system", "hosts"),
    ("__words", "tables"), ("__words", "keys", "wifi"), ("repair", "--dry-run"), ("load", "/tmp/dump", "--dry-run"),
    ("clean",), ("set", "wifi", "ssid", "--type", "u8", "300"), ("set", "wifi", "ssid"),
)
# Not all of /tmp and /mnt: the checkout may lie there.
PLACES = ("/data", "/mnt/vendor", "/vexanv", "/vexanvbak", "/tmp/cwd")


class Looking(ToolTest):
    def setUp(self):
        super().setUp()
        os.makedirs("/tmp/cwd")
        write_bytes("/tmp/dump", b"vexadm dump 1\nwifi ssid 20 text \"Elsewhere\"\nwifi more 24 u8 1\n")

    def changes_nothing(self, **options):
        before, temporary = snapshot(*PLACES), sorted(os.listdir("/tmp"))
        for look in LOOKS[::2] if EMULATOR else LOOKS:
            result = self.vexadm(*look, cwd="/tmp/cwd", **options)
            self.assertIn(result.code, (0, 1, 2), look)
            self.assertEqual(snapshot(*PLACES), before, look)
            self.assertEqual(sorted(os.listdir("/tmp")), temporary, look)

    def test_a_healthy_store_stays_as_it_is(self):
        make_store()
        make_defaults()
        make_items(FACTORY)
        shutil.copyfile(PRIMARY, DATED + "2026-11-02_08_15_00.db1")
        self.changes_nothing()

    def test_hot_journals_stay_as_evidence(self):
        make_store()
        make_defaults()
        make_items(FACTORY)
        for path in FILES[:2] + (FACTORY,):
            hot_journal(path)
        hot_journal(JOURNAL, ("update state set item_key=hex(randomblob(9000))", "update state set state=100"))
        hot_journal(DEFAULTS)
        self.changes_nothing()

    def test_leftovers_of_a_write_ahead_log_stay(self):
        make_store()
        make_items(FACTORY)
        for path in (BACKUP, JOURNAL):
            connection = connect(path)
            connection.execute("pragma journal_mode=wal")
            connection.execute("create table more (a)")
            left = {suffix: read_bytes(path + suffix) for suffix in ("", "-wal", "-shm")}
            connection.close()
            for suffix, data in left.items():
                write_bytes(path + suffix, data)
        self.changes_nothing()

    def test_a_log_beside_a_file_that_is_not_in_that_mode_stays(self):
        make_store()
        for path in (PRIMARY, BACKUP, JOURNAL):
            write_bytes(path + "-wal", b"\x37\x7f\x06\x82" + bytes(60))
            write_bytes(path + "-shm", bytes(32768))
        self.changes_nothing()

    def test_missing_files_are_not_made(self):
        self.changes_nothing()
        make_store()
        for path in (PRIMARY, JOURNAL):
            os.unlink(path)
            self.changes_nothing()

    def test_empty_files_stay_empty(self):
        for path in FILES:
            write_bytes(path, b"")
        self.changes_nothing()

    def test_damaged_files_stay_damaged(self):
        make_store()
        make_defaults()
        for path in (PRIMARY, BACKUP, JOURNAL, DEFAULTS):
            spoil(path)
        self.changes_nothing()
        for path in (PRIMARY, BACKUP, JOURNAL, DEFAULTS):
            write_bytes(path, b"x" * 9000)
        self.changes_nothing()

    def test_an_unfinished_write_stays_unfinished(self):
        make_store()
        make_items(PRIMARY, changed("Router"))
        for state in (READY, WRITE_DONE):
            make_journal(state)
            self.changes_nothing()

    def test_read_only_files_and_directories_are_enough(self):
        make_store()
        for path in FILES[:2]:
            hot_journal(path)
        shown = self.vexadm("dump")
        for path in ("/data", PRIMARY, BACKUP, JOURNAL, PRIMARY + "-journal", BACKUP + "-journal"):
            os.chmod(path, 0o555 if os.path.isdir(path) else 0o444)
        self.changes_nothing()
        self.assertEqual(self.vexadm("dump"), shown)

    def test_a_read_only_file_system_is_enough(self):
        make_store()
        hot_journal(BACKUP)
        shown = self.vexadm("dump")
        subprocess.run(["mount", "--bind", "/data", "/data"], check=True)
        subprocess.run(["mount", "-o", "remount,bind,ro", "/data"], check=True)
        with self.assertRaises(OSError):
            write_bytes("/data/x", b"")
        self.assertEqual(self.vexadm("dump"), shown)
        self.assertEqual(shown.out, GARDEN_DUMP)


class HotJournal(ToolTest):
    def settled(self, path):
        """What SQLite's own reader makes of a copy, which it rolls back."""
        for suffix in ("", "-journal"):
            shutil.copyfile(path + suffix, "/tmp/settled.db" + suffix)
        rows = rows_of("/tmp/settled.db")
        self.assertFalse(os.path.exists("/tmp/settled.db-journal"))
        return rows

    def shown(self, which):
        rows = {}
        for one in self.json("list", "--file", which)["items"]:
            rows.setdefault(one["table"], []).append(
                (one["id"], one["key"].encode(), one["type"], one["length"], one["stored_crc"], bytes.fromhex(one["hex"])))
        return rows

    def test_what_is_shown_is_what_a_reader_sees_after_it_was_rolled_back(self):
        many = tuple(item("many", number, f"key{number:04}", BYTES, bytes([number % 256]) * 300) for number in range(400))
        statements = (
            ("update many set value=randomblob(300)",),
            ("delete from many where id % 2",),
            ("drop table many",),
            ("create table new (key text, value blob)", "update many set key=key || 'x'"),
            ("update many set value=zeroblob(9000)",),
            ("delete from many", "update wifi set value='x'", "delete from NET"),
        )
        for one in statements:
            make_items(BACKUP, GARDEN + many)
            hot_journal(BACKUP, one)
            settled = self.settled(BACKUP)
            halfway = read_bytes(BACKUP)
            shown = self.shown("backup")
            for rows in list(settled.values()) + list(shown.values()):
                rows.sort(key=lambda row: row[1])
            self.assertEqual(shown, settled, one)
            self.assertEqual(sum(len(rows) for rows in shown.values()), 406, one)
            self.assertEqual(read_bytes(BACKUP), halfway)
            # Without the journal the very same bytes are another store, or none.
            dump = self.vexadm("dump").out
            os.unlink(BACKUP + "-journal")
            self.assertNotEqual(self.vexadm("dump").out, dump, one)

    def test_a_journal_of_a_transaction_that_grew_the_file(self):
        make_items(BACKUP)
        size = os.path.getsize(BACKUP)
        hot_journal(BACKUP, ("create table big (key text, value blob)",
                             "with recursive n(i) as (select 1 union all select i+1 from n where i<90) "
                             "insert into big select i, randomblob(2000) from n"))
        self.assertGreater(os.path.getsize(BACKUP), size)
        self.expect("dump", out=GARDEN_DUMP)
        self.assertEqual(self.json("check", code=1)["files"]["backup"]["health"], "healthy")

    def test_check_says_that_a_transaction_was_cut(self):
        make_store()
        make_defaults()
        hot_journal(PRIMARY)
        document = self.json("check")
        self.assertTrue(document["files"]["primary"]["open_transaction"])
        self.assertFalse(document["files"]["backup"]["open_transaction"])
        self.assertEqual(document["findings"], [{
            "fault": False,
            "what": "The primary has a rollback journal beside it: a transaction was cut, or is running. What is shown "
                    "here is without it.",
            "next_start": "SQLite rolls it back, by itself", "person": ""}])
        self.host("start")  # does what was foretold
        self.assertFalse(os.path.exists(PRIMARY + "-journal"))
        self.assertEqual(rows_of(PRIMARY), rows_of(BACKUP))

    def test_a_journal_without_a_header_is_none(self):
        make_store()
        write_bytes(PRIMARY + "-journal", bytes(512))
        write_bytes(BACKUP + "-journal", b"")
        self.assertEqual(self.json("check")["findings"], [])
        self.expect("dump", out=GARDEN_DUMP)

    def test_a_journal_of_rubbish_is_no_reason_to_fail(self):
        make_store()
        write_bytes(BACKUP + "-journal", b"\xd9\xd5\x05\xf9\x20\xa1\x63\xd7" + b"\xff" * 600)
        before = snapshot("/data")
        self.expect("dump", out=GARDEN_DUMP)
        self.assertEqual(snapshot("/data"), before)


class Locks(ToolTest):
    def test_a_writer_that_commits_meanwhile_is_waited_for(self):
        make_store()
        writer = connect(BACKUP)
        writer.execute("begin exclusive")
        self.expect("get", "wifi", "ssid", code=1,
                    err="vexadm: /data/configbak.db cannot be read: database is locked; vexadm check tells more\n")
        writer.execute("update wifi set value='Garden mouse' where key='ssid'")
        looking = subprocess.Popen(self.command("get", "wifi", "ssid"), stdout=subprocess.PIPE)
        writer.execute("commit")
        self.assertEqual(looking.communicate(timeout=20)[0], b"Garden mouse\n")

    def test_a_transaction_that_only_began_is_no_obstacle(self):
        make_store()
        writer = connect(BACKUP)
        writer.execute("begin immediate")
        writer.execute("update wifi set value='x' where key='ssid'")
        self.expect("get", "wifi", "ssid", out="Garden house\n")
        writer.execute("rollback")
