# SPDX-License-Identifier: MIT
"""--root: a copied tree is looked into by anybody, and written in a namespace of its own, or not at all."""
import ctypes
import platform
import re
import shutil
import struct

from support import *

NOBODY = 65534
UNSHARE = {"x86_64": 272, "aarch64": 97, "armv7l": 337}
MOUNT_SETATTR = 442


def refuse(call):
    """From here on the system call fails with EPERM."""
    libc = ctypes.CDLL(None, use_errno=True)

    def instruction(code, jump_true, jump_false, value):
        return struct.pack("<HBBI", code, jump_true, jump_false, value)

    program = (instruction(0x20, 0, 0, 0) + instruction(0x15, 0, 1, call) +
               instruction(0x06, 0, 0, 0x00050001) + instruction(0x06, 0, 0, 0x7FFF0000))
    buffer = ctypes.create_string_buffer(program)
    filter_program = struct.pack("HxxxxxxQ" if ctypes.sizeof(ctypes.c_void_p) == 8 else "HxxI", 4, ctypes.addressof(buffer))
    if libc.prctl(38, 1, 0, 0, 0) != 0 or libc.prctl(22, 2, ctypes.create_string_buffer(filter_program), 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "no seccomp filter")


def refuse_namespaces():
    """As where a container or the kernel's settings forbid them."""
    refuse(UNSHARE[platform.machine()])


class Tree(ToolTest):
    tree = "/tmp/tree"

    def setUp(self):
        super().setUp()
        # What counts lines cannot leave its counts where all of the machine is read-only.
        os.environ["GCOV_ERROR_FILE"] = "/dev/null"
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
                    err="vexadm: --store /nowhere/ is not there: make it first\n")

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

    def test_repair_says_where_the_copy_is_in_the_tree(self):
        shutil.copytree(self.tree + "/data", self.tree + "/data/moved")
        for store in ("data/moved/", "/data/moved/"):
            spoil(self.tree + "/data/moved/config.db")
            result = self.in_tree("--store", store, "repair")
            self.assertEqual((result.code, result.err), (0, ""))
            kept = re.match(r"everything as it was is kept in (/tmp/tree/data/moved/vexadm-repair_[-0-9_]+)\n",
                            result.out).group(1)
            self.assertTrue(os.path.isdir(kept))

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

    STORE = "/tmp/store/"

    def moved_everywhere(self):
        """A store that lies outside the places of a device, on the machine and in the tree."""
        make_store(changed("Machine"), self.STORE)
        os.makedirs(self.tree + self.STORE)
        make_store(changed("Tree"), self.tree + self.STORE)
        self.machine = snapshot("/data", self.STORE)

    def machine_is_untouched_everywhere(self):
        self.assertEqual(snapshot("/data", self.STORE), self.machine)
        self.assertEqual(self.dump(), GARDEN_DUMP)

    def ssid_in_tree(self, name="configbak.db"):
        return self.vexadm("get", "wifi", "ssid", "--file", self.tree + self.STORE + name).out

    def test_a_store_outside_the_places_is_the_trees(self):
        self.moved_everywhere()
        for store in ("/tmp/store/", "tmp/store/", "/tmp//store/"):
            self.assertEqual(self.in_tree("--store", store, "set", "wifi", "ssid", store), Result(0, "", STORED))
            self.assertEqual(self.ssid_in_tree(), store + "\n")
        spoil(self.tree + self.STORE + "config.db")
        self.assertEqual(self.in_tree("--store", self.STORE, "repair").code, 0)
        self.assertEqual(self.ssid_in_tree("config.db"), "/tmp//store/\n")
        self.assertEqual(self.in_tree("--store", self.STORE, "clean", "--yes", "--quiet"), Result(0, "", ""))
        self.assertFalse(os.path.exists(self.tree + self.STORE + "config.db"))
        self.machine_is_untouched_everywhere()

    def test_a_backup_outside_the_places_is_the_trees(self):
        self.moved_everywhere()
        os.mkdir(self.tree + "/data/moved")
        make_store(changed("Moved"), self.tree + "/data/moved/")
        shutil.copyfile(self.tree + "/data/moved/config.db", self.tree + self.STORE + "configbak.db")
        self.assertEqual(self.in_tree("--store", "/data/moved/", "--backup-store", self.STORE, "set", "wifi", "ssid", "Both"),
                         Result(0, "", STORED))
        self.assertEqual(self.ssid_in_tree(), "Both\n")
        self.expect("get", "wifi", "ssid", "--file", self.tree + "/data/moved/config.db", out="Both\n")
        self.machine_is_untouched_everywhere()

    SEEN = "/data/seen"

    def mounts_of_a_command(self, **options):
        """What a shell command of the library sees: mount points by whether they can be written."""
        os.mkdir(self.tree + "/data/bin")
        write_bytes(self.tree + "/data/bin/date", b"#!/bin/sh\n: > /dev/null && cat /proc/self/mountinfo > /data/seen\n"
                                                  b"echo now\n")
        os.chmod(self.tree + "/data/bin/date", 0o755)
        result = self.in_tree("clean", "--backup", "--yes", "--quiet", environment={"PATH": "/data/bin:" + os.environ["PATH"]}, **options)
        self.assertEqual(result, Result(0, "", ""))
        lines = [line.split() for line in read_bytes(self.tree + self.SEEN).decode().splitlines()]
        return {writable: {line[4] for line in lines if ("rw" in line[5].split(",")) == writable} for writable in (True, False)}

    def test_what_is_the_machines_is_read_only(self):
        seen = self.mounts_of_a_command()
        self.assertEqual(seen[True], {"/", "/data", "/mnt/vendor/nvdata"})
        self.assertLessEqual({"/usr", "/etc", "/dev", "/proc"}, seen[False])

    def test_with_an_older_kernel_most_of_the_machine_is_read_only(self):
        seen = self.mounts_of_a_command(preexec_fn=lambda: refuse(MOUNT_SETATTR))
        self.assertLessEqual({"/", "/data"}, seen[True])
        self.assertLessEqual({"/usr", "/etc", "/dev", "/proc"}, seen[False])


class Refusal(Tree):
    def refused(self, reason, *words):
        before = snapshot(self.tree)
        result = self.in_tree(*(words or ("set", "--force", "wifi", "ssid", "--type", "text", "--id", "20", "x")))
        self.assertEqual(result, Result(1, "", f"vexadm: --root /tmp/tree: {reason}\n"))
        self.assertEqual(snapshot(self.tree), before)
        self.machine_is_untouched()

    def test_a_file_that_is_a_link_out_of_the_tree_is_refused(self):
        self.not_emulated("the emulator does not know openat2")
        make_store(changed("Elsewhere"), "/tmp/elsewhere/")
        os.mkdir(self.tree + "/flash")
        elsewhere = snapshot("/tmp/elsewhere")
        for name in ("config.db", "configbak.db", "state.db", "DefItems.db", "ExportCSV.csv"):
            path = f"{self.tree}/data/{name}"
            kept = read_bytes(path) if os.path.exists(path) else None
            for target in (f"/tmp/elsewhere/{name}", f"../../elsewhere/{name}", f"/flash/{name}", "/usr/bin/env", name):
                if os.path.lexists(path):
                    os.unlink(path)
                write_bytes(f"{self.tree}/flash/{name}", kept or b"")
                os.symlink(target, path)
                self.refused(f"/tmp/tree/data/{name} is a link that leads nowhere, or out of what the library sees of the "
                             "tree: put the file itself there")
            os.unlink(path)
            if kept is not None:
                write_bytes(path, kept)
        self.assertEqual(snapshot("/tmp/elsewhere"), elsewhere)
        # Within the places a link is as good as the file.
        os.rename(self.tree + "/data/config.db", self.tree + "/data/real.db")
        os.symlink("/data/real.db", self.tree + "/data/config.db")
        self.assertEqual(self.in_tree("set", "wifi", "ssid", "Linked"), Result(0, "", STORED))
        self.expect("get", "wifi", "ssid", "--file", self.tree + "/data/real.db", out="Linked\n")
        self.machine_is_untouched()

    def test_a_store_that_cannot_be_shown_is_refused(self):
        self.not_emulated("the emulator does not know openat2")
        words = ("set", "--force", "wifi", "ssid", "--type", "text", "--id", "20", "x")
        self.refused("/tmp/tree/tmp/none/ is not there: make it first", "--store", "/tmp/none/", *words)
        self.refused("/tmp/tree/tmp/none/ is not there: make it first", "--backup-store", "/tmp/none/", *words)
        for store in ("/usr/", "/", "/usr/vexadm-has-no-such/"):
            os.makedirs(self.tree + store, exist_ok=True)
            make_store(directory=self.tree + store)
            self.refused(f"the tree's {store} cannot take the place of the machine's; move a copy below /tmp/tree/data, "
                         "and name that", "--store", store, *words)
            self.assertFalse(os.path.exists("/usr/vexadm-has-no-such"))

    def test_something_else_in_the_place_of_a_directory_is_told(self):
        self.not_emulated("the emulator does not know openat2")
        write_bytes(self.tree + "/mnt", b"")
        self.refused("/tmp/tree/mnt/vendor/nvdata: where the library needs a directory is something else")
        os.unlink(self.tree + "/mnt")
        self.assertEqual(self.vexadm("--root", "/nowhere", "load", "-", stdin=GARDEN_DUMP), Result(
            1, "", "vexadm: --root /nowhere: No such file or directory\n"))

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
            1, "", "vexadm: --root /tmp/empty: /tmp/empty/data/ is not there: make it first\n"))
        self.assertEqual(os.listdir("/tmp/empty"), [])
