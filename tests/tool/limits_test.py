# SPDX-License-Identifier: MIT
"""Where the machine gives no more: output that cannot be written, memory that runs out; and what the
program itself needs of a machine."""
import re
import resource

from support import *

FULL = "vexadm: standard output cannot be written: No space left on device\n"
OUT_OF_MEMORY = "vexadm: out of memory\n"


class Limits(ToolTest):
    def test_an_answer_that_does_not_reach_its_file_is_a_failure(self):
        make_store()
        for words in (("list",), ("list", "--json"), ("get", "wifi", "ssid"), ("dump",), ("check",), ("help",), ("version",),
                      ("kv", "system", "hosts"), ("versions", "--json"), ("crc", "00"), ("watch", "wifi", "ssid", "--count", "1")):
            with open("/dev/full", "wb") as full:
                done = subprocess.run(self.command(*words), stdout=full, stderr=subprocess.PIPE, timeout=50, check=False)
            self.assertEqual((done.returncode, done.stderr.decode()), (1, FULL), words)

    def test_a_reader_that_has_gone_is_no_success(self):
        make_store(tuple(item("t", number, f"k{number}", TEXT, "x" * 900) for number in range(200)))
        near, far = os.pipe()
        os.close(near)
        done = subprocess.run(self.command("list"), stdout=far, stderr=subprocess.PIPE, timeout=50, check=False)
        os.close(far)
        self.assertNotEqual(done.returncode, 0)

    def limited(self, size, *words, **options):
        return self.vexadm(*words, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (size, size)), **options)

    def test_memory_that_runs_out_ends_with_a_message_and_changes_nothing(self):
        self.not_emulated("the limit would be the emulator's")
        self.not_instrumented("a sanitizer takes the address space for itself")
        make_store(GARDEN + tuple(item("many", number, f"key{number}", BYTES, bytes(9000)) for number in range(200)))
        dump = self.vexadm("dump").out
        words = ("load", "--dry-run", "/tmp/dump")
        write_bytes("/tmp/dump", dump.replace(" hex:00", " hex:01").encode())
        least = next(size for size in range(1 << 20, 1 << 26, 1 << 18) if self.limited(size, "version").code == 0)
        before = snapshot("/data")
        failed = succeeded = 0
        for step in range(400):
            for look in (words, ("list", "--json"), ("dump",), ("check",)):
                result = self.limited(least + step * (1 << 18), *look)
                self.assertIn(result.code, (0, 1), (look, step, result.err))
                if result.code == 0:
                    succeeded += 1
                    continue
                failed += 1
                # check tells of a file that it cannot read among its findings.
                said = result.err or result.out if look == ("check",) else result.err
                self.assertRegex(said, r"out of memory", (look, step))
                if result.err == OUT_OF_MEMORY:
                    self.assertEqual(result.out, "", (look, step))
            if succeeded >= 8:
                break
        self.assertEqual(snapshot("/data"), before)
        self.assertGreater(failed, 4)
        self.assertGreaterEqual(succeeded, 8)

    def test_the_program_needs_the_library_sqlite_and_libc_alone(self):
        self.not_instrumented("the program needs the instrumentation's libraries too")

        def read(option):
            return subprocess.run([os.environ["VEXA_READELF"], option, os.environ["VEXA_TOOL"]], capture_output=True,
                                  check=True, text=True).stdout

        dynamic, segments = read("-dW"), read("-lW")
        needed = {name for name in re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic) if not name.startswith("ld-linux")}
        self.assertEqual(needed, {"libc.so.6", "libsqlite3.so.0", "libvexadm.so.0"})
        self.assertRegex(dynamic, r"\(FLAGS\) .*BIND_NOW")
        self.assertRegex(dynamic, r"\(FLAGS_1\) .*PIE")
        self.assertNotIn("TEXTREL", dynamic)
        self.assertIn("GNU_RELRO", segments)
        self.assertRegex(segments, r"GNU_STACK .* RW ")
        self.assertNotRegex(segments, r"LOAD .* RWE")
        self.assertIn("INTERP", segments)
