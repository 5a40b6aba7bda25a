#!/usr/bin/python3
"""Which folder may include which: what CONTRIBUTING calls the order of dependency, rooms included."""

import ctypes
import os
import re
import unittest

SOURCES = os.environ.get("CORVANE_SOURCES", f"{os.path.dirname(os.path.abspath(__file__))}/../..")

# Each folder and what it may include besides its own files. A folder that is not here may not be.
LINUX = "platform/linux"
MACOS = "platform/macos"
SEAM = {"foundation", "platform"}
MAY_INCLUDE = {
    "foundation": set(),
    "platform": {"foundation"},
    "platform/posix": SEAM,
    f"{LINUX}/log": SEAM | {"platform/posix", f"{LINUX}/processes", f"{LINUX}/transport"},
    f"{LINUX}/files": SEAM | {"platform/posix"},
    f"{LINUX}/processes": SEAM | {"platform/posix"},
    f"{LINUX}/embedded": SEAM,
    f"{LINUX}/bus": SEAM,
    f"{LINUX}/preferences": SEAM | {"platform/posix", f"{LINUX}/processes"},
    f"{LINUX}/transport": SEAM | {f"{LINUX}/bus", f"{LINUX}/processes"},
    f"{LINUX}/authorization": SEAM | {f"{LINUX}/authorization/polkit", f"{LINUX}/processes",
                                      f"{LINUX}/transport"},
    f"{LINUX}/authorization/polkit": SEAM | {f"{LINUX}/authorization", f"{LINUX}/bus",
                                             f"{LINUX}/processes", f"{LINUX}/transport"},
    f"{LINUX}/installation": SEAM | {"platform/posix"},
    f"{LINUX}/launchctl": SEAM | {f"{LINUX}/bus"},
    f"{MACOS}/embedded": SEAM,
    f"{MACOS}/files": SEAM | {"platform/posix"},
    f"{MACOS}/frameworks": set(),
    f"{MACOS}/values": SEAM | {f"{MACOS}/frameworks"},
    f"{MACOS}/processes": SEAM | {"platform/posix", f"{MACOS}/values"},
    f"{MACOS}/preferences": SEAM | {f"{MACOS}/frameworks", f"{MACOS}/values"},
    f"{MACOS}/authorization": SEAM | {f"{MACOS}/frameworks", f"{MACOS}/values"},
    f"{MACOS}/transport": SEAM | {f"{MACOS}/frameworks", f"{MACOS}/values"},
    f"{MACOS}/log": SEAM | {"platform/posix", f"{MACOS}/frameworks", f"{MACOS}/transport",
                            f"{MACOS}/values"},
    f"{MACOS}/installation": SEAM | {"platform/posix"},
    "process": SEAM,
    "operations": SEAM | {"process"},
    "operationset-vnt": SEAM | {"process", "operations"},
    "privilegedhelper-vnt": SEAM | {"process", "operations"},
    "client/include": {"foundation"},
    "client": SEAM | {"client/include", "operations"},
    "client/cli/output": SEAM | {"client/include", "operationset-vnt"},
    "client/cli/setup": SEAM | {"client/cli/output", "client/include", "operations",
                                "operationset-vnt"},
    "client/cli/commands": SEAM | {"client/cli/output", "client/cli/setup", "client/include",
                                   "operations", "operationset-vnt"},
    "client/cli": SEAM | {"client/cli/commands", "client/cli/output", "client/cli/setup",
                          "operationset-vnt"},
}
# Sub-rooms that make up one room with the folder that they are in.
ONE_ROOM = {(f"{LINUX}/authorization", f"{LINUX}/authorization/polkit")}

# What only one system has, and so only its own folder may include. POSIX is what all have.
SYSTEM_HEADER = re.compile(r"#include <((asm|linux|mach|systemd)/.*|sys/(epoll|event|eventfd|inotify|"
                           r"prctl|sendfile|signalfd|statfs|syscall|sysctl|sysmacros|vfs|xattr)\.h)>")
SYSTEM_NAME = re.compile(
    # Calls and constants of Linux
    r"\b(accept4|AT_EMPTY_PATH|AT_NO_AUTOMOUNT|dup3|epoll_\w+|eventfd|getdents\w*|getrandom|gettid|"
    r"memfd_create|MSG_CMSG_CLOEXEC|MSG_NOSIGNAL|O_PATH|O_TMPFILE|openat2|pidfd_\w+|pipe2|"
    r"posix_spawn_file_actions_addclosefrom_np|ppoll|prctl|renameat2|secure_getenv|signalfd|"
    r"SO_PEERCRED|SOCK_CLOEXEC|SOCK_NONBLOCK|sd_\w+|statx|syscall|"
    # of macOS,
    r"kevent|kqueue|NSGetEnviron|O_EVTONLY|O_SYMLINK|sysctl\w*|UF_\w+|SF_\w+|xpc_\w+|"
    # and what polls where the C++ library of a system has nothing better.
    r"binary_semaphore|counting_semaphore)\b|/proc/|\"/(sys|run)/|"
    # Services of one system that a text may speak of.
    r"\b(journalctl|polkit|systemctl|systemd)\b")
COMMENT = re.compile(r"//.*")
CONDITION = re.compile(r"#\s*(if|ifdef|elif)\b.*(__linux__|__APPLE__|__unix__|_WIN32)")


def sources():
    """Every source file of the programs: its folder, its path and its text."""
    for root in ("foundation", "platform", "process", "operations", "operationset-vnt",
                 "privilegedhelper-vnt", "client"):
        for folder, _, names in os.walk(f"{SOURCES}/{root}"):
            for name in names:
                if name.endswith((".h", ".cpp", ".mm")):
                    path = f"{folder}/{name}"
                    with open(path, encoding="utf-8") as file:
                        yield os.path.relpath(folder, SOURCES), os.path.relpath(path, SOURCES), \
                            file.read()


def portable_tests():
    """Every C++ file of the tests of what is the same on all systems: its path and its text."""
    for area in ("client", "foundation", "operations", "operationset-vnt", "platform/posix",
                 "privilegedhelper-vnt", "process", "resources", "support"):
        for folder, _, names in os.walk(f"{SOURCES}/tests/{area}"):
            for name in names:
                if name.endswith((".h", ".cpp")):
                    path = f"{folder}/{name}"
                    with open(path, encoding="utf-8") as file:
                        yield os.path.relpath(path, SOURCES), file.read()


def what_knows_a_system(text):
    code = COMMENT.sub("", text)
    return [found[0] for pattern, where in ((SYSTEM_HEADER, text), (CONDITION, text),
                                            (SYSTEM_NAME, code)) for found in pattern.finditer(where)]


def included_folders(text):
    for header in re.findall(r'^#include "([^"]+)"', text, re.MULTILINE):
        yield os.path.dirname(header) or "client/include"


class LayersTest(unittest.TestCase):

    def test_no_folder_includes_what_builds_on_it(self):
        wrong = []
        for folder, path, text in sources():
            self.assertIn(folder, MAY_INCLUDE, f"{path}: which folders may this one include?")
            for included in included_folders(text):
                if included != folder and included not in MAY_INCLUDE[folder]:
                    wrong.append(f"{path} includes a header of {included}")
        self.assertEqual(wrong, [])

    def test_what_may_be_included_has_no_circle(self):
        def reached(folder, seen):
            for included in MAY_INCLUDE[folder]:
                if (included, folder) in ONE_ROOM or (folder, included) in ONE_ROOM:
                    continue
                if included not in seen:
                    seen.add(included)
                    reached(included, seen)
            return seen
        for folder in MAY_INCLUDE:
            self.assertNotIn(folder, reached(folder, set()))

    def test_only_the_folder_of_a_system_knows_which_one_it_is(self):
        wrong = [f"{path}: {found}" for folder, path, text in sources()
                 if not folder.startswith((LINUX, MACOS)) for found in what_knows_a_system(text)]
        self.assertEqual(wrong, [])

    def test_tests_of_what_all_systems_have_know_none_of_them(self):
        tests = list(portable_tests())
        self.assertGreater(len(tests), 50)
        wrong = [f"{path}: {found}" for path, text in tests for found in what_knows_a_system(text)]
        wrong += [f"{path} includes a header of {included}" for path, text in tests
                  for included in included_folders(text)
                  if re.match(r"(tests/)?platform/(linux|macos)", included)]
        self.assertEqual(wrong, [])

    def test_no_function_of_the_seam_is_taken_for_one_of_the_c_library(self):
        library = ctypes.CDLL(None)
        functions = []
        for folder, path, text in sources():
            if folder == "platform":
                # What stands in a namespace of its own is not called by its bare name.
                text = re.sub(r"^namespace [A-Z].*?^}  // namespace", "", text, flags=re.M | re.S)
                functions += [(path, name)
                              for name in re.findall(r"^\w[^(){};#]*\b(\w+)\(", text, re.MULTILINE)]
        self.assertIn(("platform/FileSystem.h", "removeFile"), functions)
        self.assertEqual([(path, name) for path, name in functions if hasattr(library, name)], [])


if __name__ == "__main__":
    unittest.main()
