"""What is promised to stay is what there is."""

import json
import os
import re
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ElementTree

SOURCES = os.environ["CORVANE_SOURCES"]
CLIENT = f"{os.environ['CORVANE_PROGRAMS']}/privilegerequestor-vnt"


def contents(path):
    with open(f"{SOURCES}/{path}", encoding="utf-8") as file:
        return file.read()


def rows(pattern):
    """The rows of the page's tables that begin with this."""
    return re.findall(rf"^\| {pattern}", contents("docs/COMPATIBILITY.md"), re.MULTILINE)


class CompatibilityTest(unittest.TestCase):
    def client(self, *arguments, status):
        run = subprocess.run([CLIENT, *arguments], stdout=subprocess.PIPE, text=True, check=False,
                             stderr=subprocess.DEVNULL, env={**os.environ, "LC_ALL": "C"})
        self.assertEqual(run.returncode, status)
        return run.stdout

    def test_the_members_of_the_interfaces_stay(self):
        there = {}
        for name in os.listdir(f"{SOURCES}/packaging/dbus"):
            for method in ElementTree.parse(f"{SOURCES}/packaging/dbus/{name}").iter("method"):
                there[method.get("name")] = [
                    [argument.get("type") for argument in method if argument.get("direction") == way]
                    for way in ("in", "out")]
        promised = {name: [re.findall("`(.*?)`", taken), re.findall("`(.*?)`", given)]
                    for name, taken, given in rows(r"`([A-Z]\w+)` \|(.*)\|(.*)\|$")}
        self.assertEqual(there, promised)

    def test_the_codes_of_the_operations_stay(self):
        promised = {(int(code), name) for code, name in rows(r"(\d+) \| `([a-z-]+)` \|$")}
        there = {(operation["code"], operation["identifier"]) for operation in
                 json.loads(self.client("--json", "operations", status=0))["result"]}
        self.assertEqual(there, promised)

    def test_the_object_for_programs_keeps_its_keys(self):
        keys, = re.findall("^    (domain .*)$", contents("docs/COMPATIBILITY.md"), re.MULTILINE)
        printed = json.loads(self.client("--json", "--socket", "/nonexistent", "nop", status=5))
        self.assertEqual(list(printed), keys.split())

    def test_the_statuses_of_the_tool_stay(self):
        promised = dict(rows(r"(\d+) \| ((?!`[a-z-]+` \|).*?) \|$"))
        manual = re.search(r"\.Sh EXIT STATUS\n(.*?)\n\.El", contents(
            "docs/man/privilegerequestor-vnt.1"), re.DOTALL)[1]
        self.assertEqual({status: text for status, text in promised.items() if int(status) < 126},
                         dict(re.findall(r"\.It (\d+)\n(.*)", manual)))
        header = contents("client/cli/output/Report.h")
        self.assertEqual(set(promised), set(re.findall(r"^  Exit\w+ = (\d+),$", header, re.MULTILINE)))
        self.client("--no-such-option", status=2)


if __name__ == "__main__":
    sys.exit(not unittest.main(exit=False, verbosity=2).result.wasSuccessful())
