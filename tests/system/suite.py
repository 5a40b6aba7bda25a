#!/usr/bin/python3
"""Runs the tests of the daemon against the service that is installed in this machine:

    suite.py FOLDER... [-k NAME]... [--as USER]

Each FOLDER has tests. One test at a time, as there is one service, and each in a process of
its own, with which all ends that it leaves open.
"""

import argparse
import collections
import glob
import importlib
import io
import json
import os
import select
import signal
import sys
import time
import unittest

# As long as a test may take on the bench, longer races apart.
TIMEOUT = 300 + 2 * float(os.environ.get("CORVANE_CAMPAIGN_SECONDS", "0"))


def names_of(suite):
    """The tests of `suite`, in their order."""
    for test in suite:
        if isinstance(test, unittest.TestSuite):
            yield from names_of(test)
        else:
            yield test


def run(test):
    """Runs one test here: the outcome, and the reasons for it."""
    stream = io.StringIO()
    result = unittest.TextTestRunner(stream, warnings="ignore").run(unittest.TestSuite([test]))
    if not result.wasSuccessful():
        return "FAILED", stream.getvalue()
    if result.skipped:
        return "skipped", result.skipped[0][1]
    return "passed", ""


def run_apart(test):
    """Runs one test in a process of its own."""
    reading, writing = os.pipe()
    pid = os.fork()
    if pid == 0:
        os.setsid()
        os.close(reading)
        status = 1
        try:
            with open(writing, "w", encoding="utf-8") as answer:
                json.dump(run(test), answer)
            status = 0
        finally:
            os._exit(status)
    os.close(writing)
    answer = b""
    deadline = time.monotonic() + TIMEOUT
    with open(reading, "rb", buffering=0) as stream:
        while select.select([stream], [], [], max(0, deadline - time.monotonic()))[0]:
            part = stream.read(65536)
            if not part:
                break
            answer += part
        else:
            os.killpg(pid, signal.SIGKILL)
            answer = json.dumps(("FAILED", f"It took more than {TIMEOUT} s.")).encode()
    os.waitpid(pid, 0)
    return json.loads(answer) if answer else ("FAILED", "Its process ended halfway.")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folders", nargs="+")
    parser.add_argument("-k", action="append", dest="patterns")
    parser.add_argument("--as", default="root", dest="caller")
    options = parser.parse_args()
    os.environ["CORVANE_SUBJECT"] = "installed"
    os.environ["CORVANE_CALLER"] = options.caller
    sys.path[:0] = options.folders

    loader = unittest.TestLoader()
    if options.patterns:
        loader.testNamePatterns = [f"*{pattern}*" for pattern in options.patterns]
    paths = sorted(path for folder in options.folders for path in glob.glob(f"{folder}/*_test.py"))
    modules = [importlib.import_module(os.path.basename(path)[:-3]) for path in paths]
    counts = collections.Counter()
    skipped = collections.Counter()
    for test in names_of([loader.loadTestsFromModule(module) for module in modules]):
        begin = time.monotonic()
        outcome, reason = run_apart(test)
        counts[outcome] += 1
        if outcome == "skipped":
            skipped[reason] += 1
        took = time.monotonic() - begin
        print(f"  {took:6.1f} s  {outcome}  {type(test).__name__}.{test._testMethodName}",
              flush=True)
        if outcome == "FAILED":
            print(reason, flush=True)
    for reason, count in skipped.most_common():
        print(f"{count:7} {reason}")
    print(f"As {options.caller}: {counts['passed']} passed, {counts['FAILED']} failed, "
          f"{counts['skipped']} skipped", flush=True)
    sys.exit(1 if counts["FAILED"] or not counts else 0)


if __name__ == "__main__":
    main()
