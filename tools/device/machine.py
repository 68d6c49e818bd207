# SPDX-License-Identifier: MIT
"""The emulated device: one ARM core, Debian's kernel, disks that are image files, a console."""
import gzip
import os
import select
import shutil
import subprocess
import time

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
DEVICE = os.path.join(PROJECT, "build/device")


class Trouble(Exception):
    """What is missing or went wrong, in words for the person who ran the command."""


def make_initramfs(path, files):
    """BusyBox, the modules and the guest's scripts, and FILES: {name in the guest: name here}."""
    folder = path + ".d"
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(os.path.join(DEVICE, "initramfs.base"), folder)
    guest = os.path.join(PROJECT, "tools/device/guest")
    shutil.copytree(guest, os.path.join(folder, "guest"))
    shutil.copy(os.path.join(guest, "init"), os.path.join(folder, "init"))
    for name, source in files.items():
        target = folder + name
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copy(source, target)  # a library's link becomes the library
    names = sorted(
        os.path.relpath(os.path.join(place, name), folder)
        for place, folders, plain in os.walk(folder)
        for name in folders + plain
    )
    archive = subprocess.run(
        ["cpio", "--quiet", "-o", "-H", "newc", "-R", "0:0"],
        input="\n".join(names).encode() + b"\n", cwd=folder, stdout=subprocess.PIPE, check=True,
    ).stdout
    with gzip.open(path, "wb", 1) as out:
        out.write(archive)
    shutil.rmtree(folder)


class Machine:
    """A running device. Lines of its console are read as they come; kill() is the power cut."""

    def __init__(self, task, initramfs, disks, memory=128, **arguments):
        """DISKS: {name that the guest finds it by: value of QEMU's -drive, without its id}."""
        words = " ".join(f"device.{name}={value}" for name, value in arguments.items())
        command = [
            "qemu-system-arm", "-machine", "virt", "-cpu", "cortex-a15", "-smp", "1", "-m", str(memory),
            "-nodefaults", "-display", "none", "-no-reboot", "-serial", "stdio", "-monitor", "none",
            "-kernel", os.path.join(DEVICE, "kernel"), "-initrd", initramfs,
            "-append", f"console=ttyAMA0 quiet panic=-1 device.task={task} {words}",
        ]
        for name, drive in disks.items():
            command += ["-drive", f"{drive},if=none,id={name}",
                        "-device", f"virtio-blk-device,drive={name},serial={name}"]
        self.process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.begin = time.monotonic()
        self.partial = b""
        self.whole = []  # read from the console and not yet handed out
        self.tail = []

    def __enter__(self):
        return self

    def __exit__(self, *ignored):
        self.kill()
        self.process.stdout.close()

    def lines(self, seconds):
        """Whole lines of the console until the machine is off, or TimeoutError after SECONDS. Who stops
        at a line finds those that had come with it in the next call."""
        end = time.monotonic() + seconds
        while True:
            while self.whole:
                text = self.whole.pop(0).decode(errors="replace").rstrip("\r")
                self.tail = self.tail[-60:] + [text]
                yield text
            ready, _, _ = select.select([self.process.stdout], [], [], max(0, end - time.monotonic()))
            if not ready:
                raise TimeoutError
            data = os.read(self.process.stdout.fileno(), 65536)
            if not data:
                return
            *self.whole, self.partial = (self.partial + data).split(b"\n")

    def kill(self):
        """Takes the power away. What the device had said is still there for lines()."""
        self.process.kill()
        self.process.wait()
