"""The units of the helper, which are made from its property lists."""

import configparser
import glob
import os
import plistlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, f"{os.path.dirname(os.path.abspath(__file__))}/../support")

from confinement import MOST_EXPOSURE, analysis  # noqa: E402

PROGRAMS = os.environ["CORVANE_PROGRAMS"]


def property_list(name):
    with open(f"{os.path.dirname(PROGRAMS)}/corvane-helper/vnt/{name}", "rb") as file:
        return plistlib.load(file)


def unit(name):
    parsed = configparser.ConfigParser(strict=False, interpolation=None)
    parsed.optionxform = str
    assert parsed.read(f"{PROGRAMS}/{name}"), name
    return parsed


class UnitsTest(unittest.TestCase):
    def setUp(self):
        self.label = property_list("launchd.plist")["Label"]
        self.version = property_list("Info.plist")["CFBundleShortVersionString"]

    def test_label_service_and_program_are_one_name(self):
        self.assertEqual(list(property_list("launchd.plist")["MachServices"]), [self.label])
        self.assertEqual(property_list("Info.plist")["CFBundleIdentifier"], self.label)
        self.assertEqual(unit(f"{self.label}.socket")["Socket"]["ListenStream"],
                         f"/run/{self.label}/socket")
        program = unit(f"{self.label}.service")["Service"]["ExecStart"]
        self.assertEqual(os.path.basename(program), self.label)
        self.assertTrue(os.path.exists(f"{PROGRAMS}/{self.label}"))

    def test_every_unit_names_the_version(self):
        for path in glob.glob(f"{PROGRAMS}/*.socket") + glob.glob(f"{PROGRAMS}/*.service"):
            description = unit(os.path.basename(path))["Unit"]["Description"]
            self.assertIn(f"version {self.version}", description, path)

    def test_the_services_are_confined(self):
        for template, most in MOST_EXPOSURE.items():
            with tempfile.TemporaryDirectory() as folder:
                path = shutil.copy(f"{PROGRAMS}/{template}", f"{folder}/{template.replace('@', '@x')}")
                found = subprocess.run(analysis(most, "--offline=yes", path),
                                       stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                       check=False)
            self.assertIn("Overall exposure level", found.stdout)
            self.assertEqual(found.returncode, 0, found.stdout)

    def test_every_service_has_limits_and_keeps_only_routine_messages_out(self):
        for name in (f"{self.label}.service", "com.corvane.authorization.service"):
            service = unit(name)["Service"]
            # Either keeps out what has the level of debug messages, and what goes to standard error
            # has the second.
            self.assertIn(service["LogLevelMax"], ("notice", "info"))
            self.assertEqual(service["SyslogLevel"], "notice")
            for limit in ("CPUWeight", "MemoryMax", "TasksMax", "LimitNOFILE"):
                self.assertIn(limit, service)


if __name__ == "__main__":
    sys.exit(not unittest.main(exit=False, verbosity=2).result.wasSuccessful())
