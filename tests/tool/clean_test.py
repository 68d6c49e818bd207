# SPDX-License-Identifier: MIT
"""clean and export where there is no room, no directory, or only half of a store."""
import re
import shutil

from support import *

CLEAN = "vexadm: clean; programs that run now write into new files, or fail, until they start again\n"
STAMP = r"\d{4}-\d\d-\d\d_\d\d_\d\d_\d\d"


def make_small(directory, size):
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "small", directory], check=True)


class Copies(ToolTest):
    def setUp(self):
        super().setUp()
        make_store()
        self.content = read_bytes(PRIMARY)
        self.before = snapshot("/data")

    def test_the_directory_of_the_copies_is_made(self):
        shutil.rmtree("/mnt/vendor")
        self.expect("clean", "--backup", "--yes", err=CLEAN)
        self.assertEqual(os.listdir("/data"), [])
        names = os.listdir(DATED)
        self.assertRegex(" ".join(names), rf"\A{STAMP}\.db1\Z")
        self.assertEqual(read_bytes(DATED + names[0]), self.content)

    def test_where_no_copy_can_be_made_nothing_is_deleted(self):
        make_small(DATED, "16k")
        self.expect("clean", "--backup", "--yes", code=1,
                    err="vexadm: /mnt/vendor/nvdata/vexadm-clean-copy: No space left on device; no copy can be made, so "
                        "nothing was cleaned\n")
        self.assertEqual(snapshot("/data"), self.before)
        self.assertEqual(os.listdir(DATED), [])
        subprocess.run(["umount", DATED], check=True)
        shutil.rmtree("/mnt/vendor")
        write_bytes("/mnt/vendor", b"")
        self.expect("clean", "--backup", "--yes", code=1,
                    err="vexadm: /mnt/vendor/nvdata/: Not a directory; no copy can be made, so nothing was cleaned\n")
        self.assertEqual(snapshot("/data"), self.before)

    def test_a_copy_of_the_library_that_was_cut_is_replaced_by_a_whole_one(self):
        make_small(DATED, "32k")
        result = self.vexadm("clean", "--backup", "--yes")
        self.assertEqual((result.code, result.out), (0, ""))
        names = os.listdir(DATED)
        self.assertRegex(" ".join(names), rf"\A{STAMP}\.db1\Z")
        self.assertEqual(result.err, f"vexadm: the library's own copy was cut; {DATED}{names[0]} was made by vexadm\n" + CLEAN)
        self.assertEqual(read_bytes(DATED + names[0]), self.content)
        self.assertEqual(os.listdir("/data"), [])

    def test_the_copy_that_a_killed_clean_left_is_kept(self):
        make_items("/tmp/old.db", changed("Before"))
        shutil.copyfile("/tmp/old.db", DATED + "vexadm-clean-copy")
        self.expect("clean", "--backup", "--yes", err=CLEAN)
        held = sorted(read_bytes(DATED + name) for name in os.listdir(DATED))
        self.assertEqual(held, sorted([self.content, read_bytes("/tmp/old.db")]))
        self.assertEqual(len(re.findall(r"healthy", self.vexadm("backups").out)), 2)

    def test_a_link_to_the_store_is_no_copy_of_it(self):
        os.mkdir("/data/real")
        os.rename(PRIMARY, "/data/real/config.db")
        os.symlink("/data/real/config.db", PRIMARY)
        result = self.vexadm("clean", "--backup", "--yes")
        self.assertEqual((result.code, result.out), (0, ""))
        names = os.listdir(DATED)
        self.assertRegex(" ".join(names), rf"\A{STAMP}\.db1\Z")
        self.assertFalse(os.path.islink(DATED + names[0]))
        self.assertEqual(read_bytes(DATED + names[0]), self.content)

    def test_an_empty_file_is_no_copy(self):
        write_bytes(DATED + "2026-11-02_08_15_00.db1", b"")
        self.expect("backups", out="2026-11-02_08_15_00.db1  0 bytes  no database\n")

    def test_what_a_killed_clean_left_is_no_obstacle_and_no_copy(self):
        write_bytes(DATED + "vexadm-clean-copy", b"old")
        self.expect("backups", out="/mnt/vendor/nvdata/ holds no copies\n")
        self.expect("clean", "--backup", "--yes", err=CLEAN)
        self.assertRegex(" ".join(os.listdir(DATED)), rf"\A{STAMP}\.db1\Z")

    def test_the_copies_move_down_and_the_newest_is_checked(self):
        for number in (1, 2, 3):
            write_bytes(DATED + f"2026-11-0{number}_08_15_00.db{number}", b"%d" % number)
        self.expect("clean", "--backup", "--yes", err=CLEAN)
        names = sorted(os.listdir(DATED))
        self.assertEqual(names[:2], ["2026-11-02_08_15_00.db1", "2026-11-03_08_15_00.db2"])
        self.assertRegex(names[2], rf"\A{STAMP}\.db3\Z")
        self.assertEqual(read_bytes(DATED + names[2]), self.content)

    def test_a_transaction_that_was_cut_is_not_in_the_copy(self):
        hot_journal(PRIMARY)
        self.expect("clean", "--backup", "--yes", err=CLEAN)
        name = os.listdir(DATED)[0]
        self.assertEqual(os.listdir(DATED), [name])
        self.assertEqual(read_bytes(DATED + name), self.content)
        self.assertEqual(os.listdir("/data"), [])

    def test_a_damaged_primary_is_not_called_a_copy(self):
        spoil(PRIMARY)
        before = snapshot("/data")
        result = self.vexadm("clean", "--backup", "--yes")
        self.assertEqual((result.code, result.out), (1, ""))
        self.assertRegex(result.err, r"\Avexadm: /data/config.db cannot be read: .*; nothing was cleaned\. vexadm check .*\n\Z")
        self.assertEqual(snapshot("/data"), before)
        self.assertEqual(os.listdir(DATED), [])
        self.expect("clean", "--yes", err=CLEAN)
        self.assertEqual(os.listdir("/data"), [])

    def test_a_primary_that_is_damaged_behind_its_schema_is_no_copy_either(self):
        page = sql(PRIMARY, "select rootpage from sqlite_master where name='wifi'")[0][0]
        spoil(PRIMARY, (page - 1) * 4096, 4096)
        before = snapshot("/data")
        result = self.vexadm("clean", "--backup", "--yes")
        self.assertEqual((result.code, result.out), (1, ""))
        self.assertRegex(result.err, r"\Avexadm: /data/config.db is damaged, and so would be its copy: .*\n\Z")
        self.assertEqual(snapshot("/data"), before)
        self.assertEqual(os.listdir(DATED), [])


class Halves(ToolTest):
    def test_a_half_cleaned_store_is_cleaned_to_its_end(self):
        for there in ((BACKUP, JOURNAL), (JOURNAL,), (BACKUP,), (PRIMARY,), (PRIMARY, JOURNAL), (PRIMARY, BACKUP)):
            make_store()
            for path in {PRIMARY, BACKUP, JOURNAL} - set(there):
                os.unlink(path)
            if BACKUP in there:
                hot_journal(BACKUP)
            self.expect("clean", "--yes", err=CLEAN)
            self.assertEqual(os.listdir("/data"), [], there)
        self.expect("clean", "--yes", code=1,
                    err="vexadm: /data/config.db is not there, nor are its backup and its journal: nothing was cleaned\n")

    def test_what_is_not_there_cannot_be_copied(self):
        make_store()
        os.unlink(PRIMARY)
        before = snapshot("/data")
        self.expect("clean", "--backup", "--yes", code=1,
                    err="vexadm: /data/config.db is not there to be copied: nothing was cleaned. vexadm repair makes it from "
                        "the backup; without --backup the rest is deleted\n")
        self.assertEqual(snapshot("/data"), before)

    def test_a_file_that_cannot_be_deleted_is_named(self):
        make_store()
        os.unlink(BACKUP)
        os.makedirs(BACKUP + "/x")
        self.expect("clean", "--yes", code=1, err="vexadm: /data/configbak.db could not be deleted: Is a directory\n")
        self.assertEqual(os.listdir("/data"), ["configbak.db"])
        make_items(PRIMARY)
        subprocess.run(["mount", "--bind", PRIMARY, PRIMARY], check=True)
        result = self.vexadm("clean", "--yes")
        subprocess.run(["umount", PRIMARY], check=True)
        self.assertEqual((result.code, result.out), (1, ""))
        self.assertRegex(result.err, r"\Avexadm: library: unlink error: .*\nvexadm: nothing was cleaned: /data/config.db .*\n\Z")

    def test_each_line_on_standard_error_is_of_the_program(self):
        make_store()
        shutil.rmtree("/mnt/vendor")  # the library's find complains
        self.expect("clean", "--yes", err=CLEAN)


class Exports(ToolTest):
    def test_a_csv_without_room_is_a_failure(self):
        make_store(GARDEN + tuple(item("big", number, f"k{number}", TEXT, "v" * 3000) for number in range(30)))
        saved = {path: read_bytes(path) for path in (PRIMARY, BACKUP, JOURNAL)}
        size = sum(len(data) for data in saved.values())
        for room in (4096, 40960, 90112):
            make_small("/data", size + room)
            for path, data in saved.items():
                write_bytes(path, data)
            if room == 4096:
                write_bytes("/data/fill", bytes(4096))
            self.expect("export", code=1, err="vexadm: /data/ExportCSV.csv is cut: is the storage full?\n")
            subprocess.run(["umount", "/data"], check=True)
        self.expect("export", out="/data/ExportCSV.csv\n")

    def test_line_ends_within_values_are_told_apart(self):
        make_store(GARDEN + (item("t", 1, "ends", TEXT, "a\r\n\0b\r\n"), item("t", 2, "bytes", BYTES, b"\r\n\0"),
                             item("t", 3, "none", TEXT, ""), item("t", 4, "only", TEXT, "\r\n")))
        sql(PRIMARY, "create table 'o d d' (key,len,type,value)", "insert into 'o d d' values (1,2,3,4)",
            "create table other (a)", "insert into other values (1)")
        self.expect("export", out="/data/ExportCSV.csv\n")
        data = read_bytes("/data/ExportCSV.csv")
        self.assertTrue(data.endswith(b"\r\n\0"))
        self.assertEqual(len(re.findall(b"\r\n\0", data)), 1 + len(GARDEN) + 1 + 4 + 3)

    def test_a_damaged_table_is_a_failure(self):
        make_store()
        page = sql(PRIMARY, "select rootpage from sqlite_master where name='wifi'")[0][0]
        spoil(PRIMARY, (page - 1) * 4096, 4096)
        self.expect("export", code=1,
                    err="vexadm: /data/config.db is damaged, and /data/ExportCSV.csv has not all of it: database disk image "
                        "is malformed; vexadm check tells more\n")
