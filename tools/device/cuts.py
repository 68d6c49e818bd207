# SPDX-License-Identifier: MIT
"""Power cuts for real: the device dies in the middle of a burst of writes, again and again.

The emulator is killed, so what the guest held in memory is gone. What it had handed to its disk is in
a log of QEMU's, which says at which points the guest asked for it to be safe (flushes). The disk after
the cut is built from that log: everything up to the last flush, and of what came later all, nothing, or
some of it, as a disk with a cache of its own would leave it. That disk is booted again.

An emulated processor takes far longer between two disk operations than they take: a kill nearly never
meets one. So half of the cuts are put behind a random write of the log before the kill instead, and
only what was acknowledged before that write counts.
"""
import os
import random
import re
import shutil
import struct
import subprocess
import time

from machine import DEVICE, Machine, Trouble

SECTOR = 512  # of the log
# What a disk writes whole or not at all. ext4 asks for that itself: with half a commit block the kernel
# does not mount it, with half a superblock e2fsck does not repair it.
BLOCK = 4096
FLUSH, FUA = 1, 2
ITEMS = 8
BOOT_SECONDS = 300


class Cuts:
    def __init__(self, initramfs, rounds, seed):
        self.initramfs = initramfs
        self.rounds = rounds
        self.seed = seed
        self.random = random.Random(seed)
        self.data = os.path.join(DEVICE, "cuts.data")
        self.log = os.path.join(DEVICE, "cuts.log")
        self.before = os.path.join(DEVICE, "cuts.before")
        self.number = 1  # of the next value
        # What each item may hold: the last acknowledged value, and any that was being written at a cut
        # since then (docs/caveats.md: a write that was not acknowledged may come back later).
        self.allowed = [{0} for _ in range(ITEMS)]
        # By this start:
        self.said = []  # ("writing" or "written", item, number, operations in the log by then)
        self.health = []  # (code of the primary, of the backup), before and behind the first write
        self.held = []  # the items whose values were said
        self.checked = False  # all of that was said, and the burst begins
        self.in_flight = set()
        self.failures = []
        self.counts = dict.fromkeys(
            ["cuts", "cuts in the recovery", "cuts behind a write of the disk", "acknowledged writes", "values checked",
             "writes in flight at a cut", "of these there after the next start", "disk writes not yet flushed at a cut",
             "of these lost", "of these torn", "starts with a backup not yet healthy"], 0)

    def run(self):
        print(f"device: {self.rounds} power cuts, seed {self.seed}", flush=True)
        self.make_disk()
        for number in range(1, self.rounds + 1):
            said = self.boot_and_cut(number)
            print(f"device: cut {number}: {said}", flush=True)
        self.boot_and_cut(None)
        if not self.counts["acknowledged writes"]:
            self.fail("no write was acknowledged before a cut, so that none could be lost: more rounds?")
        for name, count in self.counts.items():
            print(f"device:   {name}: {count}")
        return self.failures

    def make_disk(self):
        if os.path.exists(self.data):
            os.remove(self.data)
        subprocess.run(["mke2fs", "-q", "-t", "ext4", "-b", str(BLOCK), "-E",
                        "lazy_itable_init=0,lazy_journal_init=0", self.data, "64M"], check=True, stdout=subprocess.DEVNULL)

    def fail(self, text):
        self.failures.append(text)
        print(f"device: FAILED {text}", flush=True)

    # --- one start of the device ----------------------------------------------------

    def boot_and_cut(self, number):
        """Starts the device on the disk of the last cut, checks it, lets it write, cuts. NUMBER: of this
        cut; None: only check."""
        if number is not None and number > 1 and self.random.random() < 0.2:
            self.counts["cuts in the recovery"] += 1
            self.start("device: mounted", self.random.uniform(0, 1.5), f"second cut before {number}")
        where = f"after cut {number - 1}" if number else f"after cut {self.rounds}"
        first = self.number
        if number is None:
            self.start("burst: checked", 0, where)
            return None
        lost = self.start("burst: checked", self.random.uniform(0, 3), where)
        self.counts["cuts"] += 1
        return f"{self.number - first} writes begun, then {lost}"

    def start(self, until, seconds, where):
        """Boots, goes on for SECONDS after the line UNTIL, then takes the power away."""
        shutil.copyfile(self.data, self.before)
        with open(self.log, "wb") as log:
            log.truncate(1 << 30)
        drive = (f"driver=blklogwrites,file.driver=raw,file.file.driver=file,file.file.filename={self.data},"
                 f"log.driver=file,log.filename={self.log},cache=writeback")
        log_end = LogEnd(self.log)
        self.said, self.health, self.held, self.checked = [], [], [], False
        with Machine("cuts", self.initramfs, {"data": drive}, first=self.number, seed=self.seed) as machine:
            try:
                for line in machine.lines(BOOT_SECONDS):
                    self.hear(line, where, log_end)
                    if line == until:
                        break
                else:
                    raise Trouble(f"{where}, the device stopped by itself:\n" + "\n".join(machine.tail))
            except TimeoutError:
                raise Trouble(f"{where}, no '{until}' in {BOOT_SECONDS} s:\n" + "\n".join(machine.tail)) from None
            try:
                for line in machine.lines(seconds):
                    self.hear(line, where, log_end)
                raise Trouble(f"{where}, the burst ended by itself:\n" + "\n".join(machine.tail))
            except TimeoutError:
                pass
            machine.kill()
            for line in machine.lines(5):  # said before the cut, so it counts
                self.hear(line, where, log_end)
        self.judge_completeness(where)
        self.judge_health(where)
        entries = list(self.entries())
        writes = [at for at, (flags, _, _) in enumerate(entries) if not flags & FLUSH]
        if writes and self.random.random() < 0.5:
            self.counts["cuts behind a write of the disk"] += 1
            entries = entries[: self.random.choice(writes) + 1]
        self.settle(len(entries))
        verdict = self.cut_disk(entries)
        self.check_file_system(where)
        return verdict

    # --- what the device says -------------------------------------------------------

    def hear(self, line, where, log_end):
        """A line of the burst that is not understood fails: a check that was not made is none."""
        if "burst: " not in line:
            return
        if line == "burst: checked":
            self.checked = True
        elif health := re.fullmatch(r"burst: health (-?\d+) (-?\d+)", line):
            self.health.append((int(health[1]), int(health[2])))
        elif (value := re.fullmatch(r"burst: value (\d+) (.*)", line)) and int(value[1]) < ITEMS:
            self.held.append(int(value[1]))
            self.check_value(int(value[1]), value[2], where)
        elif (write := re.fullmatch(r"burst: (writing|written) (\d+) (\d+)", line)) and int(write[2]) < ITEMS:
            # The numbers count up, one "written" for each "writing" but the last.
            what, item, number = write[1], int(write[2]), int(write[3])
            last = self.said[-1][:3] if self.said else ("written",)
            turn = last == ("writing", item, number) if what == "written" else \
                last[0] == "written" and number == self.number
            if not turn:
                self.fail(f"{where}: out of turn: {line}")
            self.said.append((what, item, number, log_end.operations()))
            self.number = number + 1
        else:
            self.fail(f"{where}: {line}")

    def judge_completeness(self, where):
        """That everything was said that a start of the device has to say by the time of its cut."""
        begun = sum(what == "writing" for what, *_ in self.said)
        if begun and not self.checked:
            self.fail(f"{where}: a write without the checks before it")
        if self.checked and sorted(self.held) != list(range(ITEMS)):
            self.fail(f"{where}: the values of the items {sorted(self.held)} were said, and not one of each")
        # The second follows the first write, and is said by the time that the next one begins.
        if len(self.health) < self.checked + (begun > 1):
            self.fail(f"{where}: health was said {len(self.health)} times, with {begun} writes begun")

    def settle(self, operations):
        """What the items may hold after a cut behind so many operations of the disk."""
        self.in_flight = set()
        for what, item, number, by_then in self.said:
            if what == "writing":
                self.allowed[item].add(number)
                self.in_flight.add((item, number))
            elif by_then <= operations:
                self.allowed[item] = {number}
                self.in_flight.discard((item, number))
                self.counts["acknowledged writes"] += 1
        self.counts["writes in flight at a cut"] += len(self.in_flight) > 0

    def check_value(self, item, value, where):
        self.counts["values checked"] += 1
        allowed = self.allowed[item]
        if not value.isdigit() or int(value) not in allowed:
            self.fail(f"{where}: item {item} holds {value}, and should one of {sorted(allowed)}")
        elif (item, int(value)) in self.in_flight:
            self.counts["of these there after the next start"] += 1

    def judge_health(self, where):
        if self.number == 1 or not self.health:  # no file before the first write
            return
        if self.health[0][0] != 0:
            self.fail(f"{where}: the primary is not healthy after the start: {self.health[0][0]}")
        if self.health[0][1] != 0:
            self.counts["starts with a backup not yet healthy"] += 1
        if len(self.health) > 1 and self.health[1] != (0, 0):
            self.fail(f"{where}: not healthy after the first write: {self.health[1]}")

    # --- the disk after a cut -------------------------------------------------------

    def entries(self):
        """(flags, sector, data) of each operation in QEMU's log, in order."""
        with open(self.log, "rb") as log:
            magic, version, _, sector_size = struct.unpack("<QQQL", log.read(28))
            if magic != 0x6A736677736872 or version != 1 or sector_size != SECTOR:
                raise Trouble("QEMU's log of disk writes is of an unknown kind")
            log.seek(SECTOR)
            while True:
                sector, sectors, flags, length = struct.unpack("<QQQQ", log.read(32))
                if (sector, sectors, flags, length) == (0, 0, 0, 0):
                    return
                log.seek(SECTOR - 32, os.SEEK_CUR)
                if flags & ~(FLUSH | FUA) or length:
                    raise Trouble(f"QEMU's log has an operation of an unknown kind: {flags}")
                yield flags, sector, log.read(sectors * SECTOR)

    def cut_disk(self, entries):
        """Replaces the disk's image by what a cut behind these operations leaves."""
        safe = max((at for at, (flags, _, _) in enumerate(entries) if flags & FLUSH), default=-1) + 1
        pending = [at for at in range(safe, len(entries)) if not entries[at][0] & FUA]
        kind = self.random.choice(["all", "none", "some", "some"])
        lost = torn = 0
        with open(self.before, "r+b") as disk:
            for at, (_, sector, data) in enumerate(entries):
                kept = len(data)
                if at in pending and (kind == "none" or kind == "some" and self.random.random() < 0.5):
                    if kind == "some" and kept > BLOCK and self.random.random() < 0.5:
                        kept = self.random.randrange(BLOCK, kept, BLOCK)
                        torn += 1
                    else:
                        lost += 1
                        continue
                disk.seek(sector * SECTOR)
                disk.write(data[:kept])
        os.replace(self.before, self.data)
        os.remove(self.log)
        self.counts["disk writes not yet flushed at a cut"] += len(pending)
        self.counts["of these lost"] += lost
        self.counts["of these torn"] += torn
        return f"of {len(pending)} disk writes not yet flushed {lost} lost, {torn} torn"

    def check_file_system(self, where):
        """A copy is checked as a device's start would do it: journal first, then everything."""
        copy = os.path.join(DEVICE, "cuts.fsck")
        shutil.copyfile(self.data, copy)
        first = subprocess.run(["e2fsck", "-p", copy], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        then = subprocess.run(["e2fsck", "-fn", copy], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if first.returncode > 1 or then.returncode != 0:
            self.fail(f"{where}: the file system after the cut: {(first.stdout + then.stdout).decode()}")
        os.remove(copy)


class LogEnd:
    """How many operations QEMU's log has by now. One that is being written may count: then fewer
    acknowledgements do."""

    def __init__(self, path):
        self.path = path
        self.count = 0
        self.offset = SECTOR

    def operations(self):
        with open(self.path, "rb") as log:
            while True:
                log.seek(self.offset)
                sector, sectors, flags, length = struct.unpack("<QQQQ", log.read(32))
                if (sector, sectors, flags, length) == (0, 0, 0, 0):
                    return self.count
                self.count += 1
                self.offset += SECTOR * (1 + sectors)


def run(initramfs, rounds, seed):
    begin = time.monotonic()
    cuts = Cuts(initramfs, rounds, seed)
    failures = cuts.run()
    print(f"device: power cuts took {time.monotonic() - begin:.0f} s", flush=True)
    return failures
