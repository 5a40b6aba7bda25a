#!/usr/bin/python3
"""Each promise has tests that hold it, and they are there."""

import os
import re
import subprocess
import unittest

SOURCES = os.environ.get("CORVANE_SOURCES", f"{os.path.dirname(os.path.abspath(__file__))}/../..")

# What begins like a promise and is none.
NO_PROMISES = {"The code", "On macOS nothing of this has been seen"}


def read(path):
    with open(f"{SOURCES}/{path}", encoding="utf-8") as file:
        return file.read()


def tests_in(path, text):
    """The tests of one file, by the names that ctest knows them under."""
    if path.endswith(".cpp"):
        yield from (f"{area}.{name}"
                    for area, name in re.findall(r"^TEST(?:_F|_P)?\((\w+), (\w+)\)", text, re.M))
        return
    area = None
    for line in text.splitlines():
        if found := re.match(r"class (\w+)", line):
            area = found[1]
        elif found := re.match(r"    def (test_\w+)", line):
            yield f"{area}.{found[1]}"


class PromisesTest(unittest.TestCase):
    def setUp(self):
        self.page = read("docs/PROMISES.md")
        self.rows = dict(re.findall(r"^\| ([^|]+?) \| ([^|]+?) \|$", self.page, re.M))

    def test_each_promise_has_a_row(self):
        promises = {text.replace("\n", " ").rstrip(".") for text in re.findall(
            r"^\*\*([^*]+?)\*\*", read("SECURITY.md").split("## What the promises rest on")[1],
            re.M)}
        self.assertEqual(promises - NO_PROMISES - set(self.rows), set())

    def test_each_test_is_there(self):
        there = set()
        paths = subprocess.run(["find", "tests", "-name", "*.cpp", "-o", "-name", "*_test.py"],
                               cwd=SOURCES, stdout=subprocess.PIPE, text=True, check=True)
        for path in paths.stdout.split():
            there.update(tests_in(path, read(path)))
        for row, tests in self.rows.items():
            for name in re.findall(r"`(\w+\.\w+)`", tests):
                with self.subTest(row=row):
                    self.assertIn(name, there)


if __name__ == "__main__":
    unittest.main()
