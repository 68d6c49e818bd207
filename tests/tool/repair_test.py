# SPDX-License-Identifier: MIT
"""Each thing that repair does: foretold by --dry-run, which changes nothing; after a copy of everything,
to the byte; and healthy afterwards."""
import re
import shutil

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
        os.mkdir(JOURNAL + "-journal")
        self.fails_and_touches_nothing(r"\Avexadm: /data/state.db-journal could not be copied to /data/vexadm-repair_.*: "
                                       r"Is a directory; nothing was repaired\n\Z")

    def test_a_store_that_cannot_be_written_stays_as_it_was(self):
        make_store()
        spoil(PRIMARY)
        subprocess.run(["mount", "--bind", "/data", "/data"], check=True)
        subprocess.run(["mount", "-o", "remount,bind,ro", "/data"], check=True)
        self.fails_and_touches_nothing(r"\Avexadm: /data/vexadm-repair_[-0-9_]*: Read-only file system; nothing was repaired\n\Z")

    def test_storage_that_is_full_stays_as_it_was(self):
        for pages in range(1, 30):
            subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={(pages + 24) * 4096}", "store", "/data"], check=True)
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
            subprocess.run(["umount", "/data"], check=True)
        else:
            self.fail("it never succeeded")
        self.assertGreater(pages, 3)
