"""That what the program says and what its translations have are the same texts."""

import ctypes
import errno
import functools
import glob
import os
import re
import sys
import unittest

SOURCES = os.environ["CORVANE_SOURCES"]
TABLE = f"{SOURCES}/resources/en.lproj/PrivilegedHelperClient.strings"
FOLDERS = ("client", "foundation", "operations", "operationset-vnt", "platform", "process")
# Where what is said is said to people and not to the log.
TELLING = ("client/cli/commands", "client/cli/output", "client/cli/setup", "client/cli/CommandLine.cpp",
           "platform/linux/installation", "platform/posix/InstallationLock.cpp",
           "platform/linux/transport/HelperConnection.cpp")
# What is for programs, or is what a program says of itself.
NOT_TOLD = {'<plist version="1.0"><', "launchctl for systemd, version"}

PLACEHOLDER = re.compile(r"\$\d\$")
# What stands for something else in tables of the sources.
PLACE = re.compile(r"\bUNIT\b|\{\w+\}")
WORD = re.compile(r"[A-Za-z]")
WORDS = re.compile(r"[A-Za-z]{2,} [A-Za-z]{2,}")


def unescaped(text):
    return re.sub(r"\\(.)", lambda found: {"n": "\n", "t": "\t"}.get(found[1], found[1]), text)


def keys():
    with open(TABLE, encoding="utf-8") as file:
        return {unescaped(key) for key in re.findall(r'(?m)^"((?:[^"\\]|\\.)*)"\s*=', file.read())}


def literals_in(path):
    """The texts of a source, those that stand behind each other joined."""
    with open(path, encoding="utf-8") as file:
        source = re.sub(r"(?m)^\s*#include.*$|(?<![:\"])//.*$", "", file.read())
    for found in re.finditer(r'(?:"(?:[^"\\\n]|\\.)*"\s*)+', source):
        yield unescaped("".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', found[0])))


@functools.cache
def literals():
    """All of them, with the file of each."""
    return [(text, os.path.relpath(path, SOURCES))
            for folder in FOLDERS
            for path in sorted(glob.glob(f"{SOURCES}/{folder}/**/*", recursive=True))
            if path.endswith((".cpp", ".h", ".mm")) for text in literals_in(path)]


def texts_of_the_system():
    """What the C library and the XML parser say of their errors."""
    describe = ctypes.CDLL("libexpat.so.1").XML_ErrorString
    describe.restype = ctypes.c_char_p
    return {os.strerror(code) for code in errno.errorcode} | {
        text.decode() for text in map(describe, range(64)) if text}


def is_made_of(key, parts):
    """Whether it can be put together from `parts`, with anything for what differs, and with what is
    no word between them."""
    reached = {0}
    for at in range(len(key)):
        if at not in reached:
            continue
        if placeholder := PLACEHOLDER.match(key, at):
            reached.add(placeholder.end())
        elif not WORD.match(key, at):
            reached.add(at + 1)
        reached |= {at + len(part) for part in parts.get(key[at], ()) if key.startswith(part, at)}
    return len(key) in reached


class KeysTest(unittest.TestCase):

    def test_every_text_of_the_table_is_said_somewhere(self):
        texts = {text for text, _ in literals()}
        parts = {}
        for part in (part.strip() for text in texts for part in PLACE.split(text)):
            if WORD.search(part):
                parts.setdefault(part[0], set()).add(part)
        said = texts | texts_of_the_system()
        self.assertEqual({key for key in keys() - said if not is_made_of(key, parts)}, set())

    def test_every_text_that_is_said_is_in_the_table(self):
        every = "\n".join(keys())
        told = {part for text, path in literals() if path.startswith(TELLING)
                for part in PLACE.split(text) if WORDS.search(part)} - NOT_TOLD
        self.assertGreater(len(told), 200)
        self.assertEqual({text for text in told if text.strip() not in every}, set())


if __name__ == "__main__":
    result = unittest.main(exit=False, verbosity=2).result
    sys.exit(0 if result.wasSuccessful() else 1)
