# SPDX-License-Identifier: MIT
"""Each thing that repair does: foretold by --dry-run, which changes nothing; after a copy of everything,
to the byte; and healthy afterwards."""
import re
import shutil
import time

from support import *

KEPT = re.compile(r"\Aeverything as it was is kept in (/data/vexadm-repair_\d{4}-\d\d-\d\d_\d\d_\d\d_\d\d)\n")
NO_COPY_HELPS = "vexadm: there are faults that no copy can mend; vexadm check tells what a person can do\n"


class Repair(ToolTest):
    def repair(self, would, done):
        """Gives the folder with what was there before."""
        before = snapshot("/data", "/vexanvbak")
        content = {path: read_bytes(path) for path in before if os.path.isfile(path)}
        self.expect("repair", "--dry-run", out=would)
        self.assertEqual(snapshot("/data", "/vexanvbak"), before)
        self.assertEqual(self.json("check", code=self.vexadm("check").code)["healthy"], self.vexadm("check").code == 0)

        result = self.vexadm("repair")
        self.assertEqual((result.code, result.err), (0, ""))
        kept = KEPT.match(result.out).group(1)
        self.assertEqual(KEPT.sub("", result.out), done)
        self.assertEqual(os.stat(kept).st_mode & 0o777, 0o700)
        names = {os.path.basename(path): data for path, data in content.items()
                 if re.search(r"^/data/(config|configbak|state)\.db(-journal|-wal|-shm)?$", path)}
        self.assertEqual({name: read_bytes(f"{kept}/{name}") for name in os.listdir(kept)}, names)
        self.assertEqual(self.vexadm("check", "--quiet").code, 0)
        self.assertEqual(self.vexadm("repair"), Result(0, "", "vexadm: nothing to repair\n"))
        return kept

    REPLACE = f"replace{{}} {PRIMARY} by a copy of {{}}\n"

    def replaced(self, source, *more):
        return self.repair("would " + self.REPLACE.format("", source) + "".join(f"would {one}\n" for one in more),
                           self.REPLACE.format("d", source) + "".join(
                               one.replace("copy", "copied", 1) + "\n" for one in more))

    REFRESH = f"copy {PRIMARY} over {BACKUP}"

    def refreshed(self):
        return self.repair(f"would {self.REFRESH}\n", f"copied {PRIMARY} over {BACKUP}\n")

    def test_a_healthy_store_needs_nothing(self):
        make_store()
        before = snapshot("/data")
        self.expect("repair", err="vexadm: nothing to repair\n")
        self.expect("repair", "--quiet")
        self.assertEqual(snapshot("/data"), before)

    def test_an_empty_store_needs_nothing(self):
        self.expect("repair", err="vexadm: nothing to repair\n")
        self.assertEqual(os.listdir("/data"), [])

    def test_a_corrupt_primary_comes_from_the_backup(self):
        make_store()
        rows = rows_of(BACKUP)
        spoil(PRIMARY)
        self.replaced(BACKUP)
        self.assertEqual(rows_of(PRIMARY), rows)
        self.assertEqual(rows_of(BACKUP), rows)

    def test_a_primary_that_is_no_database_comes_from_the_backup(self):
        make_store()
        write_bytes(PRIMARY, b"x" * 9000)
        self.replaced(BACKUP)
        self.expect("dump", "--file", "primary", out=GARDEN_DUMP)

    def test_a_primary_that_is_missing_or_empty_comes_from_the_backup(self):
        make_store()
        os.unlink(PRIMARY)
        shutil.rmtree(self.replaced(BACKUP))
        write_bytes(PRIMARY, b"")
        self.replaced(BACKUP)

    def test_a_primary_that_is_damaged_behind_its_schema_comes_from_the_backup(self):
        make_store()
        with open(PRIMARY, "r+b") as file:
            file.seek(2 * 4096)
            file.write(b"\xff" * 4096)
        self.replaced(BACKUP)

    def test_the_new_primary_keeps_owner_and_mode_of_the_old_one(self):
        make_store()
        os.chmod(PRIMARY, 0o640)
        os.chown(PRIMARY, 0, 0)
        spoil(PRIMARY)
        self.replaced(BACKUP)
        self.assertEqual(os.stat(PRIMARY).st_mode & 0o777, 0o640)

    def test_without_a_backup_the_factory_copy_serves_for_both(self):
        make_items(FACTORY)
        make_journal()
        make_items(PRIMARY, changed("Router"))
        shutil.copyfile(PRIMARY, BACKUP)
        spoil(PRIMARY)
        spoil(BACKUP)
        self.replaced(FACTORY, self.REFRESH)
        self.assertEqual(rows_of(PRIMARY), rows_of(FACTORY))
        self.assertEqual(rows_of(BACKUP), rows_of(FACTORY))

    def test_with_nothing_healthy_it_fails_and_touches_nothing(self):
        make_store()
        spoil(PRIMARY)
        spoil(BACKUP)
        before = snapshot("/data")
        self.expect("repair", code=1, err=NO_COPY_HELPS)
        self.assertEqual(snapshot("/data"), before)

    def test_a_backup_that_is_damaged_comes_from_the_primary(self):
        make_store()
        make_items(FACTORY, changed("Factory"))
        rows = rows_of(PRIMARY)
        for damage in (spoil, lambda path: write_bytes(path, b"x" * 9000), lambda path: write_bytes(path, b""), os.unlink):
            damage(BACKUP)
            shutil.rmtree(self.refreshed())
            self.assertEqual(rows_of(BACKUP), rows)
            self.assertEqual(rows_of(PRIMARY), rows)

    def test_a_stale_backup_comes_from_the_primary(self):
        make_store()
        make_items(PRIMARY, changed("Router"))
        self.refreshed()
        self.expect("get", "wifi", "ssid", out="Router\n")

    def test_a_row_that_no_program_finds_is_no_reason_to_keep_a_stale_backup(self):
        make_store()
        make_items(PRIMARY, changed("Router"))
        sql(BACKUP, ("insert into wifi values (40,?,5,1,0,'x')", (b"blob",)))
        self.refreshed()
        self.expect("get", "wifi", "ssid", out="Router\n")

    def test_a_bad_checksum_of_the_backup_comes_from_the_primary(self):
        make_store()
        sql(BACKUP, "update wifi set crc=1 where key='ssid'")
        self.refreshed()
        self.expect("get", "wifi", "ssid", out="Garden house\n")

    def test_another_type_comes_from_the_primary(self):
        make_store()
        sql(PRIMARY, "update wifi set type=6 where key='ssid'")
        self.refreshed()
        self.expect("get", "wifi", "ssid", out="47617264656e20686f757365\n")

    def test_a_second_row_needs_nothing(self):
        make_store()
        for path in (PRIMARY, BACKUP):
            add_items(path, [item("wifi", 20, "ssid", TEXT, "second")])
        self.expect("repair", err="vexadm: nothing to repair\n")

    def test_a_write_that_was_cut_at_its_end_is_finished(self):
        make_store()
        make_items(PRIMARY, changed("Router"))
        make_journal(WRITE_DONE, item("wifi", 20, "ssid", TEXT, "Router"))
        result = self.vexadm("repair", "--dry-run")
        self.assertEqual(result, Result(0, "would copy the item of the last write from primary to backup\n", ""))
        result = self.vexadm("repair")
        self.assertEqual(KEPT.sub("", result.out), "copied the item of the last write from primary to backup\n")
        self.assertEqual((result.code, result.err), (0, ""))
        self.expect("get", "wifi", "ssid", out="Router\n")

    def test_a_write_that_was_cut_early_keeps_its_old_value(self):
        make_store()
        make_items(PRIMARY, changed("Router"))
        make_journal(READY)
        before = snapshot("/data")
        self.expect("repair", err="vexadm: nothing to repair\n")
        self.assertEqual(snapshot("/data"), before)

    def test_a_journal_that_is_no_database_is_deleted(self):
        for damage in (lambda: write_bytes(JOURNAL, b"x" * 9000), lambda: spoil(JOURNAL)):
            make_store()
            damage()
            shutil.rmtree(self.repair(f"would delete {JOURNAL}\n", f"deleted {JOURNAL}\n"))
            self.assertFalse(os.path.exists(JOURNAL))

    def test_all_of_it_at_once(self):
        make_store()
        spoil(PRIMARY)
        write_bytes(JOURNAL, b"x" * 9000)
        self.repair(f"would delete {JOURNAL}\nwould replace {PRIMARY} by a copy of {BACKUP}\n",
                    f"deleted {JOURNAL}\nreplaced {PRIMARY} by a copy of {BACKUP}\n")

    def test_a_hot_journal_is_kept_and_not_applied_to_the_new_primary(self):
        make_store()
        hot_journal(PRIMARY)
        spoil(PRIMARY + "-journal", 600, 8000)  # behind its header: no page comes back from there
        journal = read_bytes(PRIMARY + "-journal")
        spoil(PRIMARY)
        kept = self.replaced(BACKUP)
        self.assertEqual(read_bytes(kept + "/config.db-journal"), journal)
        self.assertFalse(os.path.exists(PRIMARY + "-journal"))
        self.expect("dump", "--file", "primary", out=GARDEN_DUMP)

    def test_a_backup_with_a_hot_journal_serves_by_its_settled_content(self):
        make_store()
        hot_journal(BACKUP)
        spoil(PRIMARY)
        self.assertEqual(self.vexadm("repair").code, 0)
        self.expect("dump", "--file", "primary", out=GARDEN_DUMP)

    def test_what_only_the_backup_has_is_not_taken_away(self):
        make_store()
        make_items(PRIMARY, GARDEN[1:])
        self.expect("repair", code=1, err=NO_COPY_HELPS)
        self.expect("dump", out=GARDEN_DUMP)

    def test_a_good_value_of_the_backup_is_not_overwritten_by_a_bad_one(self):
        make_store()
        make_items(PRIMARY, changed("Router", item("wifi", 23, "new", U8, 1)))
        sql(PRIMARY, "update NET set crc=1")
        self.expect("repair", code=1, err=NO_COPY_HELPS)
        self.expect("dump", out=GARDEN_DUMP)

    def test_faults_that_are_left_are_told(self):
        make_store()
        for path in (PRIMARY, BACKUP):
            sql(path, "update NET set crc=1")
        self.expect("repair", code=1, err=NO_COPY_HELPS)
        write_bytes(JOURNAL, b"x" * 9000)
        result = self.vexadm("repair")
        self.assertEqual((result.code, result.err),
                         (1, "vexadm: there are faults left; vexadm check tells what a person can do\n"))
        self.assertEqual(KEPT.sub("", result.out), f"deleted {JOURNAL}\n")

    def test_an_empty_store_is_not_filled_from_the_factory_copy(self):
        make_items(FACTORY)
        self.expect("repair", err="vexadm: nothing to repair\n")
        self.assertEqual(os.listdir("/data"), [])

    def test_two_within_a_second_are_kept_apart(self):
        make_store()
        spoil(PRIMARY)
        now = time.time()
        for second in range(60):
            os.mkdir(time.strftime("/data/vexadm-repair_%Y-%m-%d_%H_%M_%S", time.localtime(now + second)))
        result = self.vexadm("repair")
        self.assertEqual((result.code, result.err), (0, ""))
        kept = re.match(r"everything as it was is kept in (/data/vexadm-repair_[-0-9_]{19}_2)\n", result.out).group(1)
        self.assertEqual(sorted(os.listdir(kept)), ["config.db", "configbak.db", "state.db"])

    # ---- what a cut write has left ---------------------------------------------

    def two_are_stale(self):
        make_items(PRIMARY, [one._replace(value=b"\x07") if one.key == "channel" else one for one in changed("Router")])
        make_items(BACKUP)

    def test_more_than_the_cut_write_is_copied_as_check_says(self):
        for state in (READY, WRITE_DONE):
            self.two_are_stale()
            make_journal(state)
            self.assertIn("vexadm repair copies the primary over the backup", " ".join(self.vexadm("check").out.split()))
            shutil.rmtree(self.refreshed())
            self.assertEqual(rows_of(BACKUP), rows_of(PRIMARY))

    def test_a_cut_write_does_not_hide_a_bad_checksum_of_another_item(self):
        for items in (GARDEN, changed("Router")):
            make_store()
            make_items(PRIMARY, items)
            make_journal(READY)
            sql(BACKUP, "update wifi set crc=1 where key='psk'")
            self.assertIn("stop the router's programs, then: vexadm repair", " ".join(self.vexadm("check").out.split()))
            shutil.rmtree(self.refreshed())
            self.assertEqual(rows_of(BACKUP), rows_of(PRIMARY))

    def test_a_cut_write_whose_journal_says_another_type_is_copied_all_the_same(self):
        make_store()
        make_items(PRIMARY, changed("Router"))
        make_journal(WRITE_DONE, item("wifi", 20, "ssid", BYTES, b"Router"))
        result = self.vexadm("repair")
        self.assertEqual((result.code, result.err), (0, ""))
        self.assertEqual(KEPT.sub("", result.out), "copied the item of the last write from primary to backup\n"
                                                   f"copied {PRIMARY} over {BACKUP}\n")
        self.assertEqual(rows_of(BACKUP)["wifi"], rows_of(PRIMARY)["wifi"])
        self.expect("repair", err="vexadm: nothing to repair\n")

    # ---- versions --------------------------------------------------------------

    def test_another_version_stays_what_it_is(self):
        for version in (0x00010000, 0x00010002, None):
            make_items(PRIMARY, changed("Router"), version=version)
            make_items(BACKUP, version=version)
            make_journal()
            shutil.rmtree(self.refreshed())
            self.assertEqual(rows_of(BACKUP), rows_of(PRIMARY))
            self.assertEqual(rows_of(BACKUP).get("SQL_VER_TAB"), None if version is None else [
                (65537, b"SQL_VER_KEY", 3, 4, crc_of(version.to_bytes(4, "little")), version.to_bytes(4, "little"))])
            os.unlink(BACKUP)
            shutil.rmtree(self.refreshed())
            self.assertEqual(rows_of(BACKUP), rows_of(PRIMARY))

    def test_the_version_record_stays_what_it_is(self):
        make_store()
        make_items(PRIMARY, changed("Router"))
        sql(PRIMARY, "update SQL_VER_TAB set id=7")
        rows = rows_of(PRIMARY)
        self.refreshed()
        self.assertEqual((rows_of(PRIMARY), rows_of(BACKUP)), (rows, rows))

    # ---- links that an integrator has placed -----------------------------------

    def linked_store(self):
        make_store(directory="/data/flash/")
        os.symlink("/data/flash/config.db", PRIMARY)
        os.symlink("flash/configbak.db", BACKUP)
        os.symlink("flash/state.db", JOURNAL)

    def links_stay(self):
        self.assertEqual([os.readlink(path) for path in (PRIMARY, BACKUP, JOURNAL)],
                         ["/data/flash/config.db", "flash/configbak.db", "flash/state.db"])

    def repair_of_links(self, done):
        result = self.vexadm("repair")
        self.assertEqual((result.code, result.err, KEPT.sub("", result.out)), (0, "", done))
        self.links_stay()
        self.assertEqual(self.vexadm("check", "--quiet").code, 0)
        return KEPT.match(result.out).group(1)

    def test_a_link_stays_a_link_and_the_evidence_beside_the_file_is_kept(self):
        self.linked_store()
        hot_journal("/data/flash/config.db")
        spoil("/data/flash/config.db-journal", 600, 8000)
        journal = read_bytes("/data/flash/config.db-journal")
        spoil("/data/flash/config.db")
        spoiled = read_bytes(PRIMARY)
        self.assertTrue(json.loads(self.vexadm("check", "--json").out)["files"]["primary"]["open_transaction"])
        kept = self.repair_of_links(f"replaced {PRIMARY} by a copy of {BACKUP}\n")
        self.assertEqual(sorted(os.listdir(kept)), ["config.db", "config.db-journal", "configbak.db", "state.db"])
        self.assertEqual((read_bytes(kept + "/config.db"), read_bytes(kept + "/config.db-journal")), (spoiled, journal))
        self.assertFalse(os.path.exists("/data/flash/config.db-journal"))
        self.expect("dump", "--file", "/data/flash/config.db", out=GARDEN_DUMP)

    def test_a_link_to_a_file_that_is_gone_leads_to_the_new_one(self):
        self.linked_store()
        os.unlink("/data/flash/config.db")
        self.repair_of_links(f"replaced {PRIMARY} by a copy of {BACKUP}\n")
        self.expect("dump", "--file", "/data/flash/config.db", out=GARDEN_DUMP)

    def test_a_backup_and_a_journal_behind_links_are_mended_there(self):
        self.linked_store()
        sql(PRIMARY, "update SQL_VER_TAB set value=x'00000100', crc=0")  # which the program copies itself
        write_bytes("/data/flash/configbak.db", b"x" * 9000)
        write_bytes("/data/flash/state.db", b"x" * 9000)
        self.repair_of_links(f"deleted {JOURNAL}\ncopied {PRIMARY} over {BACKUP}\n")
        self.assertEqual(rows_of("/data/flash/configbak.db"), rows_of("/data/flash/config.db"))
        self.assertFalse(os.path.exists("/data/flash/state.db"))

    # ---- files that cannot be read ---------------------------------------------

    def refuses(self, path, why, locked=False):
        """What could not be read may be all that is left of the settings."""
        before = snapshot("/data", "/vexanvbak")
        program = connect(path) if locked else None
        if locked:  # only now: whoever closes a file drops the locks that its process has on it
            program.execute("begin exclusive")
        for words in (("--dry-run",), ()):
            self.expect("repair", *words, code=1, err=f"vexadm: {path} cannot be read: {why}; nothing was repaired\n")
        if locked:
            program.close()
        self.assertEqual(snapshot("/data", "/vexanvbak"), before)

    def refuses_while_locked(self, path):
        self.refuses(path, "database is locked", locked=True)

    def test_a_primary_that_a_program_has_locked_is_not_replaced(self):
        make_store()
        make_items(PRIMARY, changed("Newer"))
        self.refuses_while_locked(PRIMARY)

    def test_a_backup_that_a_program_has_locked_is_neither_replaced_nor_passed_over(self):
        make_store()
        make_items(FACTORY, changed("Factory"))
        self.refuses_while_locked(BACKUP)
        spoil(PRIMARY)
        self.refuses_while_locked(BACKUP)

    def test_a_factory_copy_that_is_locked_is_waited_for_where_it_is_needed(self):
        make_store()
        make_items(FACTORY)
        spoil(PRIMARY)
        spoil(BACKUP)
        self.refuses_while_locked(FACTORY)

    def test_a_journal_that_a_program_has_locked_stops_it(self):
        make_store()
        make_items(PRIMARY, changed("Newer"))
        self.refuses_while_locked(JOURNAL)

    def test_a_file_in_write_ahead_mode_is_not_replaced(self):
        for path in (PRIMARY, BACKUP):
            make_store()
            make_items(FACTORY)
            sql(path, "pragma journal_mode=wal")
            self.refuses(path, "in write-ahead mode")

    def test_a_file_too_large_to_roll_back_in_memory_is_not_replaced(self):
        make_store()
        hot_journal(PRIMARY)
        os.truncate(PRIMARY, 300 << 20)
        self.refuses(PRIMARY, "database or disk is full")

    def test_something_else_in_the_place_of_a_file_stops_it(self):
        for path in (PRIMARY, BACKUP, JOURNAL):
            for make in (os.mkfifo, os.mkdir):
                make_store()
                os.unlink(path)
                make(path)
                self.refuses(path, "not a file")
                os.rmdir(path) if make is os.mkdir else os.unlink(path)

    # ---- for other programs ----------------------------------------------------

    def test_json_has_each_step(self):
        make_store()
        self.assertEqual(self.json("repair"), {"kept_in": None, "steps": [], "done": True})
        spoil(PRIMARY)
        write_bytes(JOURNAL, b"x" * 9000)
        steps = [{"action": "delete", "file": JOURNAL, "from": None}, {"action": "replace", "file": PRIMARY, "from": BACKUP}]
        self.assertEqual(self.json("repair", "--dry-run"), {"kept_in": None, "steps": steps, "done": False})
        answer = self.json("repair")
        self.assertTrue(os.path.isdir(answer.pop("kept_in")))
        self.assertEqual(answer, {"steps": steps, "done": True})
        make_store()
        make_items(PRIMARY, changed("Router"))
        self.assertEqual(self.json("repair", "--dry-run")["steps"], [{"action": "copy", "file": BACKUP, "from": PRIMARY}])
        make_journal(WRITE_DONE, item("wifi", 20, "ssid", TEXT, "Router"))
        self.assertEqual(self.json("repair")["steps"], [{"action": "copy_item", "file": BACKUP, "from": PRIMARY}])

    def test_json_of_faults_that_are_left_says_so(self):
        make_store()
        for path in (PRIMARY, BACKUP):
            sql(path, "update NET set crc=1")
        result = self.vexadm("repair", "--json")
        self.assertEqual((result.code, result.err), (1, NO_COPY_HELPS))
        self.assertEqual(json.loads(result.out), {"kept_in": None, "steps": [], "done": False})
        write_bytes(JOURNAL, b"x" * 9000)
        result = self.vexadm("repair", "--json")
        self.assertEqual((result.code, json.loads(result.out)["done"]), (1, False))

    # ---- what only a damaged backup has ----------------------------------------

    def loses_nothing(self, *more):
        """Writing and repair are refused; what check advises brings all of it back."""
        dump = self.vexadm("dump").out
        self.assertIn('wifi ssid 20 text "Garden house"', dump)
        advice = "keep that: vexadm dump > FILE, then vexadm load --force FILE"
        self.assertIn(advice, [one["person"] for one in self.json("check", code=1)["findings"]] + list(more))
        before = snapshot("/data")
        result = self.vexadm("set", "wifi", "channel", "12")
        self.assertEqual((result.code, result.err[:42]), (1, "vexadm: a write now would lose settings. T"))
        self.expect("repair", code=1, err=NO_COPY_HELPS)
        self.assertEqual(snapshot("/data"), before)
        write_bytes("/tmp/dump", dump.encode())
        self.assertEqual(self.vexadm("load", "--force", "/tmp/dump").code, 0)
        self.expect("dump", out=dump)
        self.assertEqual(self.vexadm("check", "--quiet").code, 0)

    def damage_behind_the_rows(self, path):
        """The number of free pages in the header: the quick check fails, every row can be read."""
        with open(path, "r+b") as file:
            file.seek(36)
            file.write((7).to_bytes(4, "big"))

    def test_a_damaged_backup_without_a_primary_is_not_thrown_away(self):
        make_store()
        os.unlink(PRIMARY)
        self.damage_behind_the_rows(BACKUP)
        self.loses_nothing()

    def test_a_damaged_backup_is_worth_more_than_the_factory_copy(self):
        make_store()
        make_items(FACTORY, changed("Factory"))
        spoil(PRIMARY)
        self.damage_behind_the_rows(BACKUP)
        self.loses_nothing()

    def test_a_damaged_backup_that_has_more_than_the_primary_stays(self):
        make_store()
        sql(PRIMARY, "drop table wifi")
        self.damage_behind_the_rows(BACKUP)
        before = snapshot("/data")
        self.expect("repair", code=1, err=NO_COPY_HELPS)
        self.assertEqual(snapshot("/data"), before)

    def test_the_place_of_the_copies_is_told_as_it_is(self):
        os.makedirs("/tmp/tree/data/real")
        make_store(directory="/tmp/tree/data/")
        os.rename("/tmp/tree/data/config.db", "/tmp/tree/data/real/p.db")
        spoil("/tmp/tree/data/real/p.db")
        os.symlink("/data/real/p.db", "/tmp/tree/data/config.db")
        self.not_emulated("the emulator does not know openat2")
        result = self.vexadm("--root", "/tmp/tree", "repair")
        self.assertEqual((result.code, result.err), (0, ""))
        kept = re.match(r"everything as it was is kept in (\S+)\n", result.out).group(1)
        self.assertEqual(os.path.dirname(kept), "/tmp/tree/data")
        self.assertTrue(os.path.isdir(kept))

    # ---- failures in the middle ------------------------------------------------

    def fails_and_touches_nothing(self, *pattern, **options):
        before = {path: read_bytes(path) for path in FILES if os.path.isfile(path)}
        result = self.vexadm("repair", **options)
        self.assertEqual(result.code, 1)
        self.assertRegex(result.err, *pattern)
        for path, data in before.items():
            self.assertTrue(read_bytes(path) == data, path)
        self.assertFalse([name for name in os.listdir("/data") if name.startswith(".vexadm")])

    def test_a_file_that_cannot_be_kept_stops_it(self):
        make_store()
        spoil(PRIMARY)
        for make in (os.mkdir, os.mkfifo):
            make(JOURNAL + "-shm")
            self.fails_and_touches_nothing(r"\Avexadm: /data/state.db-shm could not be copied to /data/vexadm-repair_.*: "
                                           r"not a file; nothing was repaired\n\Z")
            self.assertEqual(sorted(os.listdir("/data")), ["config.db", "configbak.db", "state.db", "state.db-shm"])
            os.rmdir(JOURNAL + "-shm") if make is os.mkdir else os.unlink(JOURNAL + "-shm")

    def test_a_store_that_cannot_be_written_stays_as_it_was(self):
        make_store()
        spoil(PRIMARY)
        subprocess.run(["mount", "--bind", "/data", "/data"], check=True)
        subprocess.run(["mount", "-o", "remount,bind,ro", "/data"], check=True)
        self.fails_and_touches_nothing(r"\Avexadm: /data/vexadm-repair_[-0-9_]*: Read-only file system; nothing was repaired\n\Z")

    def test_storage_that_is_full_stays_as_it_was(self):
        reasons = set()
        for pages in range(1, 40):
            subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={(pages + 15) * 4096}", "store", "/data"], check=True)
            make_store()
            spoil(PRIMARY)
            free = os.statvfs("/data").f_bfree
            before = {path: read_bytes(path) for path in FILES if os.path.isfile(path)}
            result = self.vexadm("repair")
            if result.code == 0:
                self.assertEqual(self.vexadm("check", "--quiet").code, 0)
                self.assertGreater(free, 0)
                break
            self.assertEqual(result.code, 1)
            self.assertRegex(result.err, r"\Avexadm: .*No space left on device.*\n\Z")
            for path, data in before.items():
                self.assertTrue(read_bytes(path) == data, (pages, path))
            # Copies would take what little room there is.
            self.assertEqual(sorted(os.listdir("/data")), ["config.db", "configbak.db", "state.db"])
            self.assertEqual(result.out, "")
            reasons.add(re.search(r" could not be ([a-z]+)", result.err).group(1))
            subprocess.run(["umount", "/data"], check=True)
        else:
            self.fail("it never succeeded")
        self.assertEqual(reasons, {"copied", "replaced"})
