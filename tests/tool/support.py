# SPDX-License-Identifier: MIT
"""What the tests of the program share. Each case is a process of its own in a private device root,
whose /data, /vexanv, /vexanvbak, /mnt and /tmp are empty and the case's own.

From the environment: VEXA_TOOL, the program; VEXA_STORE_HOST, the program of store_host.c;
VEXA_EMULATOR, the words that start a program for another processor; VEXA_INSTRUMENTED, 1 where the
program has sanitizers or counts its lines; VEXA_MODEM_SIMULATOR.
"""
import collections
import hashlib
import json
import os
import shutil
import sqlite3
import stat
import struct
import subprocess
import unittest

PRIMARY = "/data/config.db"
BACKUP = "/data/configbak.db"
JOURNAL = "/data/state.db"
DEFAULTS = "/data/DefItems.db"
FACTORY = "/vexanvbak/data/config.db"
DATED = "/mnt/vendor/nvdata/"
FILES = (PRIMARY, BACKUP, JOURNAL, DEFAULTS, FACTORY)

VERSION = 0x00010001
READY, WRITE_DONE, BACKUP_DONE = 100, 101, 102
U8, U16, U32, U32ALT, TEXT, BYTES = range(1, 7)

EMULATOR = os.environ.get("VEXA_EMULATOR", "").split()
INSTRUMENTED = os.environ.get("VEXA_INSTRUMENTED") == "1"
# How many of many like cases are left out where a start of the program takes that much longer.
SLOWER = 8 if EMULATOR else 4 if INSTRUMENTED else 1

STORED = "vexadm: stored; programs that run keep the value they have read until they start again\n"

Result = collections.namedtuple("Result", "code out err")
Item = collections.namedtuple("Item", "table id key type value")


def item(table, number, key, kind, value):
    """Numbers as such; texts and bytes as they are."""
    if isinstance(value, int):
        value = value.to_bytes({U8: 1, U16: 2, U32: 4, U32ALT: 4}[kind], "little")
    elif isinstance(value, str):
        value = value.encode()
    return Item(table, number, key, kind, value)


GARDEN = (
    item("NET", 9, "admin", U16, 8443),
    item("system", 30, "hosts", TEXT, "router,192.168.1.1;printer,192.168.1.9;"),
    item("wifi", 21, "channel", U8, 11),
    item("wifi", 22, "psk", BYTES, bytes.fromhex("0a0b0c")),
    item("wifi", 20, "ssid", TEXT, "Garden house"),
)
GARDEN_DUMP = """vexadm dump 1
NET admin 9 u16 8443
system hosts 30 text "router,192.168.1.1;printer,192.168.1.9;"
wifi channel 21 u8 11
wifi psk 22 bytes hex:0a0b0c
wifi ssid 20 text "Garden house"
"""


def crc_of(value):
    """As docs/storage.md says, by another program: the length in bytes is taken for one in bits."""
    crc = 0
    for bit in range(len(value) & 0xFFFF):
        one = value[bit // 8] >> (7 - bit % 8) & 1
        crc = (crc << 1) & 0xFFFFFFFF ^ (0x04C11DB7 if (crc >> 31) ^ one else 0)
    return struct.unpack("<i", struct.pack("<I", crc))[0]


def connect(path):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    connection = sqlite3.connect(path, isolation_level=None)
    connection.text_factory = bytes
    return connection


def sql(path, *statements):
    """Runs statements, each a text or (text, parameters). The rows of the last one."""
    connection = connect(path)
    rows = []
    for statement in statements:
        text, parameters = statement if isinstance(statement, tuple) else (statement, ())
        rows = connection.execute(text, parameters).fetchall()
    connection.close()
    return rows


def quoted(name):
    return '"' + name.replace('"', '""') + '"'


def add_items(path, items):
    connection = connect(path)
    connection.execute("begin")
    for one in items:
        connection.execute(
            f"create table if not exists {quoted(one.table)} (id integer not null,key text not null,"
            "type integer not null,len integer not null,crc integer not null,value blob)")
        connection.execute(f"insert into {quoted(one.table)} values (?,?,?,?,?,?)",
                           (one.id, one.key, one.type, len(one.value), crc_of(one.value), one.value))
    connection.execute("commit")
    connection.close()


def version_record(version=VERSION):
    return item("SQL_VER_TAB", 65537, "SQL_VER_KEY", U32, version)


def make_items(path, items=GARDEN, version=VERSION):
    """An item database as the library has it."""
    if os.path.exists(path):
        os.unlink(path)
    add_items(path, ((version_record(version),) if version is not None else ()) + tuple(items))


def make_journal(state=BACKUP_DONE, last=GARDEN[-1], path=JOURNAL):
    if os.path.exists(path):
        os.unlink(path)
    sql(path,
        "create table state (key text not null,item_table text not null,id integer not null,"
        "item_key text not null,type integer,len integer,state integer)",
        ("insert into state values ('write_state',?,?,?,?,?,?)",
         (last.table, last.id, last.key, last.type, len(last.value), state)))


def make_defaults(items=GARDEN, path=DEFAULTS, version=VERSION):
    for one in (version_record(version),) + tuple(items):
        sql(path,
            f"create table if not exists {quoted(one.table)} (key text not null,type integer not null,"
            "len integer not null,value blob)",
            (f"insert into {quoted(one.table)} values (?,?,?,?)", (one.key, one.type, len(one.value), one.value)))


def make_store(items=GARDEN, directory="/data/"):
    """Primary, backup and journal after a write that came to its end."""
    make_items(directory + "config.db", items)
    shutil.copyfile(directory + "config.db", directory + "configbak.db")
    make_journal(path=directory + "state.db")


def changed(value, *items):
    """The items of the garden with the value of ssid changed, and further ones."""
    return GARDEN[:-1] + (GARDEN[-1]._replace(value=value.encode()),) + items


def spoil(path, offset=100, count=600):
    """Damage that keeps SQLite from reading the schema: code 11, the library's "corrupt"."""
    with open(path, "r+b") as file:
        file.seek(offset)
        file.write(b"\xa5" * count)


def write_bytes(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(data)


def read_bytes(path):
    with open(path, "rb") as file:
        return file.read()


def rows_of(path):
    """Everything that an item database holds, in the order of the tables' names and of the rows."""
    connection = connect(path)
    tables = [row[0].decode() for row in connection.execute(
        "select name from sqlite_master where type='table' order by name")]
    rows = {table: connection.execute(f"select * from {quoted(table)}").fetchall() for table in tables}
    connection.close()
    return rows


def hot_journal(path, statements=("update wifi set value=randomblob(4000)",)):
    """Leaves the file as a power cut does in the middle of a transaction: half written, its rollback
    journal beside it."""
    connection = connect(path)
    connection.execute("pragma cache_size=1")
    connection.execute("pragma synchronous=full")
    connection.execute("begin immediate")
    for statement in statements:
        connection.execute(statement)
    halfway, journal = read_bytes(path), read_bytes(path + "-journal")
    connection.execute("rollback")
    connection.close()
    assert journal.startswith(b"\xd9\xd5\x05\xf9"), "the journal has no header yet"
    write_bytes(path, halfway)
    write_bytes(path + "-journal", journal)


def snapshot(*places):
    """Every entry with its kind, mode, content and times of change."""
    found = {}
    for place in places:
        for directory, names, files in os.walk(place):
            for path in [directory] + [os.path.join(directory, name) for name in files + names]:
                entry = os.lstat(path)
                what = None
                if stat.S_ISLNK(entry.st_mode):
                    what = os.readlink(path)
                elif stat.S_ISREG(entry.st_mode):
                    what = hashlib.sha256(read_bytes(path)).hexdigest()
                found[path] = (stat.filemode(entry.st_mode), entry.st_ino, entry.st_size, entry.st_mtime_ns,
                               entry.st_ctime_ns, what)
    return found


class ToolTest(unittest.TestCase):
    maxDiff = 4000

    def setUp(self):
        if os.environ.get("VEXA_DEVICE_ROOT") != "1":
            reason = "no private device root: " + os.environ.get(
                "VEXA_DEVICE_ROOT_MISSING", "started without the device_root launcher (run it through ctest)")
            if os.environ.get("CI") == "true":
                self.fail(reason)
            self.skipTest(reason)

    def not_emulated(self, reason):
        if EMULATOR:
            self.skipTest("not under emulation: " + reason)

    def not_instrumented(self, reason):
        if INSTRUMENTED:
            self.skipTest("not with sanitizers or line counts: " + reason)

    def command(self, *arguments):
        return EMULATOR + [os.environ["VEXA_TOOL"], *arguments]

    def vexadm(self, *arguments, stdin=b"", timeout=50, environment=None, **options):
        if isinstance(stdin, str):
            stdin = stdin.encode()
        done = subprocess.run(
            self.command(*arguments), input=stdin, capture_output=True, timeout=timeout, check=False,
            env={**os.environ, **(environment or {})}, **options)
        return Result(done.returncode, done.stdout.decode(errors="surrogateescape"),
                      done.stderr.decode(errors="surrogateescape"))

    def expect(self, *arguments, out="", err="", code=0, **options):
        """The very bytes of both outputs, and the exit code."""
        result = self.vexadm(*arguments, **options)
        self.assertEqual((result.code, result.err), (code, err), arguments)
        self.assertEqual(result.out, out, arguments)

    def json(self, *arguments, code=0, **options):
        result = self.vexadm(*arguments, "--json", **options)
        self.assertEqual((result.code, result.err), (code, ""), arguments)
        return json.loads(result.out)

    def host(self, *arguments):
        """A program of the router: store_host.c."""
        done = subprocess.run(EMULATOR + [os.environ["VEXA_STORE_HOST"], *arguments], capture_output=True,
                              timeout=50, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, b""), arguments)
        return [line for line in done.stdout.decode().splitlines() if "oem_fwa[" not in line]
