# SPDX-License-Identifier: MIT
"""Stores in any state: the commands that look end with 0, 1 or 2, say valid JSON, write no control
character to the terminal, and change nothing. The damages are those of tests/faults/corruption_damage.cpp;
a failure is repeated by its name, which has the seed."""
import random
import shutil

from support import *

PAGE = 4096
PLACES = ("/data", "/vexanvbak")
LOOKS = (("list",), ("list", "--file", "primary"), ("get", "cfg", "key1"), ("check",), ("dump",),
         ("diff", "/data/config.db", "/"), ("journal",), ("versions",), ("kv", "cfg", "hosts"), ("backups",), ("defaults",))
WITHOUT_JSON = ("dump",)
NAMES = {PRIMARY: "primary", BACKUP: "backup", JOURNAL: "journal", DEFAULTS: "defaults", FACTORY: "factory"}
ITEMS = (
    item("cfg", 1, "hosts", TEXT, "router,192.168.1.1;printer,192.168.1.9;"),
    *(item("cfg", 10 + number, f"key{number}", TEXT, "value %d " % number * 30) for number in range(30)),
    *(item("net", 100 + number, f"net{number}", 1 + number % 4, 200) for number in range(20)),
    item("net", 200, "block", BYTES, bytes(range(256)) * 20),
)


def is_safe(text):
    return not any(ord(one) < 0x20 and one != "\n" or 0x7F <= ord(one) < 0xA0 for one in text)


class Hostile(ToolTest):
    def setUp(self):
        super().setUp()
        make_store(ITEMS)
        make_defaults(ITEMS)
        make_items(FACTORY, ITEMS)
        self.saved = {path: read_bytes(path) for path in FILES}
        self.tried = 0

    def restore(self):
        for place in PLACES:
            for name in os.listdir(place):
                path = os.path.join(place, name)
                shutil.rmtree(path) if os.path.isdir(path) and not os.path.islink(path) else os.unlink(path)
        for path, data in self.saved.items():
            write_bytes(path, data)

    def try_one(self, name, looks=None):
        """The turn of the commands goes round, so that each meets each kind of damage at some time."""
        before = snapshot(*PLACES)
        for look in looks or (LOOKS[self.tried % len(LOOKS)], ("check",)):
            as_json = look[0] not in WITHOUT_JSON and (self.tried + len(look)) % 2 == 0
            result = self.vexadm(*look, *(("--json",) if as_json else ()), timeout=10 * SLOWER)
            self.assertIn(result.code, (0, 1, 2), (name, look, result.err))
            self.assertNotIn("Sanitizer", result.err, (name, look))
            self.assertTrue(is_safe(result.err), (name, look, result.err))
            if as_json and result.out:
                json.loads(result.out)
            if as_json:
                self.assertTrue(result.out or result.code, (name, look))
            else:
                self.assertTrue(is_safe(result.out), (name, look))
            if result.code == 1 and look[0] not in ("check", "diff"):
                self.assertRegex(result.err, r"(?s)\Avexadm: .*\n\Z", (name, look))
        self.assertEqual(snapshot(*PLACES), before, name)
        self.tried += 1

    def damage(self, name, path, data, **options):
        write_bytes(path, data)
        self.try_one(f"{NAMES[path]}: {name}", **options)
        write_bytes(path, self.saved[path])

    def cut(self, path):
        size = len(self.saved[path])
        for number, odd in [(number, odd) for number in range(size // PAGE) for odd in (0, 1, 511)][::SLOWER]:
            self.damage(f"cut to {number * PAGE + odd}", path, self.saved[path][:number * PAGE + odd])

    def flip(self, path, count):
        for seed in range(count // SLOWER):
            chance = random.Random(f"{path} {seed}")
            data = bytearray(self.saved[path])
            header = seed % 3 == 0
            for _ in range(1 + seed % 5 * 3):
                bit = chance.randrange((100 if header else len(data)) * 8)
                data[bit // 8] ^= 1 << bit % 8
            self.damage(f"bits, seed {seed}", path, bytes(data))

    def overwrite(self, path):
        pages = len(self.saved[path]) // PAGE
        for number, kind in [(number, kind) for number in range(pages) for kind in range(5)][::SLOWER]:
            chance = random.Random(f"{path} {number} {kind}")
            data = bytearray(self.saved[path])
            other = (number + 1 + chance.randrange(pages)) % pages * PAGE
            page = (bytes(PAGE), b"\xff" * PAGE, chance.randbytes(PAGE), bytes(data[other:other + PAGE]),
                    chance.randbytes(PAGE))[kind]
            first = chance.randrange(PAGE) if kind == 4 else 0
            last = min(PAGE, first + 1 + chance.randrange(64)) if kind == 4 else PAGE
            data[number * PAGE + first:number * PAGE + last] = page[first:last]
            self.damage(f"page {number}, kind {kind}", path, bytes(data))

    def test_cut_primary(self):
        self.cut(PRIMARY)

    def test_cut_backup(self):
        self.cut(BACKUP)

    def test_cut_other_files(self):
        for path in (JOURNAL, DEFAULTS, FACTORY):
            self.cut(path)

    def test_flipped_bits_of_the_primary(self):
        self.flip(PRIMARY, 80)

    def test_flipped_bits_of_the_backup(self):
        self.flip(BACKUP, 160)

    def test_flipped_bits_of_other_files(self):
        for path in (JOURNAL, DEFAULTS, FACTORY):
            self.flip(path, 40)

    def test_overwritten_pages_of_the_primary(self):
        self.overwrite(PRIMARY)

    def test_overwritten_pages_of_the_backup(self):
        self.overwrite(BACKUP)

    def test_overwritten_pages_of_other_files(self):
        for path in (JOURNAL, DEFAULTS, FACTORY):
            self.overwrite(path)

    def test_the_header_byte_by_byte(self):
        for offset in range(0, 108, SLOWER):
            for value in (0xFF, offset % 4):
                data = bytearray(self.saved[BACKUP])
                data[offset] = value
                self.damage(f"byte {offset} is {value}", BACKUP, bytes(data))

    def test_something_else_in_place_of_a_file(self):
        sql("/tmp/foreign.db", "create table cfg (a, b)", "create table state (a, b)", "create view net as select 1")
        for path in FILES:
            for name, make in (
                    ("directory", os.mkdir), ("dangling link", lambda at: os.symlink("/data/nowhere", at)),
                    ("link to itself", lambda at: os.symlink(at, at)),
                    ("empty", lambda at: write_bytes(at, b"")), ("short", lambda at: write_bytes(at, b"hello\n")),
                    ("foreign", lambda at: write_bytes(at, b"x" * 9000)), ("zeros", lambda at: write_bytes(at, bytes(9000))),
                    ("database", lambda at: shutil.copyfile("/tmp/foreign.db", at)),
                    ("device", lambda at: os.symlink("/dev/zero", at)), ("pipe", os.mkfifo),
                    ("another file", lambda at: shutil.copyfile(JOURNAL if at != JOURNAL else PRIMARY, at))):
                os.unlink(path)
                make(path)
                self.try_one(f"{NAMES[path]}: {name}", looks=LOOKS if SLOWER == 1 else None)
                self.restore()

    def test_something_else_beside_a_file(self):
        hot_journal(FACTORY, ("update cfg set value=randomblob(2000)",))
        foreign = read_bytes(FACTORY + "-journal")
        turn = 0
        for path in FILES:
            for suffix in ("-journal", "-wal", "-shm"):
                for name, make in (
                        ("directory", os.mkdir), ("foreign journal", lambda at: write_bytes(at, foreign)),
                        ("noise", lambda at: write_bytes(at, random.Random(1).randbytes(5000))),
                        ("pipe", os.mkfifo), ("link to itself", lambda at: os.symlink(at, at))):
                    turn += 1
                    if turn % SLOWER % 3 != 0:  # a third of them where a start takes long
                        continue
                    self.restore()
                    make(path + suffix)
                    self.try_one(f"{NAMES[path]}{suffix}: {name}")

    def test_damaged_hot_journals(self):
        hot_journal(BACKUP, ("update cfg set value=randomblob(2000)",))
        halfway, journal = read_bytes(BACKUP), read_bytes(BACKUP + "-journal")
        for seed in range(100 // SLOWER):
            chance = random.Random(seed)
            data = bytearray(journal)
            for _ in range(1 + seed % 4):
                data[chance.randrange(64 if seed % 2 else len(data))] = chance.randrange(256)
            if seed % 5 == 0:
                del data[chance.randrange(len(data)):]
            write_bytes(BACKUP, halfway)
            write_bytes(BACKUP + "-journal", bytes(data))
            self.try_one(f"journal of the backup, seed {seed}")

    def test_names_and_values_that_would_move_the_cursor(self):
        for seed in range(40 // SLOWER):
            chance = random.Random(seed)
            self.restore()
            evil = ["".join(chance.choice("\x1b[]0;31mHJ\x07\x08\r\n\t\x7f\x9b\u009f\u202eab '\"\\;,$`") for _ in range(20))
                    for _ in range(6)]
            extra = [item(evil[0], 1, evil[1], TEXT, evil[2]), item("cfg", 2, evil[3], BYTES, chance.randbytes(9)),
                     item("cfg", 3, "key1" + evil[4], TEXT, chance.randbytes(20))]
            add_items(BACKUP, extra)
            add_items(PRIMARY, extra[1:] + [item("net", 5, evil[5], TEXT, "bad")])
            sql(PRIMARY, "update net set crc=77 where value='bad'")
            make_journal(chance.choice((READY, WRITE_DONE, 5)), item(evil[0], 1, evil[1], TEXT, evil[2]))
            write_bytes("/data/.vexadm-copy-" + evil[4].replace("/", ""), b"")
            shutil.copyfile(PRIMARY, DATED + evil[5].replace("/", "") + ".db1")
            self.try_one(f"names, seed {seed}", looks=LOOKS[seed % 2::2])
            for look in (("list", evil[0]), ("get", evil[0], evil[1]), ("kv", evil[0], evil[1]),
                         ("watch", evil[0], evil[1], "--count", "1"), ("__words", "tables"), ("__words", "keys", "cfg")):
                result = self.vexadm(*look)
                self.assertTrue(is_safe(result.err), (seed, look))
                # get prints texts as they are, and tables and keys for a shell stand in lines of their own.
                self.assertTrue(is_safe(result.out) or look[0] == "get", (seed, look, result.out))

    def test_a_schema_that_wants_to_run_something_runs_nothing(self):
        for statement in (
                "create table t (key text, value blob default (load_extension('/tmp/x')))",
                "create view cfg2 as select load_extension('/tmp/x')",
                "create trigger tr after insert on cfg begin select load_extension('/tmp/x'); end",
                "create table g (key text, value blob generated always as (key || 'x'))",
                "create index odd on cfg (key collate nocase)",
                "create virtual table v using fts4(key, value)",
                "create table ends (key text primary key, value blob) without rowid"):
            self.restore()
            sql(BACKUP, statement)
            self.try_one(statement, looks=LOOKS)

    def test_values_without_measure(self):
        """Sizes, types and lengths that no program stores."""
        self.restore()
        connection = connect(BACKUP)
        for number, (kind, length, crc, value) in enumerate((
                (3, -1, 0, b""), (2**40, 5, 2**40, b"12345"), (-7, 0, -1, None), ("text", "long", "x", 3.5),
                (5, 2**62, 0, "t" * 100000), (6, 3, 0, bytes(70000)), (1, 1, 0, b"12"), (3, 4, 0, 77), (None, 0, 0, "x"))):
            connection.execute("create table if not exists odd (id, key, type, len, crc, value)")
            connection.execute("insert into odd values (?,?,?,?,?,?)", (number, f"k{number}", kind, length, crc, value))
        connection.execute("insert into odd values (?,?,?,?,?,?)", (2**70 * 1.0, b"\xff\x00key", 5, 1, 0, "v"))
        connection.close()
        self.try_one("odd values", looks=LOOKS + (("list", "odd"), ("list", "odd", "--json"), ("get", "odd", "k4")))
