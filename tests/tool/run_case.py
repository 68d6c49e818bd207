#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs one case of a file beside this one: run_case.py FILE CASE

Prints what the other tests of the tree print, so that the same tools read the log. Exit 77: skipped.
"""
import importlib
import os
import sys
import unittest

SKIPPED = 77


def cases_of(module, name):
    for value in vars(module).values():
        if isinstance(value, type) and issubclass(value, unittest.TestCase) and hasattr(value, name):
            yield value(name)


def main(file, name):
    sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
    label = f"tool_test.{file}.{name}"
    cases = list(cases_of(importlib.import_module(f"{file}_test"), f"test_{name}"))
    if len(cases) != 1:
        print(f"{label}: there are {len(cases)} cases of that name")
        return 1
    print(f"[ RUN      ] {label}", flush=True)
    result = unittest.TestResult()
    cases[0].run(result)
    for _, trace in result.errors + result.failures:
        print(trace)
    if not result.wasSuccessful() or result.testsRun != 1:
        print(f"[  FAILED  ] {label}")
        return 1
    if result.skipped:
        print(f"{file}_test.py: Skipped\n{result.skipped[0][1]}\n")
        print(f"[  SKIPPED ] {label}")
        return SKIPPED
    print(f"[       OK ] {label}")
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: run_case.py FILE CASE")
    sys.exit(main(sys.argv[1], sys.argv[2]))
