# SPDX-License-Identifier: MIT
"""Test cases, each in a process of its own, with the mutated library in place of the tested one."""
import json
import os
import resource
import signal
import subprocess
import time

LIMIT = 5.0  # seconds that every case gets, however short it normally is
FACTOR = 10
MARK = "VEXA_MUTATION_RUN"


class Case:
    """One case of one test program, as ctest runs it."""

    def __init__(self, test):
        properties = {entry["name"]: entry["value"] for entry in test.get("properties", [])}
        self.name, self.command = test["name"], test.get("command")
        self.directory = properties.get("WORKING_DIRECTORY")
        self.slow = any("slow" in label for label in properties.get("LABELS", []))
        self.program = next((word for word in self.command or [] if word.endswith("_test")), None)
        self.seconds, self.reached, self.sound = 0.0, frozenset(), False


def listed(build):
    command = ["ctest", "--test-dir", build, "--show-only=json-v1"]
    output = subprocess.run(command, check=True, capture_output=True)
    cases = [Case(test) for test in json.loads(output.stdout)["tests"]]
    return [case for case in cases if case.program]


def prepare():
    """In the child: a mutant may ask for all memory or fill the disk; a crash leaves no core.

    A shell that starts the run behind its back has these signals ignored, which tests see.
    """
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT):
        signal.signal(number, signal.SIG_DFL)
    os.nice(10)
    limits = {resource.RLIMIT_CORE: 0, resource.RLIMIT_FSIZE: 1 << 28, resource.RLIMIT_AS: 1 << 33}
    for what, most in limits.items():
        resource.setrlimit(what, (most, resource.getrlimit(what)[1]))  # a test may set another


def sweep(mark):
    """Ends what a case has left, such as a child in a group of its own: by the mark in its environment."""
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/environ", "rb") as file:
                if mark.encode() in file.read().split(b"\0"):
                    os.kill(int(pid), signal.SIGKILL)
        except OSError:
            pass


def run(case, library, limit, extra):
    """0 when the case passes, another number when it fails, None when the time is up."""
    mark = f"{MARK}={os.getpid()}-{time.monotonic_ns()}"
    environment = dict(os.environ, LD_LIBRARY_PATH=library, CI="true", **extra)
    environment.update([mark.split("=", 1)])
    child = subprocess.Popen(case.command, cwd=case.directory, env=environment, stdin=subprocess.DEVNULL,
                             stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True,
                             preexec_fn=prepare)
    try:
        return child.wait(limit)
    except subprocess.TimeoutExpired:
        os.killpg(child.pid, signal.SIGKILL)
        child.wait()
        sweep(mark)
        return None


def fails(case, library, number):
    """Whether the case notices a mutant: "killed", "timeout" or nothing.

    A failure counts when the case still passes without the mutant: a busy machine is no tester.
    """
    limit = max(LIMIT, FACTOR * case.seconds)
    result = run(case, library, limit, {"VEXA_MUTANT": str(number)})
    if result == 0 or run(case, library, limit, {}) != 0:
        return ""
    return "timeout" if result is None else "killed"


def observe(case, library, directory, count):
    """Runs the case without any mutant: how long it takes, and which mutants it comes past."""
    path = os.path.join(directory, f"{os.getpid()}-{time.monotonic_ns()}")
    with open(path, "wb") as file:
        file.write(bytes(count + 1))
    start = time.monotonic()
    case.sound = run(case, library, 120, {"VEXA_MUTANT_REACHED": path}) == 0
    case.seconds = time.monotonic() - start
    with open(path, "rb") as file:
        case.reached = frozenset(i for i, byte in enumerate(file.read()) if byte)
    os.unlink(path)
