"""The client's command that deletes, as a person at a terminal sees it."""

import os
import re
import subprocess
import sys

SOURCES = os.environ["CORVANE_SOURCES"]
sys.path += [f"{SOURCES}/tests/daemon", f"{SOURCES}/tests/support"]
from bus import Client
from support import PROGRAMS, DaemonTest, environment_for, main
from terminal import Terminal

PROTECTED = "An object there has a protection that the helper does not lift"


def change_flags(flags, *paths):
    """As chattr takes them."""
    subprocess.run(["chattr", flags, *paths], check=True)


class DeleteCommandTest(DaemonTest):

    def prepare(self):
        # Before the folder is removed, which comes last.
        self.addCleanup(subprocess.run, ["chattr", "-R", "-f", "-ia", self.folder], check=False,
                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        probe = f"{self.folder}/probe"
        self.make(probe)
        if subprocess.run(["chattr", "+i", probe], check=False).returncode != 0:
            self.skipTest("needs a file system with flags")

    def setUp(self):
        super().setUp()
        # Another client keeps the daemon from ending.
        Client(self.daemon.connect()).register(1)

    def make(self, path, flags=None):
        """A file with the folders above it; its path."""
        path = os.path.join(self.folder, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="ascii"):
            pass
        if flags is not None:
            change_flags(flags, path)
        return path

    def path(self, name):
        return f"{self.folder}/{name}"

    def command(self, *arguments):
        return [f"{PROGRAMS}/privilegerequestor-vnt", "--socket", f"{self.folder}/helper.socket",
                "--authorization-socket", f"{self.folder}/authorization.socket", *arguments]

    def delete(self, *arguments, options=()):
        """On a terminal: the exit status, and the lines that are there in the end."""
        terminal = Terminal(self.command(*options, "delete", *arguments),
                            {**os.environ, **environment_for(self.folder), "LC_ALL": "C.UTF-8",
                             "TERM": "xterm"})
        status = terminal.wait()
        self.screen = terminal.seen
        return status, [re.sub(r".*(\r|\033\[K)", "", line) for line in
                        terminal.seen.replace("\r\n", "\n").split("\n")]

    def assertLeft(self, *names):
        for name in names:
            self.assertTrue(os.path.lexists(self.path(name)), name)

    def assertGone(self, *names):
        for name in names:
            self.assertFalse(os.path.lexists(self.path(name)), name)

    def requests(self):
        return [line for line in self.log.after(0)
                if "About to perform privileged operation 'delete-fileobjects'" in line]


class StopOnFirstErrorTest(DeleteCommandTest):

    def test_what_is_behind_the_object_that_it_stops_at_stays(self):
        self.make("kept/tree/file")
        change_flags("+a", self.path("kept"))
        self.make("later/log", "+a")
        self.make("log", "+a")
        status, lines = self.delete("-r", "--stop-on-first-error", self.path("kept/tree"),
                                    self.path("later"), self.path("log"))
        self.assertEqual((status, lines[0]), (1, f"Cannot delete '{self.path('kept/tree')}' and "
                                              "others: Operation not permitted"))
        self.assertLeft("kept/tree", "later/log", "log")

    def test_append_only_objects_of_one_path_after_the_other_are_deleted(self):
        for number in range(3):
            self.make(f"tree-{number}/folder/log", "+a")
            change_flags("+a", self.path(f"tree-{number}/folder"))
        self.make("kept/tree/file")
        change_flags("+a", self.path("kept"))
        self.make("later/log", "+a")
        status, _ = self.delete("-r", "--stop-on-first-error",
                                *(self.path(name) for name in ("tree-0", "tree-1", "tree-2",
                                                               "kept/tree", "later")))
        self.assertEqual(status, 1)
        self.assertGone("tree-0", "tree-1", "tree-2")
        self.assertLeft("kept/tree", "later/log")


if __name__ == "__main__":
    main()
