"""The client's command that deletes, of an ordinary user whom polkit allows it or not."""

import os
import subprocess
import sys

SOURCES = os.environ["CORVANE_SOURCES"]
sys.path[:0] = [f"{SOURCES}/tests/platform/linux/authorization", f"{SOURCES}/tests/client"]
from polkit_support import PASSWORD, USER, PolkitTest
from bus import Client
from support import main
from delete_command_test import PROTECTED, Deletions, change_flags

RULE = """
polkit.addRule(function(action, subject) {
  if (action.id == "com.corvane.vnt.delete-fileobjects" && subject.user == "somebody")
    return polkit.Result.%s;
});
"""


class UserTest(Deletions, PolkitTest):

    def prepare(self):
        PolkitTest.prepare(self)
        self.prepare_flags()

    def setUp(self):
        PolkitTest.setUp(self)
        # Another client keeps the daemon from ending.
        Client(self.daemon.connect()).register(1)

    def delete(self, *arguments, options=()):
        terminal = self.run_client(*options, "delete", *arguments, TERM="xterm")
        return terminal.wait(), self.lines_of(terminal)

    def make_own(self, path, flags):
        """A file in folders of the user's own."""
        made = self.make(path)
        subprocess.run(["chown", "-R", f"{USER}:{USER}", self.path(path.split("/")[0])], check=True)
        change_flags(flags, made)
        return made


class AllowedUserTest(UserTest):
    RULES = RULE % "YES"

    def test_own_append_only_objects_are_deleted_one_by_one(self):
        for number in range(3):
            self.make_own(f"tree-{number}/log", "+a" if number else "-a")
        paths = [self.path(f"tree-{number}") for number in range(3)]
        self.assertEqual(self.delete("-r", *paths), (0, [""]))
        self.assertGone("tree-0", "tree-1", "tree-2")
        self.assertEqual(self.requests(), [3, 2, 2])

    def test_without_feedback_too(self):
        self.make_own("tree/log", "+a")
        self.assertEqual(self.delete("-r", self.path("tree"), options=["--no-feedback"]), (0, [""]))
        self.assertGone("tree")

    def test_what_others_could_swap_is_left_and_told(self):
        self.make("tree/log", "+a")
        os.chmod(self.path("tree"), 0o777)
        status, lines = self.delete("-r", self.path("tree"))
        self.assertEqual((status, lines[0]), (
            1, f"Cannot delete '{self.path('tree')}': Operation not permitted"))
        self.assertTrue(lines[1].startswith("Append-only objects are left: "), lines[1])
        self.assertLeft("tree/log")
        self.assertEqual(self.requests(), [1])

    def test_what_the_file_system_does_not_permit_is_no_refusal(self):
        kept = self.make("kept/file")
        change_flags("+a", self.path("kept"))
        for options in ((), ("--no-feedback",)):
            status, lines = self.delete(kept, options=options)
            self.assertEqual((status, lines[0]),
                             (1, f"Cannot delete '{kept}': Operation not permitted"))
            self.assertTrue(lines[1].startswith(PROTECTED), lines[1])


class RefusedUserTest(UserTest):
    RULES = RULE % "NO"

    def test_is_told_so_and_does_not_ask_again(self):
        self.make_own("tree/log", "+a")
        expected = (3, [f"Cannot delete '{self.path('tree')}': Operation not permitted",
                        "You are not authorized to do this. Ask an administrator of this machine.",
                        ""])
        self.assertEqual(self.delete("-r", self.path("tree")), expected)
        self.assertEqual(self.requests(), [1])
        # What is append-only may have been in the way, but the authority tells.
        self.assertEqual(self.delete("-r", self.path("tree"), options=["--no-feedback"]), expected)
        self.assertEqual(self.requests(), [1, 1])
        self.assertLeft("tree/log")

    def test_is_told_so_of_what_a_single_deletion_would_make_ordinary(self):
        log = self.make_own("tree/log", "+a")
        self.assertEqual(self.delete(log, options=["--no-feedback"])[0], 3)
        self.assertLeft("tree/log")


class AskedUserTest(UserTest):

    def test_is_asked_once_where_that_is_kept_and_the_line_makes_way(self):
        if not os.path.exists("/usr/bin/pkttyagent"):
            self.skipTest("polkit's text agent is not installed")
        self.make_own("tree/log", "+a")
        terminal = self.run_client("delete", "-r", self.path("tree"), TERM="xterm")
        self.expect_password_prompt(terminal)
        terminal.type(PASSWORD + "\n")
        self.assertEqual(terminal.wait(), 0, terminal.seen)
        self.assertEqual(terminal.seen.count("Password: "), 1)
        self.assertNotRegex(terminal.seen.partition("Password: ")[0], "0:0")
        self.assertGone("tree")


if __name__ == "__main__":
    main()
