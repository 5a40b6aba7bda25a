#!/usr/bin/python3
"""What of the programs for macOS runs here, as the machine code that would run there, and what the
emulator says where it cannot go on. CORVANE_MACOS_PROGRAMS is the folder that has the programs,
CORVANE_MACOS_EMULATOR what runs them."""

import os
import subprocess
import tempfile
import unittest

PROGRAMS = os.environ["CORVANE_MACOS_PROGRAMS"]
EMULATOR = os.environ["CORVANE_MACOS_EMULATOR"]
HELPER = f"{PROGRAMS}/com.corvane.system.privilegedhelper-vnt"
CANNOT = 126


def run(*arguments):
    """The status, the output and the error output."""
    done = subprocess.run([EMULATOR, *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, check=False)
    return done.returncode, done.stdout, done.stderr


class HelperTest(unittest.TestCase):

    def test_it_prints_its_version(self):
        for argument in ("v", "version", "vx"):
            self.assertEqual(run(HELPER, argument), (0, "1.3 (Build 190617)\n", ""), argument)

    def test_every_other_argument_is_refused_without_a_word(self):
        for arguments in (["-v"], ["--version"], [""], ["v", "v"]):
            self.assertEqual(run(HELPER, *arguments), (1, "", ""), arguments)

    def test_without_the_class_of_its_operations_it_says_so(self):
        with open(HELPER, "rb") as file:
            content = file.read()
        name = b"<string>ZELPrivilegedOperationSetVNT</string>"
        self.assertIn(name, content)
        with tempfile.NamedTemporaryFile() as other:
            other.write(content.replace(name, name.replace(b"VNT", b"XYZ")))
            other.flush()
            self.assertEqual(run(other.name, "v"), (
                1, "", "Internal implementation error: The principal class is either not set or not "
                       "implemented.\n"))


class EmulatorTest(unittest.TestCase):

    def assert_says(self, text, *arguments):
        status, output, errors = run(*arguments)
        self.assertEqual((status, output), (CANNOT, ""))
        self.assertEqual(errors, f"macos-emulator: {text}\n")

    def test_what_is_missing_is_named_when_it_is_called(self):
        self.assert_says("there is no _asl_open here", HELPER)

    def test_a_file_that_is_no_program_is_told(self):
        self.assert_says("it is no program for macOS", "/bin/true")
        self.assert_says("/nonexistent cannot be read", "/nonexistent")

    def test_a_program_that_is_cut_short_is_told(self):
        with open(HELPER, "rb") as file:
            content = file.read()
        for length in range(0, len(content), len(content) // 23):
            with tempfile.NamedTemporaryFile() as part:
                part.write(content[:length])
                part.flush()
                self.assert_says("the program ends early", part.name, "v")


if __name__ == "__main__":
    unittest.main()
