# SPDX-License-Identifier: MIT
"""--root: a copied tree is looked into by anybody, and written in a namespace of its own, or not at all."""
import ctypes
import platform
import shutil
import struct

from support import *

NOBODY = 65534
UNSHARE = {"x86_64": 272, "aarch64": 97, "armv7l": 337}


def refuse_namespaces():
    """From here on unshare() fails with EPERM, as where a container or the kernel's settings forbid it."""
    libc = ctypes.CDLL(None, use_errno=True)

    def instruction(code, jump_true, jump_false, value):
        return struct.pack("<HBBI", code, jump_true, jump_false, value)

    program = (instruction(0x20, 0, 0, 0) + instruction(0x15, 0, 1, UNSHARE[platform.machine()]) +
               instruction(0x06, 0, 0, 0x00050001) + instruction(0x06, 0, 0, 0x7FFF0000))
    buffer = ctypes.create_string_buffer(program)
    filter_program = struct.pack("HxxxxxxQ" if ctypes.sizeof(ctypes.c_void_p) == 8 else "HxxI", 4, ctypes.addressof(buffer))
    if libc.prctl(38, 1, 0, 0, 0) != 0 or libc.prctl(22, 2, ctypes.create_string_buffer(filter_program), 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "no seccomp filter")


class Tree(ToolTest):
    tree = "/tmp/tree"

    def setUp(self):
        super().setUp()
        make_store(changed("Machine"))
        os.makedirs(self.tree + "/data")
        make_store(directory=self.tree + "/data/")
        self.machine = snapshot("/data", "/mnt/vendor", "/vexanv", "/vexanvbak")

    def machine_is_untouched(self):
        self.assertEqual(snapshot("/data", "/mnt/vendor", "/vexanv", "/vexanvbak"), self.machine)

    def in_tree(self, *words, **options):
        return self.vexadm("--root", self.tree, *words, **options)

    def dump(self, which="backup"):
        return self.vexadm("dump", "--file", f"{self.tree}/data/{'configbak' if which == 'backup' else 'config'}.db").out


class Inspecting(Tree):
    def test_every_look_is_into_the_tree(self):
        self.assertEqual(self.in_tree("dump"), Result(0, GARDEN_DUMP, ""))
        self.assertEqual(self.in_tree("get", "wifi", "ssid").out, "Garden house\n")
        files = json.loads(self.in_tree("check", "--json").out)["files"]
        self.assertEqual([one["file"] for one in files.values()], [
            "/tmp/tree/data/config.db", "/tmp/tree/data/configbak.db", "/tmp/tree/data/state.db",
            "/tmp/tree/data/DefItems.db", "/tmp/tree/vexanvbak/data/config.db"])
        self.assertEqual(self.in_tree("backups").out, "/tmp/tree/mnt/vendor/nvdata/ holds no copies\n")
        self.assertEqual(self.vexadm("--root", self.tree + "//", "journal", "--json").out,
                         self.in_tree("journal", "--json").out)
        self.machine_is_untouched()

    def test_a_store_that_was_moved_lies_below_the_tree_too(self):
        os.mkdir(self.tree + "/moved")
        make_store(changed("Moved"), self.tree + "/moved/")
        self.assertEqual(self.in_tree("--store", "/moved/", "get", "wifi", "ssid").out, "Moved\n")

    def test_links_of_the_tree_stay_in_the_tree(self):
        self.not_emulated("the emulator does not know openat2")
        os.rename(self.tree + "/data", self.tree + "/flash")
        for link in ("/flash", "flash", "../../../flash"):
            os.symlink(link, self.tree + "/data")
            self.assertEqual(self.in_tree("get", "wifi", "ssid"), Result(0, "Garden house\n", ""), link)
            os.unlink(self.tree + "/data")
        os.symlink("/data", self.tree + "/data")  # a link to itself there; the machine's it is not
        self.assertEqual(self.in_tree("get", "wifi", "ssid").code, 1)
        os.unlink(self.tree + "/data")
        os.mkdir(self.tree + "/data")
        os.symlink("/flash/configbak.db", self.tree + "/data/configbak.db")
        self.assertEqual(self.in_tree("get", "wifi", "ssid").out, "Garden house\n")

    def test_a_tree_that_is_not_there_fails(self):
        for command in (("list",), ("check", "--quiet"), ("repair",), ("backups",), ("watch", "wifi", "ssid")):
            self.expect("--root", "/nowhere", *command, code=1, err="vexadm: --root /nowhere: No such file or directory\n")
        self.expect("--root", "/etc/passwd", "check", code=1,
                    err="vexadm: --root /etc/passwd: a directory with a device tree was expected\n")
        self.expect("--root", "", "check", code=2,
                    err="vexadm: --root is empty: which directory has the device tree?\n")
        self.expect("--store", "/nowhere/", "check", code=1,
                    err="vexadm: /nowhere/ is not there; a device tree has data below it\n")

    def test_a_machine_that_is_no_unit_has_no_healthy_store(self):
        os.rename("/data", "/elsewhere")
        self.expect("check", code=1, err="vexadm: /data/ is not there; is this the unit? --root DIR looks into a copy "
                                         "of its files\n")

    def test_an_ordinary_user_looks_into_it(self):
        self.as_nobody_possible()
        shown = {}
        for look in (("list",), ("check", "--json"), ("dump",), ("journal",), ("versions",), ("diff", self.tree, "/data")):
            shown[look] = self.in_tree(*look)
        hot_journal(self.tree + "/data/configbak.db")
        for directory, names, files in os.walk(self.tree):
            for name in names + files:
                os.chmod(os.path.join(directory, name), 0o755 if name in names else 0o644)
        before = snapshot(self.tree)
        for look, expected in shown.items():
            if look[0] != "check":  # which tells of the journal
                self.assertEqual(self.as_nobody("--root", self.tree, *look), expected, look)
        self.assertEqual(snapshot(self.tree), before)

    def test_a_file_that_the_user_may_not_read_is_told(self):
        self.as_nobody_possible()
        os.chmod(self.tree + "/data/configbak.db", 0o600)
        self.assertEqual(self.as_nobody("--root", self.tree, "list"), Result(
            1, "", "vexadm: /tmp/tree/data/configbak.db cannot be read: Permission denied; vexadm check tells more\n"))
        self.assertIn("FAULT   The backup cannot be read: ", self.as_nobody("--root", self.tree, "check").out)

    def as_nobody_possible(self):
        with open("/proc/self/uid_map", encoding="ascii") as mapped:
            if os.geteuid() != 0 or int(mapped.read().split()[2]) <= NOBODY:
                self.skipTest("not as an ordinary user, who cannot become another")
        # The build may lie where nobody may go.
        os.makedirs("/tmp/bin", exist_ok=True)
        shutil.copy(os.environ["VEXA_TOOL"], "/tmp/bin/vexadm")
        shutil.copy(os.environ["VEXA_LIBRARY"], "/tmp/bin/libvexadm.so.0")

    def as_nobody(self, *words, **options):
        done = subprocess.run(
            EMULATOR + ["/tmp/bin/vexadm", *words], capture_output=True, timeout=50, check=False, cwd="/tmp",
            stdin=subprocess.DEVNULL, user=NOBODY, group=NOBODY, extra_groups=[],
            env={**os.environ, "LD_LIBRARY_PATH": "/tmp/bin"}, **options)
        return Result(done.returncode, done.stdout.decode(), done.stderr.decode())


class Writing(Tree):
    def setUp(self):
        super().setUp()
        self.not_emulated("the emulator does not know openat2")

    def test_every_write_is_into_the_tree(self):
        self.assertEqual(self.in_tree("set", "wifi", "ssid", "In the tree"), Result(0, "", STORED))
        changed_dump = GARDEN_DUMP.replace("Garden house", "In the tree")
        self.assertEqual((self.dump(), self.dump("primary")), (changed_dump, changed_dump))
        self.assertEqual(self.in_tree("empty", "wifi", "psk"), Result(0, "", STORED))
        self.assertEqual(self.in_tree("load", "-", stdin=GARDEN_DUMP), Result(0, "", "vexadm: 2 items stored\n"))
        self.assertEqual(self.dump(), GARDEN_DUMP)
        self.assertEqual(self.in_tree("export"), Result(0, "/tmp/tree/data/ExportCSV.csv\n", ""))
        self.assertIn(b"Garden house", read_bytes(self.tree + "/data/ExportCSV.csv"))
        self.machine_is_untouched()

    def test_repair_and_clean_are_of_the_tree(self):
        spoil(self.tree + "/data/config.db")
        result = self.in_tree("repair")
        self.assertEqual((result.code, result.err), (0, ""))
        self.assertRegex(result.out, r"\Aeverything as it was is kept in /tmp/tree/data/vexadm-repair_[-0-9_]+\n"
                                     r"replaced /tmp/tree/data/config.db by a copy of /tmp/tree/data/configbak.db\n\Z")
        self.assertEqual(self.in_tree("check", "--quiet").code, 0)
        self.assertEqual(self.in_tree("clean", "--backup", "--yes", "--quiet"), Result(0, "", ""))
        names = os.listdir(self.tree + "/mnt/vendor/nvdata")
        self.assertEqual(len(names), 1)
        self.assertFalse(os.path.exists(self.tree + "/data/config.db"))
        self.machine_is_untouched()

    def test_repair_takes_the_factory_copy_of_the_tree(self):
        os.makedirs(self.tree + "/vexanvbak/data")
        make_items(self.tree + "/vexanvbak/data/config.db", changed("Factory"))
        make_items(FACTORY, changed("The machine's"))
        self.machine = snapshot("/data", "/mnt/vendor", "/vexanv", "/vexanvbak")
        for name in ("config.db", "configbak.db"):
            spoil(f"{self.tree}/data/{name}")
        self.assertEqual(self.in_tree("repair").code, 0)
        self.assertEqual(self.dump(), GARDEN_DUMP.replace("Garden house", "Factory"))
        self.machine_is_untouched()

    def test_a_clean_without_a_copy_makes_no_directory(self):
        self.assertEqual(self.in_tree("clean", "--yes", "--quiet"), Result(0, "", ""))
        self.assertEqual(sorted(os.listdir(self.tree)), ["data"])
        self.machine_is_untouched()

    def test_what_is_written_through_links_stays_in_the_tree(self):
        os.rename(self.tree + "/data", self.tree + "/flash")
        os.symlink("/flash", self.tree + "/data")
        os.makedirs(self.tree + "/mnt")
        os.symlink("/../../dated", self.tree + "/mnt/vendor")
        os.makedirs(self.tree + "/dated/nvdata")
        self.assertEqual(self.in_tree("set", "wifi", "ssid", "Linked"), Result(0, "", STORED))
        self.assertEqual(self.vexadm("get", "wifi", "ssid", "--file", self.tree + "/flash/configbak.db").out, "Linked\n")
        self.assertEqual(self.in_tree("clean", "--backup", "--yes", "--quiet"), Result(0, "", ""))
        self.assertEqual(len(os.listdir(self.tree + "/dated/nvdata")), 1)
        self.machine_is_untouched()

    def test_a_link_out_of_the_tree_leads_nowhere(self):
        shutil.rmtree(self.tree + "/data")
        os.symlink("../../data", self.tree + "/data")  # the tree's own, and so itself
        result = self.in_tree("set", "wifi", "ssid", "Out", "--type", "text", "--id", "20")
        self.assertEqual(result.code, 1)
        self.machine_is_untouched()

    def test_a_tree_beside_the_new_root_is_found(self):
        """The new root is mounted over /mnt or /tmp, and the tree may lie below either."""
        for place in ("/mnt/vendor/tree", "/tmp/deeper/tree"):
            os.makedirs(place)
            shutil.copytree(self.tree + "/data", place + "/data")
            self.expect("--root", place, "set", "wifi", "ssid", "Found", err=STORED)
            self.expect("--root", place, "get", "wifi", "ssid", out="Found\n")
        shutil.rmtree("/mnt/vendor/tree")

    def test_a_relative_tree_is_found(self):
        self.expect("--root", "tree", "set", "wifi", "ssid", "Found", err=STORED, cwd="/tmp")
        self.assertIn("Found", self.dump())

    def test_a_value_is_read_from_the_users_own_file(self):
        write_bytes("/tmp/value", b"From a file")
        self.assertEqual(self.in_tree("set", "wifi", "ssid", "--from", "/tmp/value"), Result(0, "", STORED))
        self.assertIn('"From a file"', self.dump())

    def test_a_moved_store_is_written_below_the_tree(self):
        os.mkdir(self.tree + "/data/moved")
        shutil.copytree(self.tree + "/data", self.tree + "/data/moved", dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("moved"))
        self.assertEqual(self.in_tree("--store", "/data/moved/", "set", "wifi", "ssid", "Moved"), Result(0, "", STORED))
        self.expect("get", "wifi", "ssid", "--file", self.tree + "/data/moved/configbak.db", out="Moved\n")
        self.assertEqual(self.dump(), GARDEN_DUMP)
        self.machine_is_untouched()


class Refusal(Tree):
    def test_without_namespaces_it_refuses_and_changes_nothing(self):
        before = snapshot(self.tree)
        spoiled = self.tree + "/data/config.db"
        for words in (("set", "wifi", "ssid", "x"), ("empty", "wifi", "ssid"), ("clean", "--yes"), ("export",)):
            result = self.in_tree(*words, preexec_fn=refuse_namespaces)
            self.assertEqual(result, Result(
                1, "", "vexadm: --root /tmp/tree: the library cannot work in a device tree here: no mount namespace: "
                       "Operation not permitted; as root, or where user namespaces are allowed, it can\n"), words)
        self.assertEqual(snapshot(self.tree), before)
        spoil(spoiled)
        before = snapshot(self.tree)
        self.assertEqual(self.in_tree("repair", preexec_fn=refuse_namespaces).code, 1)
        self.assertEqual(self.in_tree("list", preexec_fn=refuse_namespaces).code, 0)
        self.assertEqual(snapshot(self.tree), before)
        self.machine_is_untouched()

    def test_a_tree_without_data_is_refused(self):
        self.not_emulated("the emulator does not know openat2")
        os.mkdir("/tmp/empty")
        result = self.vexadm("--root", "/tmp/empty", "set", "t", "k", "--type", "u8", "--id", "1", "5")
        self.assertEqual(result, Result(
            1, "", "vexadm: /tmp/empty/data/ is not there; a device tree has data below it\n"))
        self.assertEqual(os.listdir("/tmp/empty"), [])
