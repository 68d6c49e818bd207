# SPDX-License-Identifier: MIT
"""Each finding of check, word by word; and where it says what the next start does, the library is
started and does just that."""
import shutil
import signal

from support import *

REPAIR = "stop the router's programs, then: vexadm repair"
LOSES = "nothing; the next write of any item copies the primary over the backup, and they are lost"
NEXT_WRITE = "nothing; the next write of any item copies the primary over it"
MALFORMED = "database disk image is malformed"
VERSION_ONLY = {"SQL_VER_TAB": [(65537, b"SQL_VER_KEY", 3, 4, 0, b"\x01\x00\x01\x00")]}


def fault(what, next_start="", person=""):
    return (True, what, next_start, person)


def remark(what, next_start="", person=""):
    return (False, what, next_start, person)


def damage_a_table(path, table="NET"):
    """Damage that only a step meets: the schema can still be read. Gives the page."""
    page = sql(path, f"select rootpage from sqlite_master where name='{table}'")[0][0]
    with open(path, "r+b") as file:
        file.seek((page - 1) * 4096)
        file.write(b"\xff" * 4096)
    return page


class Check(ToolTest):
    def findings(self, *expected):
        document = self.json("check", code=1 if any(one[0] for one in expected) else 0)
        found = [(one["fault"], one["what"], one["next_start"], one["person"]) for one in document["findings"]]
        self.assertEqual(found, list(expected))
        self.assertEqual(document["healthy"], not any(one[0] for one in expected))
        return document

    def start_changes_nothing(self):
        before = {path: read_bytes(path) for path in FILES if os.path.isfile(path)}
        self.host("start")
        for path, data in before.items():
            self.assertEqual(read_bytes(path) == data, True, path)

    def read(self, key="ssid", table="wifi"):
        """What a program gets from the store: the bytes, or a code."""
        words = self.host("read", table, key)[0].split()
        return bytes.fromhex(words[1]) if len(words) == 2 else int(words[0])

    def write(self, text="written", key="ssid"):
        return int(self.host("write", "wifi", key, "5", "20", text)[0])

    # ---- healthy and empty ---------------------------------------------------

    def test_a_healthy_store_has_no_findings(self):
        make_store()
        make_defaults()
        make_items(FACTORY)
        document = self.findings()
        self.assertEqual({name: one["health"] for name, one in document["files"].items()},
                         dict.fromkeys(("primary", "backup", "journal", "defaults", "factory"), "healthy"))
        self.assertEqual(document["files"]["primary"], {
            "file": PRIMARY, "health": "healthy", "size": os.path.getsize(PRIMARY), "open_transaction": False,
            "problems": []})
        self.start_changes_nothing()

    def test_a_store_that_the_library_made_is_healthy(self):
        self.host("start")
        self.host("defaults")
        self.assertEqual(self.write(), 0)
        self.findings()
        self.assertEqual(self.vexadm("repair"), Result(0, "", "vexadm: nothing to repair\n"))

    def test_the_report_in_words(self):
        make_store()
        make_defaults(GARDEN[:1])
        self.expect("check", out="""\
primary   healthy    /data/config.db            5 items
backup    healthy    /data/configbak.db         5 items
journal   healthy    /data/state.db             WS_BACKUP_DONE, wifi ssid
defaults  healthy    /data/DefItems.db          1 default
factory   not there  /vexanvbak/data/config.db

no fault
""")
        self.expect("check", "--quiet")
        spoil(PRIMARY)
        self.expect("check", "--quiet", code=1)
        self.assertIn("\nFAULT   The primary is corrupt: database disk image is malformed.\n"
                      "        next start: copies the backup over it\n"
                      "        you:        stop the router's programs, then: vexadm repair\n\n1 fault\n",
                      self.vexadm("check").out)

    def test_long_findings_are_wrapped_between_words(self):
        make_store(tuple(item("table%d" % number, number, "key%d" % number, U8, 1) for number in range(9)))
        make_items(BACKUP)
        lines = self.vexadm("check").out.splitlines()
        self.assertLessEqual(max(map(len, lines)), 100)
        self.assertIn("FAULT   The backup is stale: the primary has other values of table0 key0, table1 key1, table2",
                      lines)
        self.assertIn("        key2, table3 key3 and 5 more. Programs read the old ones.", lines)

    def test_an_empty_store_gets_its_version_at_the_start(self):
        self.findings(remark("The store is empty: a fresh unit, or a cleaned one. Every item is at its default.",
                             "makes primary and backup with nothing in them but their version"))
        self.host("start")
        self.assertEqual((rows_of(PRIMARY), rows_of(BACKUP)), (VERSION_ONLY, VERSION_ONLY))
        self.findings()

    def test_an_empty_store_with_dated_copies_points_there(self):
        make_items(DATED + "2026-11-02_08_15_00.db1")
        self.findings(remark("The store is empty: a fresh unit, or a cleaned one. Every item is at its default.",
                             "makes primary and backup with nothing in them but their version",
                             "what was there before a clean: vexadm backups"))

    # ---- primary ---------------------------------------------------------------

    def corrupt_primary(self, next_start):
        make_journal()
        make_items(PRIMARY, changed("Router"))
        spoil(PRIMARY)
        self.assertIn(fault(f"The primary is corrupt: {MALFORMED}.", next_start, REPAIR),
                      [(one["fault"], one["what"], one["next_start"], one["person"])
                       for one in self.json("check", code=1)["findings"]])

    def test_a_corrupt_primary_is_made_from_the_backup(self):
        make_items(BACKUP)
        make_items(FACTORY, changed("Factory"))
        self.corrupt_primary("copies the backup over it")
        self.host("start")
        self.assertEqual(rows_of(PRIMARY), rows_of(BACKUP))
        self.findings()

    def test_a_corrupt_primary_without_a_backup_is_made_from_the_factory_copy(self):
        make_items(FACTORY, changed("Factory"))
        for backup in (spoil, os.unlink):
            make_items(BACKUP)
            if backup is spoil:
                backup(BACKUP)
                self.corrupt_primary("copies the factory copy over it: what was set since production is gone")
                self.host("start")
                self.assertEqual(rows_of(PRIMARY), rows_of(FACTORY))

    def test_a_corrupt_primary_with_nothing_healthy_stays(self):
        make_items(BACKUP)
        spoil(BACKUP)
        self.corrupt_primary("nothing, as neither backup nor factory copy is healthy")
        before = read_bytes(PRIMARY), read_bytes(BACKUP)
        self.host("start")
        self.assertEqual((read_bytes(PRIMARY), read_bytes(BACKUP)), before)
        self.assertLess(self.read(), 0)

    def test_a_primary_that_is_missing_or_empty_loses_all_with_the_first_write(self):
        for primary in (None, b"", "version"):
            make_store()
            os.unlink(PRIMARY)
            if primary == b"":
                write_bytes(PRIMARY, b"")
            self.findings(fault(
                "The primary is missing or empty, and the backup is there. Programs still read the backup.",
                "nothing; but the first write makes a primary of that one item and copies it over the backup, and "
                "every other item is lost", REPAIR))
            self.host("start")
            self.assertEqual(self.read(), b"Garden house")
            self.assertEqual(self.write("new"), 0)
            self.assertEqual(self.read(), b"new")
            self.assertLess(self.read("admin", "NET"), 0)

    def test_a_primary_that_is_no_database_stays_and_refuses_writes(self):
        make_store()
        make_items(FACTORY)
        write_bytes(PRIMARY, b"x" * 9000)
        self.findings(fault("The primary is no database any more: its first bytes are something else.",
                            "nothing: the library mends what is corrupt, not this. Programs read the backup; every "
                            "write fails", REPAIR))
        self.start_changes_nothing()
        self.assertEqual(self.read(), b"Garden house")
        self.assertLess(self.write(), 0)

    def test_a_primary_that_is_damaged_behind_its_schema_stays_and_keeps_writes_from_the_backup(self):
        make_store()
        page = damage_a_table(PRIMARY)
        why = self.json("check", code=1)["files"]["primary"]["problems"][0]  # in the words of this SQLite
        self.assertRegex(why, rf"(?i)page {page}: btreeInitPage\(\) returns error code 11")
        self.findings(fault(f"The primary is damaged: {why}.",
                            "nothing, as its tables can still be named. Programs read the backup, and no write reaches "
                            "that any more", REPAIR))
        self.start_changes_nothing()
        self.write("lost")
        self.assertEqual(self.read(), b"Garden house")

    def test_a_primary_that_cannot_be_read_needs_somebody(self):
        make_store()
        os.unlink(PRIMARY)
        os.mkdir(PRIMARY)
        self.findings(fault("The primary cannot be read: not a file.", "",
                            "look again as a user who may read it, or when no program holds it"))
        self.assertEqual(self.read(), b"Garden house")

    def test_a_lock_that_is_held_is_told(self):
        make_store()
        writer = connect(PRIMARY)
        writer.execute("begin exclusive")
        self.findings(fault("The primary cannot be read: database is locked.", "",
                            "look again as a user who may read it, or when no program holds it"))
        writer.execute("rollback")
        self.findings()

    def test_write_ahead_mode_is_told(self):
        make_store()
        for name, path in (("primary", PRIMARY), ("backup", BACKUP), ("journal", JOURNAL)):
            sql(path, "pragma journal_mode=wal")
            self.findings(fault(
                f"The {name} is in write-ahead mode, which only another program can have set; it cannot be shown "
                "without changing it.", "",
                f'sqlite3 {path} "pragma journal_mode=delete", on the unit or on a copy'))
            sql(path, "pragma journal_mode=delete")
            self.findings()

    # ---- backup ----------------------------------------------------------------

    def test_a_missing_backup_is_made_at_the_start(self):
        make_store()
        os.unlink(BACKUP)
        self.findings(fault("The backup is missing or empty. Programs read it, and so get defaults for every item.",
                            "copies the primary to it"))
        self.host("start")
        self.assertEqual(rows_of(BACKUP), rows_of(PRIMARY))
        self.findings()

    def test_a_backup_that_is_no_database_is_made_at_the_start(self):
        make_store()
        write_bytes(BACKUP, b"x" * 9000)
        self.findings(fault("The backup is no database any more. Programs read it, and so get defaults for every item.",
                            "copies the primary over it"))
        self.host("start")
        self.assertEqual(rows_of(BACKUP), rows_of(PRIMARY))

    def test_a_backup_that_is_damaged_behind_its_schema_waits_for_a_write(self):
        make_store()
        page = damage_a_table(BACKUP)
        why = self.json("check", code=1)["files"]["backup"]["problems"][0]
        self.assertRegex(why, rf"(?i)page {page}: btreeInitPage\(\) returns error code 11")
        self.findings(fault(f"The backup is damaged: {why}. Programs get defaults for what cannot be read.",
                            NEXT_WRITE, REPAIR))
        self.start_changes_nothing()
        self.assertLess(self.read("admin", "NET"), 0)
        self.assertEqual(self.write(), 0)
        self.findings()

    def test_a_corrupt_backup_is_made_at_the_start(self):
        make_store()
        spoil(BACKUP)
        self.findings(fault(f"The backup is corrupt: {MALFORMED}. Programs read it, and so get defaults for every item.",
                            "copies the primary over it", REPAIR))
        self.host("start")
        self.assertEqual(rows_of(BACKUP), rows_of(PRIMARY))
        self.assertEqual(self.read(), b"Garden house")
        self.findings()

    def test_a_corrupt_backup_and_a_factory_copy_cost_the_healthy_primary(self):
        make_store()
        make_items(FACTORY, changed("Factory"))
        spoil(BACKUP)
        self.findings(fault(
            f"The backup is corrupt: {MALFORMED}. Programs read it, and so get defaults for every item.",
            "copies the factory copy over the primary, although that is healthy: what was set since production is gone. "
            "Do not start a program before the repair", REPAIR))
        self.host("start")
        self.assertEqual(rows_of(PRIMARY), rows_of(FACTORY))

    # ---- factory copy ------------------------------------------------------------

    def test_a_damaged_factory_copy_is_told(self):
        make_store()
        for make, word in ((lambda: (make_items(FACTORY), spoil(FACTORY)), "corrupt"),
                           (lambda: write_bytes(FACTORY, b"x" * 900), "no database")):
            make()
            self.findings(fault(f"The factory copy {FACTORY} is {word}: the last source of a repair is gone.", "",
                                "put the factory copy of this model there again"))

    # ---- primary and backup compared -------------------------------------------

    def test_a_write_that_was_cut_early_is_no_fault(self):
        make_store()
        make_items(PRIMARY, changed("Router"))
        make_journal(READY)
        self.findings(remark(
            "A write of wifi ssid was cut before it was complete: the primary has the new value, programs read the old "
            "one. Nobody was told that it was stored.", "nothing; the next write of any item brings the new value",
            "decide which it shall be: vexadm diff /data/configbak.db /data/config.db shows both, vexadm set stores one"))
        self.start_changes_nothing()
        self.assertEqual(self.read(), b"Garden house")
        self.assertEqual(self.write("7", "channel"), 0)
        self.assertEqual(self.read(), b"Router")

    def test_a_write_that_was_cut_late_is_finished_at_the_start(self):
        make_store()
        make_items(PRIMARY, changed("Router"))
        make_journal(WRITE_DONE, item("wifi", 20, "ssid", TEXT, "Router"))
        self.findings(remark("A write of wifi ssid was cut after the primary had it.", "copies that item to the backup"))
        self.host("start")
        self.assertEqual(self.read(), b"Router")

    def test_a_stale_backup_is_a_fault(self):
        make_store()
        make_items(PRIMARY, changed("Router", item("wifi", 23, "guest", U8, 1)))
        self.findings(fault(
            "The backup is stale: the primary has other values of wifi guest, wifi ssid. Programs read the old ones.",
            "nothing; the next write of any item copies the primary over the backup",
            "vexadm diff /data/configbak.db /data/config.db shows them; vexadm repair copies the primary over the backup"))
        self.start_changes_nothing()
        self.assertEqual(self.read(), b"Garden house")
        self.assertEqual(self.write("7", "channel"), 0)
        self.assertEqual(self.read(), b"Router")

    def test_a_stale_backup_is_a_fault_whatever_write_was_cut(self):
        make_store()
        make_items(PRIMARY, changed("Router"))
        make_journal(READY, GARDEN[0])
        self.assertEqual([one["fault"] for one in self.json("check", code=1)["findings"]], [True, False])

    def test_what_only_the_backup_has_is_lost_with_the_next_write(self):
        make_store()
        make_items(PRIMARY, GARDEN[1:])
        self.findings(fault("Only the backup has NET admin.", LOSES,
                            "keep them: vexadm dump > FILE, then vexadm load --force FILE"))
        self.start_changes_nothing()
        self.assertEqual(self.read("admin", "NET"), b"\xfb\x20")
        self.assertEqual(self.write(), 0)
        self.assertLess(self.read("admin", "NET"), 0)

    def test_what_the_advice_says_saves_what_only_the_backup_has(self):
        make_store()
        make_items(PRIMARY, GARDEN[1:])
        dump = self.vexadm("dump").out
        self.expect("load", "--force", "-", stdin=dump, err="vexadm: 1 item stored\n")
        self.expect("dump", out=GARDEN_DUMP)
        self.findings()

    # ---- rows --------------------------------------------------------------------

    def test_a_bad_checksum_in_both_is_lost(self):
        make_store()
        for path in (PRIMARY, BACKUP):
            sql(path, "update wifi set crc=1 where key='ssid'")
        self.findings(
            fault("In the backup the checksum of wifi ssid is bad: programs get the default.",
                  "nothing; a program that writes the item mends it",
                  "vexadm get --file primary shows the bytes that are left; vexadm set stores it anew"),
            fault("In the primary the checksum of wifi ssid is bad.", "nothing; a program that writes the item mends it",
                  "vexadm get --file primary shows the bytes that are left; vexadm set stores it anew"))
        self.start_changes_nothing()
        self.assertEqual(self.read(), -102)
        self.assertEqual(self.write(), 0)
        self.findings()

    def test_a_bad_checksum_in_the_backup_alone_comes_back_with_a_write(self):
        make_store()
        sql(BACKUP, "update wifi set crc=1 where key='ssid'")
        self.findings(fault("In the backup the checksum of wifi ssid is bad: programs get the default. The primary has it.",
                            "nothing; the next write of any item copies the primary over the backup", REPAIR))
        self.start_changes_nothing()
        self.assertEqual(self.read(), -102)
        self.assertEqual(self.write("7", "channel"), 0)
        self.assertEqual(self.read(), b"Garden house")

    def test_a_bad_checksum_in_the_primary_alone_is_copied_by_the_next_write(self):
        make_store()
        sql(PRIMARY, "update wifi set crc=1 where key='ssid'")
        self.findings(fault("In the primary the checksum of wifi ssid is bad. The backup has it, until the next write of "
                            "any item copies the primary over that.", "nothing",
                            "keep it: vexadm dump > FILE, then vexadm load --force FILE"))
        self.start_changes_nothing()
        dump = self.vexadm("dump").out
        self.assertEqual(self.write("7", "channel"), 0)
        self.assertEqual(self.read(), -102)
        make_store()
        sql(PRIMARY, "update wifi set crc=1 where key='ssid'")
        self.expect("load", "--force", "-", stdin=dump, err="vexadm: 1 item stored\n")
        self.findings()

    def test_a_second_row_is_a_remark(self):
        make_store()
        for path in (PRIMARY, BACKUP):
            add_items(path, [item("wifi", 20, "ssid", TEXT, "second")])
        self.findings(remark("The backup has a second row of wifi ssid; the first one counts."),
                      remark("The primary has a second row of wifi ssid; the first one counts."))

    def test_rows_without_a_text_for_a_key_are_told_and_no_fault(self):
        make_store()
        make_defaults()
        for path in (PRIMARY, BACKUP):
            sql(path, ("insert into wifi values (40,?,5,1,0,'x')", (b"blob",)))
        self.findings(remark("The backup has rows that programs never read, as their key is no text: wifi blob."),
                      remark("The primary has rows that programs never read, as their key is no text: wifi blob."))
        self.assertEqual(self.read(), b"Garden house")

    def test_wrong_lengths_are_a_remark(self):
        make_store()
        sql(BACKUP, "update wifi set len=99 where key='ssid'")
        sql(PRIMARY, "update wifi set len=99 where key='ssid'",
            ("update NET set value=?,len=3,crc=?", (b"abc", crc_of(b"abc"))))
        shutil.copyfile(PRIMARY, BACKUP)
        text = "The {} has rows whose length is not what they say or what their type takes: NET admin, wifi ssid."
        self.findings(remark(text.format("backup")), remark(text.format("primary")))

    # ---- journal -----------------------------------------------------------------

    def test_a_journal_that_is_no_database_stays(self):
        for make, word in ((lambda: write_bytes(JOURNAL, b"x" * 900), "no database"), (lambda: spoil(JOURNAL), "corrupt")):
            make_store()
            make()
            self.findings(fault(f"The journal is {word}: a write that is cut cannot be finished. Nothing replaces it.",
                                "nothing; each write says that its journal failed", REPAIR))
            self.start_changes_nothing()

    def test_a_state_that_the_library_never_writes_is_a_fault(self):
        make_store()
        make_journal(7)
        self.findings(fault("The journal is at state 7, which the library never writes."))
        self.start_changes_nothing()

    def test_a_cut_write_that_left_nothing_but_its_state(self):
        make_store()
        make_journal(READY)
        self.findings(remark("The journal says that a write of wifi ssid was cut, before it had changed the primary or "
                             "after it had changed both."))
        self.start_changes_nothing()
        make_journal(WRITE_DONE)
        self.findings(remark("The journal says that the write of wifi ssid was cut at its end.",
                             "copies the item to the backup, and leaves the journal as it is until the next write"))
        self.host("start")
        self.assertEqual(rows_of(PRIMARY), rows_of(BACKUP))
        self.assertEqual(self.json("journal")["write"]["state"], WRITE_DONE)

    def test_a_cut_write_beside_a_file_that_cannot_be_read(self):
        make_store()
        make_journal(READY)
        spoil(PRIMARY)
        self.findings(
            fault(f"The primary is corrupt: {MALFORMED}.", "copies the backup over it", REPAIR),
            remark("The last write, of wifi ssid, was cut (WS_READY). What of it the unreadable file has cannot be seen.",
                   "", "the value that is left: vexadm get wifi ssid; ask what it should be"))

    def test_no_journal_is_no_finding(self):
        make_store()
        os.unlink(JOURNAL)
        self.findings()
        write_bytes(JOURNAL, b"")
        self.findings()

    # ---- versions and defaults -----------------------------------------------------

    def test_another_version_is_a_remark(self):
        make_store()
        make_items(PRIMARY, changed("Router"), version=0x00010000)
        make_items(BACKUP, version=0x00010000)
        make_defaults(version=0x00010000)
        make_journal(WRITE_DONE, item("wifi", 20, "ssid", TEXT, "Router"))
        defaults = "takes defaults from the programs instead of the storage"
        text = "The {} was written for version 00010000; this library is for 00010001. It is used as it is."
        findings = self.json("check")["findings"]
        self.assertEqual([(one["what"], one["next_start"]) for one in findings[-3:]],
                         [(text.format("primary"), ""), (text.format("backup"), "finishes no cut write, and " + defaults),
                          (text.format("file of stored defaults"), defaults)])
        self.host("start")
        self.assertEqual(self.read(), b"Garden house")

    def test_a_missing_version_record_is_a_remark(self):
        make_store()
        for path in (PRIMARY, BACKUP):
            sql(path, "delete from SQL_VER_TAB")
        text = "The {} has no version record."
        what_then = ("writes one into both files where the table of it is missing too; else finishes no cut write, and "
                     "takes defaults from the programs instead of the storage")
        self.findings(remark(text.format("primary")), remark(text.format("backup"), what_then))
        self.start_changes_nothing()
        for path in (PRIMARY, BACKUP):
            sql(path, "drop table SQL_VER_TAB")
        self.findings(remark(text.format("primary")), remark(text.format("backup"), what_then))
        self.host("start")
        self.findings()
        self.expect("dump", out=GARDEN_DUMP)

    def test_stored_defaults_that_are_damaged_are_a_fault(self):
        make_store()
        for make, word in ((lambda: write_bytes(DEFAULTS, b"x" * 900), "no database"),
                           (lambda: (os.unlink(DEFAULTS), make_defaults(), spoil(DEFAULTS)), "corrupt")):
            make()
            self.findings(fault(f"The stored defaults are {word}: programs use those they are compiled with.", "",
                                f"delete {DEFAULTS}; a program that constructs defaults makes it anew"))
        os.unlink(DEFAULTS)
        self.assertEqual(self.host("defaults"), ["0"])
        self.findings()

    def test_the_version_that_counts_is_that_of_the_backup(self):
        make_store()
        make_items(PRIMARY, changed("Router"), version=0x00010000)
        make_journal(WRITE_DONE, item("wifi", 20, "ssid", TEXT, "Router"))
        self.host("start")
        self.assertEqual(self.read(), b"Router")

    def test_defaults_count_by_their_version_and_that_of_the_backup(self):
        make_store()
        sql(PRIMARY, "delete from wifi")
        sql(BACKUP, "delete from wifi")
        make_defaults(changed("Stored"))
        self.assertEqual(self.host("value", "20"), ["6 Stored"])
        os.unlink(DEFAULTS)
        make_defaults(changed("Stored"), version=0x00010000)
        self.assertEqual(self.host("value", "20"), ["6 Router"])
        sql(DEFAULTS, "drop table SQL_VER_TAB")
        self.findings(remark("The file of stored defaults has no version record.",
                             "takes defaults from the programs instead of the storage"))
        self.assertEqual(self.host("value", "20"), ["6 Router"])

    def test_of_damaged_defaults_those_that_are_lost_are_none_while_the_version_stands(self):
        make_store()
        sql(PRIMARY, "delete from wifi")
        sql(BACKUP, "delete from wifi")
        make_defaults(changed("Stored"))
        damage_a_table(DEFAULTS, "wifi")
        self.findings(fault("The stored defaults are corrupt: items whose default cannot be read have none.", "",
                            f"delete {DEFAULTS}; a program that constructs defaults makes it anew"))
        self.assertEqual(self.host("value", "20"), ["-1 "])
        for path in (PRIMARY, BACKUP):
            os.unlink(path)
            make_items(path, version=0x00010000)
            sql(path, "delete from wifi")
        what = self.json("check", code=1)["findings"][-1]["what"]
        self.assertEqual(what, "The stored defaults are corrupt: programs use those they are compiled with.")
        self.assertEqual(self.host("value", "20"), ["6 Router"])
        spoil(DEFAULTS)
        self.assertEqual(self.host("value", "20"), ["6 Router"])

    # ---- beside --------------------------------------------------------------------

    def test_a_factory_copy_is_looked_at_row_by_row(self):
        make_store()
        make_items(FACTORY, version=0x00010002)
        sql(FACTORY, "update wifi set crc=1 where key='ssid'")
        hot_journal(FACTORY)
        self.findings(
            fault("In the factory copy the checksum of wifi ssid is bad: a repair from it leaves that at the default.",
                  person="put the factory copy of this model there again"),
            remark("The factory copy was written for version 00010002; this library is for 00010001. It is used as it is."),
            remark("The factory copy has a rollback journal beside it: a transaction was cut, or is running. What is shown "
                   "here is without it.", "SQLite rolls it back, by itself"))

    def test_what_lies_beside_is_a_remark(self):
        make_store()
        write_bytes(BACKUP + "-shm", b"")
        os.mkdir("/data/vexadm-repair_2026-11-02_08_15_00")
        self.findings(
            remark("/data/vexadm-repair_2026-11-02_08_15_00 has what was there before a repair.",
                   person="take it to a desk if the cause is wanted; delete it when it is not"),
            remark("/data/configbak.db-shm is of another program that had the file open. The library makes no such file.",
                   person="may be deleted while no program runs"))

    def test_a_program_that_writes_meanwhile_makes_no_fault(self):
        make_store()
        writer = subprocess.Popen(
            ["sh", "-c", 'i=0; while :; do i=$((i+1)); "$@" "value $i" > /dev/null; done', "sh", *EMULATOR,
             os.environ["VEXA_STORE_HOST"], "write", "wifi", "ssid", "5", "20"], start_new_session=True)
        try:
            for _ in range(max(2, 60 // SLOWER)):
                result = self.vexadm("check")
                self.assertEqual((result.code, result.err), (0, ""), result.out)
        finally:
            os.killpg(writer.pid, signal.SIGKILL)
            writer.wait()

    def test_copies_that_were_cut_are_a_remark(self):
        make_store()
        write_bytes("/data/.vexadm-copy-configbak", b"half")
        self.findings(remark("/data/.vexadm-copy-configbak is a copy that is being made, or that was cut. It does no harm.",
                             "", "may be deleted while no program runs"))

    def test_too_many_dated_copies_are_a_remark(self):
        make_store()
        for number in range(3):
            make_items(f"{DATED}2026-11-0{number + 1}_00_00_00.db{number + 1}")
        self.findings()
        write_bytes(DATED + "notes.db.txt", b"")
        self.findings(remark("/mnt/vendor/nvdata/ has 4 files with .db in their names, and cleans count on three copies at "
                             "most.", "", "move what is no dated copy elsewhere"))
