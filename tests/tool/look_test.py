# SPDX-License-Identifier: MIT
"""What the commands that look print, as text and as JSON, of a store that is known to the byte."""
import shutil

from support import *


class Listing(ToolTest):
    def setUp(self):
        super().setUp()
        make_store()

    def test_list_shows_what_programs_read(self):
        make_items(PRIMARY, changed("Elsewhere"))
        self.expect("list", out="""\
TABLE        KEY          ID     TYPE   LENGTH  CRC  VALUE
NET          admin        9      u16    2       ok   8443
SQL_VER_TAB  SQL_VER_KEY  65537  u32    4       ok   65537
system       hosts        30     text   39      ok   "router,192.168.1.1;printer,192.168.1.9;"
wifi         channel      21     u8     1       ok   11
wifi         psk          22     bytes  3       ok   0a0b0c
wifi         ssid         20     text   12      ok   "Garden house"
""")

    def test_list_shows_one_table_whatever_the_case_of_its_name(self):
        self.expect("list", "WIFI", out="""\
TABLE  KEY      ID  TYPE   LENGTH  CRC  VALUE
wifi   channel  21  u8     1       ok   11
wifi   psk      22  bytes  3       ok   0a0b0c
wifi   ssid     20  text   12      ok   "Garden house"
""")

    def test_list_shows_the_file_that_is_asked_for(self):
        make_items(PRIMARY, changed("in the primary"))
        make_items(FACTORY, changed("in the factory copy"))
        shutil.copyfile(PRIMARY, "/tmp/copy.db")
        for which, text in (("primary", "in the primary"), ("factory", "in the factory copy"),
                            ("backup", "Garden house"), ("/tmp/copy.db", "in the primary")):
            self.assertIn(f'"{text}"\n', self.vexadm("list", "--file", which).out)

    def test_list_of_a_table_that_is_not_there_fails(self):
        self.expect("list", "lan", code=1,
                    err="vexadm: /data/configbak.db has no table lan, or nothing in it; vexadm list shows what "
                        "there is\n")

    def test_list_json_has_every_field(self):
        document = self.json("list", "wifi")
        self.assertEqual(document, {"file": BACKUP, "items": [
            {"table": "wifi", "key": "channel", "id": 21, "type": 1, "type_name": "u8", "length": 1, "value": 11,
             "hex": "0b", "crc": "ok", "stored_crc": 0, "computed_crc": 0},
            {"table": "wifi", "key": "psk", "id": 22, "type": 6, "type_name": "bytes", "length": 3, "value": None,
             "hex": "0a0b0c", "crc": "ok", "stored_crc": 0, "computed_crc": 0},
            {"table": "wifi", "key": "ssid", "id": 20, "type": 5, "type_name": "text", "length": 12,
             "value": "Garden house", "hex": "47617264656e20686f757365", "crc": "ok", "stored_crc": -1089048068,
             "computed_crc": -1089048068}]})

    def test_every_type_is_shown_by_its_form(self):
        make_items(BACKUP, (
            item("t", 1, "a", U8, 255), item("t", 2, "b", U16, 65535), item("t", 3, "c", U32, 4294967295),
            item("t", 4, "d", U32ALT, 7), item("t", 5, "e", TEXT, 'two\nlines "quoted" \\ \t\u00e4 \x1b[31m'),
            item("t", 6, "f", BYTES, b"\0\xff"), item("t", 7, "g", 9, b"\x01\x02"), item("t", 8, "h", U32, b"\x01\x02"),
            item("t", 9, "i", TEXT, b"\xff\xfe"), item("t", -10, "j", BYTES, b""), item("t", 11, "k", TEXT, b"\xc2\x9b1m")))
        self.expect("list", "t", out="""\
TABLE  KEY  ID   TYPE    LENGTH  CRC    VALUE
t      a    1    u8      1       ok     255
t      b    2    u16     2       ok     65535
t      c    3    u32     4       ok     4294967295
t      d    4    u32alt  4       ok     7
t      e    5    text    30      ok     "two\\nlines \\"quoted\\" \\\\ \\t\u00e4 \\x1b[31m"
t      f    6    bytes   2       ok     00ff
t      g    7    type9   2       ok     0102
t      h    8    u32     2       ok     0102
t      i    9    text    2       ok     "\\xff\\xfe"
t      j    -10  bytes   0       empty
t      k    11   text    4       ok     "\\xc2\\x9b1m"
""")
        values = [one["value"] for one in self.json("list", "t")["items"]]
        self.assertEqual(values, [255, 65535, 4294967295, 7, 'two\nlines "quoted" \\ \t\u00e4 \x1b[31m', None, None,
                                  None, None, None, "\x9b1m"])

    def test_names_that_are_no_plain_words_are_quoted(self):
        make_items(BACKUP, (item("a b", 1, "x\ny", TEXT, "v"), item("t", 2, "", TEXT, "v"),
                            item("t", 3, 'q"q', TEXT, "v"), item("\u00fcber", 4, "\x1b]0;x\x07", TEXT, "v")))
        self.expect("list", out="""\
TABLE        KEY             ID     TYPE  LENGTH  CRC  VALUE
SQL_VER_TAB  SQL_VER_KEY     65537  u32   4       ok   65537
"a b"        "x\\ny"          1      text  1       ok   "v"
t            ""              2      text  1       ok   "v"
t            "q\\"q"          3      text  1       ok   "v"
\u00fcber         "\\x1b]0;x\\x07"  4      text  1       ok   "v"
""")

    def test_a_bad_checksum_is_shown(self):
        sql(BACKUP, "update wifi set value='Garden mouse' where key='ssid'")
        self.expect("list", "wifi", out="""\
TABLE  KEY      ID  TYPE   LENGTH  CRC  VALUE
wifi   channel  21  u8     1       ok   11
wifi   psk      22  bytes  3       ok   0a0b0c
wifi   ssid     20  text   12      ok   "Garden mouse"
""")  # the checksum covers an eighth of the value
        sql(BACKUP, "update wifi set value='garden house' where key='ssid'")
        self.assertIn('ssid     20  text   12      bad  "garden house"\n', self.vexadm("list", "wifi").out)
        found = [one for one in self.json("list", "wifi")["items"] if one["key"] == "ssid"][0]
        self.assertEqual((found["crc"], found["stored_crc"], found["computed_crc"]),
                         ("bad", -1089048068, crc_of(b"garden house")))

    def test_rows_without_id_type_and_checksum_are_shown_without(self):
        sql(BACKUP, "create table old (key text,value blob)", "insert into old values ('k','text')")
        self.expect("list", "old", out="""\
TABLE  KEY  ID  TYPE  LENGTH  CRC  VALUE
old    k    -   -     4       -    74657874
""")
        self.assertEqual(self.json("list", "old")["items"], [
            {"table": "old", "key": "k", "id": None, "type": None, "type_name": None, "length": 4, "value": None,
             "hex": "74657874"}])

    def test_tables_that_hold_no_items_are_left_out(self):
        sql(BACKUP, "create table other (a, b)", "insert into other values (1, 2)",
            "create view seen as select * from wifi", "create virtual table words using fts4(content)")
        self.assertEqual({one["table"] for one in self.json("list")["items"]},
                         {"NET", "SQL_VER_TAB", "system", "wifi"})

    def test_a_missing_backup_fails_and_names_the_primary(self):
        os.unlink(BACKUP)
        self.expect("list", code=1,
                    err="vexadm: /data/configbak.db is not there, so programs read defaults; vexadm check tells "
                        "more, --file primary shows the primary\n")

    def test_a_machine_that_is_no_unit_is_asked_about(self):
        for path in (PRIMARY, BACKUP, JOURNAL):
            os.unlink(path)
        self.expect("list", code=1,
                    err="vexadm: /data/configbak.db is not there; is this the unit? --root DIR looks into a copy "
                        "of its files\n")

    def test_a_damaged_table_shows_the_rest_and_fails(self):
        self.assertEqual(sql(BACKUP, "select rootpage from sqlite_master where name='NET'"), [(3,)])
        with open(BACKUP, "r+b") as file:
            file.seek(2 * 4096)
            file.write(b"\xff" * 4096)
        result = self.vexadm("list", "wifi")
        self.assertEqual((result.code, result.err), (
            1, "vexadm: /data/configbak.db is damaged and this is not all of it: database disk image is malformed; "
               "vexadm check tells more\n"))
        self.assertIn('"Garden house"\n', result.out)


class Getting(ToolTest):
    def setUp(self):
        super().setUp()
        make_store()

    def test_get_prints_numbers_texts_and_bytes(self):
        self.expect("get", "wifi", "ssid", out="Garden house\n")
        self.expect("get", "wifi", "channel", out="11\n")
        self.expect("get", "wifi", "psk", out="0a0b0c\n")
        self.expect("get", "NET", "admin", out="8443\n")

    def test_get_hex_prints_any_value_so(self):
        self.expect("get", "NET", "admin", "--hex", out="fb20\n")
        self.expect("get", "--hex", "wifi", "ssid", out="47617264656e20686f757365\n")

    def test_get_raw_prints_the_bytes_and_no_line_end(self):
        self.expect("get", "wifi", "psk", "--raw", out="\n\x0b\x0c")
        self.expect("get", "wifi", "ssid", "--raw", out="Garden house")

    def test_get_json_is_the_file_and_the_item(self):
        self.assertEqual(self.json("get", "wifi", "channel"), {
            "file": BACKUP, "table": "wifi", "key": "channel", "id": 21, "type": 1, "type_name": "u8", "length": 1,
            "value": 11, "hex": "0b", "crc": "ok", "stored_crc": 0, "computed_crc": 0})

    def test_get_of_what_is_not_there_fails(self):
        self.expect("get", "lan", "ssid", code=1,
                    err="vexadm: /data/configbak.db has no table lan; vexadm list shows what there is\n")
        self.expect("get", "wifi", "SSID", code=1,
                    err="vexadm: /data/configbak.db has no SSID in table wifi; vexadm list wifi shows what there is\n")

    def test_names_in_messages_cannot_move_the_cursor(self):
        self.expect("get", "t\x1b[2J\u009b", "k", code=1,
                    err="vexadm: /data/configbak.db has no table t\\x1b[2J\\xc2\\x9b; vexadm list shows what there is\n")
        self.expect("set", "t", "k\n'", "x", "--type", "text", "--id", "1", code=2,
                    err="vexadm: \"k\\n'\": names hold no single quote\n")

    def test_get_of_a_bad_checksum_shows_the_bytes_and_fails(self):
        sql(BACKUP, "update wifi set value='garden house' where key='ssid'")
        remark = "vexadm: ssid fails its checksum: programs get the default instead\n"
        self.expect("get", "wifi", "ssid", out="garden house\n", err=remark, code=1)
        self.expect("get", "wifi", "ssid", "--quiet", out="garden house\n", err=remark, code=1)
        result = self.vexadm("get", "wifi", "ssid", "--json")
        self.assertEqual((result.code, result.err, json.loads(result.out)["crc"]), (1, remark, "bad"))

    def test_get_of_an_empty_value_says_what_programs_get(self):
        sql(BACKUP, "update wifi set value='',len=0,crc=0 where key='ssid'")
        self.expect("get", "wifi", "ssid", out="\n",
                    err="vexadm: ssid holds no bytes: programs get the default instead\n")

    def test_get_takes_the_first_of_two_rows_as_programs_do(self):
        add_items(BACKUP, [item("wifi", 20, "ssid", TEXT, "second")])
        self.expect("get", "wifi", "ssid", out="Garden house\n")
        self.assertEqual(self.host("read", "wifi", "ssid"), ["12 47617264656e20686f757365"])

    def test_a_value_of_no_file_that_can_be_read_fails(self):
        write_bytes(BACKUP, b"hello, this is no database at all")
        self.expect("get", "wifi", "ssid", code=1,
                    err="vexadm: /data/configbak.db cannot be read: file is not a database; vexadm check tells more\n")
        self.expect("get", "wifi", "ssid", "--file", "factory", code=1,
                    err="vexadm: /vexanvbak/data/config.db is not there\n")


class Others(ToolTest):
    def setUp(self):
        super().setUp()
        make_store()

    def test_defaults_are_shown_without_id_and_checksum(self):
        make_defaults()
        self.expect("defaults", "wifi", out="""\
TABLE  KEY      TYPE   LENGTH  VALUE
wifi   channel  u8     1       11
wifi   psk      bytes  3       0a0b0c
wifi   ssid     text   12      "Garden house"
""")
        self.assertEqual(self.json("defaults", "NET"), {"file": DEFAULTS, "items": [
            {"table": "NET", "key": "admin", "id": None, "type": 2, "type_name": "u16", "length": 2, "value": 8443,
             "hex": "fb20"}]})
        self.assertEqual(self.vexadm("list", "wifi", "--file", "defaults"), self.vexadm("defaults", "wifi"))

    def test_defaults_that_the_library_stored_are_shown(self):
        self.host("defaults")
        self.expect("defaults", "wifi", out="""\
TABLE  KEY      TYPE  LENGTH  VALUE
wifi   channel  u8    1       6
wifi   ssid     text  6       "Router"
""")

    def test_defaults_that_are_not_there_are_those_of_the_programs(self):
        self.expect("defaults", code=1, err="vexadm: /data/DefItems.db is not there: programs use the defaults that "
                                            "they are compiled with\n")
        write_bytes(DEFAULTS, b"x" * 5000)
        self.expect("defaults", code=1, err="vexadm: /data/DefItems.db cannot be read: file is not a database; "
                                            "programs use the defaults that they are compiled with\n")

    def test_journal_tells_the_last_write_and_its_state(self):
        states = {100: "WS_READY: begun: the primary has the new value or not, programs read the old one",
                  101: "WS_WRITE_DONE: the primary is written; the next start copies the item to the backup",
                  102: "WS_BACKUP_DONE: complete: nothing is open",
                  7: "unknown: no state that the library writes"}
        for state, text in states.items():
            make_journal(state)
            self.expect("journal", out=f"last write  wifi ssid, id 20, type text, 12 bytes\nstate       {state} {text}\n")
            name, meaning = text.split(": ", 1)
            self.assertEqual(self.json("journal"), {"file": JOURNAL, "write": {
                "table": "wifi", "key": "ssid", "id": 20, "type": 5, "length": 12, "state": state,
                "state_name": name, "meaning": meaning}})

    def test_journal_without_a_write(self):
        sql(JOURNAL, "delete from state")
        self.expect("journal", out="/data/state.db is empty: no write is on record\n")
        self.assertEqual(self.json("journal"), {"file": JOURNAL, "write": None})
        os.unlink(JOURNAL)
        self.expect("journal", out="/data/state.db is not there: no write is on record\n")
        self.assertEqual(self.json("journal"), {"file": JOURNAL, "write": None})

    def test_journal_that_is_no_database_fails(self):
        write_bytes(JOURNAL, b"x" * 5000)
        self.expect("journal", code=1, err="vexadm: /data/state.db cannot be read: file is not a database; vexadm "
                                           "check tells more\n")

    def test_versions_of_each_file(self):
        make_items(FACTORY, version=0x00010000)
        make_items(PRIMARY, version=None)
        sql(BACKUP, "update SQL_VER_TAB set value='xy'")
        write_bytes(DEFAULTS, b"x" * 5000)
        self.expect("versions", out="""\
library   00010001
primary   no version record  /data/config.db
backup    damaged            /data/configbak.db
factory   00010000           /vexanvbak/data/config.db
defaults  cannot be read     /data/DefItems.db
""")
        self.assertEqual(self.json("versions"), {
            "library": 0x00010001,
            "primary": {"file": PRIMARY, "version": None, "state": "no version record"},
            "backup": {"file": BACKUP, "version": None, "state": "damaged"},
            "factory": {"file": FACTORY, "version": 0x00010000, "state": "found"},
            "defaults": {"file": DEFAULTS, "version": None, "state": "cannot be read"}})

    def test_backups_are_listed_by_name_and_looked_into(self):
        shutil.copyfile(PRIMARY, DATED + "2026-11-02_08_15_00.db1")
        shutil.copyfile(PRIMARY, DATED + "2026-11-03_08_15_00.db2")
        spoil(DATED + "2026-11-03_08_15_00.db2")
        write_bytes(DATED + "notes.txt", b"")
        size = os.path.getsize(PRIMARY)
        self.expect("backups", out=f"2026-11-02_08_15_00.db1  {size} bytes  healthy\n"
                                   f"2026-11-03_08_15_00.db2  {size} bytes  corrupt\n")
        self.assertEqual(self.json("backups"), {"directory": DATED, "copies": [
            {"name": "2026-11-02_08_15_00.db1", "size": size, "healthy": True, "health": "healthy"},
            {"name": "2026-11-03_08_15_00.db2", "size": size, "healthy": False, "health": "corrupt"}]})

    def test_no_backups_are_no_failure(self):
        self.expect("backups", out="/mnt/vendor/nvdata/ holds no copies\n")
        os.rmdir(DATED)
        self.assertEqual(self.json("backups"), {"directory": DATED, "copies": []})

    def test_copies_that_cannot_be_read_are_neither_missing_nor_damaged(self):
        shutil.copyfile(PRIMARY, DATED + "2026-11-02_08_15_00.db1")
        writer = connect(DATED + "2026-11-02_08_15_00.db1")
        writer.execute("begin exclusive")
        size = os.path.getsize(PRIMARY)
        self.expect("backups", out=f"2026-11-02_08_15_00.db1  {size} bytes  unreadable\n")
        self.assertEqual(self.json("backups")["copies"], [
            {"name": "2026-11-02_08_15_00.db1", "size": size, "healthy": False, "health": "unreadable"}])
        writer.close()
        shutil.rmtree("/mnt/vendor")
        write_bytes("/mnt/vendor", b"")
        self.expect("backups", code=1, err="vexadm: /mnt/vendor/nvdata/ cannot be read: Not a directory\n")

    def test_kv_shows_pairs_as_the_library_takes_them_apart(self):
        self.expect("kv", "system", "hosts", out='router = "192.168.1.1"\nprinter = "192.168.1.9"\n')
        self.assertEqual(self.json("kv", "system", "hosts"), {"file": BACKUP, "pairs": [
            {"name": "router", "value": "192.168.1.1"}, {"name": "printer", "value": "192.168.1.9"}]})
        make_items(BACKUP, [item("t", 1, "odd", TEXT, "a,b,c;d;e f,\x1b[31m;;hidden,1;")])
        self.expect("kv", "t", "odd", out='a = "b,c"\nd = ""\n"e f" = "\\x1b[31m"\n')

    def test_kv_of_one_name_is_its_value(self):
        self.expect("kv", "system", "hosts", "printer", out="192.168.1.9\n")
        self.assertEqual(self.json("kv", "system", "hosts", "printer"), {"name": "printer", "value": "192.168.1.9"})
        self.expect("kv", "system", "hosts", "nas", code=1,
                    err="vexadm: hosts has no nas; vexadm kv system hosts shows all pairs\n")

    def test_kv_of_a_bad_checksum_fails(self):
        sql(BACKUP, "update system set value='Router,1;' where key='hosts'")
        self.expect("kv", "system", "hosts", code=1,
                    err="vexadm: hosts fails its checksum: programs get the default instead\n")

    def test_diff_shows_both_lines_and_fails_where_they_differ(self):
        os.mkdir("/tmp/other")
        make_store(changed("Router", item("wifi", 23, "guest net", U8, 1))[1:], "/tmp/other/")
        self.expect("diff", "/data/", "/tmp/other", code=1, out="""\
- NET admin 9 u16 8443
+ wifi "guest net" 23 u8 1
- wifi ssid 20 text "Garden house"
+ wifi ssid 20 text "Router"
""")
        document = self.json("diff", "/data", "/tmp/other/", code=1)
        self.assertEqual((document["a"], document["b"]), ("/data/configbak.db", "/tmp/other/configbak.db"))
        self.assertEqual([(pair["a"] and pair["a"]["value"], pair["b"] and pair["b"]["value"])
                          for pair in document["differences"]], [(8443, None), (None, 1), ("Garden house", "Router")])

    def test_diff_of_the_same_prints_nothing(self):
        self.expect("diff", PRIMARY, BACKUP)
        self.assertEqual(self.json("diff", "/", "/data"), {"a": BACKUP, "b": BACKUP, "differences": []})

    def test_diff_takes_trees_directories_and_files(self):
        shutil.copytree("/data", "/tmp/tree/data")
        make_items("/tmp/tree/data/config.db", changed("Router"))
        self.expect("diff", "/", "/tmp/tree")
        for a, b in (("/tmp/tree", "/data"), ("/tmp/tree/data/", "/")):
            self.expect("diff", "--file=primary", a, b, code=1,
                        out='- wifi ssid 20 text "Router"\n+ wifi ssid 20 text "Garden house"\n')
        make_defaults(path="/tmp/tree/data/DefItems.db")
        self.assertEqual(self.vexadm("diff", "--file", "defaults", "/tmp/tree", "/").err,
                         "vexadm: /: /data/DefItems.db is not there; a device tree, a directory with the files, or "
                         "one of them was expected\n")

    def test_diff_marks_a_bad_checksum(self):
        shutil.copyfile(BACKUP, "/tmp/a.db")
        sql("/tmp/a.db", "update wifi set crc=1 where key='ssid'")
        self.expect("diff", "/tmp/a.db", BACKUP, code=1,
                    out='- wifi ssid 20 text "Garden house" (bad checksum)\n+ wifi ssid 20 text "Garden house"\n')

    def test_diff_of_what_cannot_be_compared_fails(self):
        write_bytes("/tmp/no.db", b"x" * 4096)
        self.expect("diff", "/tmp/no.db", "/data", code=1,
                    err="vexadm: /tmp/no.db cannot be read: file is not a database; vexadm check tells more\n")
        self.expect("diff", "--file", "factory", "/data", "/data", code=2,
                    err="vexadm: --file factory: primary, backup or defaults\n")

    def test_crc_is_the_one_that_items_have(self):
        for text in ("47617264656e20686f757365", "00", "ff" * 300):
            crc = crc_of(bytes.fromhex(text))
            self.expect("crc", text, out=f"{crc} {crc & 0xFFFFFFFF:08x}\n")
        self.assertEqual(self.json("crc", "47:61 72"), {"crc": crc_of(b"Gar"), "bits": 3})
        self.assertEqual(self.json("crc", "--all", "31")["bits"], 8)

    def test_ussd_decodes_by_its_scheme(self):
        self.expect("ussd", "0f", "C8329BFD06", out="Hello\n")
        self.expect("ussd", "0x48", "00480065006c006c00e9", out="Hell\u00e9\n")
        self.assertEqual(self.json("ussd", "0F", "C8329BFD06"), {"text": "Hello"})

    def test_export_writes_the_csv_of_the_library(self):
        self.expect("export", out="/data/ExportCSV.csv\n")
        self.assertEqual(read_bytes("/data/ExportCSV.csv").replace(b"\r\n\0", b"\n").replace(b"\0", b""),
                         b"key,len,type,value,\nSQL_VER_KEY,4,3,65537,\nadmin,2,2,8443,\n"
                         b"hosts,39,5,router,192.168.1.1;printer,192.168.1.9;\nchannel,1,1,11,\npsk,3,6,789258,\n"
                         b"ssid,12,5,Garden house\n")

    def test_version_is_the_one_of_the_library(self):
        self.expect("version", out="vexadm 0.1.0\n")
        self.expect("--version", out="vexadm 0.1.0\n")
