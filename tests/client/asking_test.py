"""What an ordinary user is asked at a terminal, and what comes of the answers."""

import json
import os
import re
import sys

SOURCES = os.environ["CORVANE_SOURCES"]
sys.path.insert(0, f"{SOURCES}/tests/platform/linux/authorization")
from polkit_support import PASSWORD, PolkitTest, write
from bus import Client
from support import main, make_application, wait_until


class AskingTest(PolkitTest):
    def setUp(self):
        super().setUp()
        if not os.path.exists("/usr/bin/pkttyagent"):
            self.skipTest("polkit's text agent is not installed")
        # Another client keeps the daemon from ending.
        Client(self.daemon.connect()).register(1)
        self.path = f"{self.folder}/protected"
        write(self.path, "")

    @staticmethod
    def text_of(terminal):
        """What is shown, without colours."""
        return re.sub("\033\\[[0-9;]*m", "", terminal.seen).replace("\r\n", "\n")

    def asked(self, *arguments, **environment):
        """A terminal on which a password is waited for."""
        terminal = self.run_client(*arguments, **environment)
        self.expect_password_prompt(terminal)
        return terminal

    def answer(self, terminal, text):
        """The exit status, and the lines that are shown behind what the agent shows."""
        terminal.type(text)
        status = terminal.wait()
        return status, self.text_of(terminal).rpartition("====\n")[2].split("\n")


class SentenceTest(AskingTest):
    def assertAsked(self, sentence, *arguments, **environment):
        terminal = self.asked(*arguments, **environment)
        self.assertIn(f"====\n{sentence}\n", self.text_of(terminal))
        self.answer(terminal, "\x03")

    def test_says_what_is_to_be_deleted(self):
        self.assertAsked(f"Authorization is needed to delete '{self.path}'.", "delete",
                         self.path)
        self.assertAsked(f"Authorization is needed to delete '{self.path}' and 1 more with all "
                         "that is in them.", "delete", "-r", self.path, f"{self.path}-2")
        self.assertAsked(f"Authorization is needed to delete '{self.path}'.", "delete-files",
                         self.path)

    def test_says_which_utility_is_to_be_run(self):
        application = make_application(self.folder, "#!/bin/sh\n")
        self.assertAsked("Authorization is needed to run 'lipo -x ＄1' as root.",
                         "execute", "--application", application, "lipo", "-x", "$1")

    def test_says_which_preference_is_to_be_changed_and_whose_it_is(self):
        self.assertAsked("Authorization is needed to set the preference 'Key' (application: "
                         "com.example; user: all users).", "preferences", "set", "--any-user",
                         "--app", "com.example", "Key", "1")
        self.assertAsked("Authorization is needed to remove the preference 'Key' (application: "
                         "all applications; user: operator).", "preferences", "remove", "--user",
                         "operator", "Key")

    def test_is_in_the_users_language(self):
        self.assertAsked(f"Um „{self.path}“ zu löschen, ist eine Autorisierung nötig.",
                         "delete", self.path, LANG="de_DE.UTF-8")

    def test_gives_way_to_the_one_of_the_command_line(self):
        self.assertAsked("Really?", "--prompt", "Really?", "delete", self.path)


class AnswerTest(AskingTest):
    def test_a_mistyped_password_is_told_as_that(self):
        application = make_application(self.folder, "#!/bin/sh\n")
        for refused, what, *arguments in (
                (3, f"delete '{self.path}'", "delete", self.path),
                (3, f"delete '{self.path}'", "--no-feedback", "delete", "-r", self.path),
                (3, f"delete '{self.path}'", "delete-files", self.path),
                (3, "set the preference 'Key'", "preferences", "set", "--any-user", "Key", "1"),
                (126, "run 'lipo'", "execute", "--application", application, "lipo")):
            with self.subTest(what=arguments):
                self.assertEqual(self.answer(self.asked(*arguments), "wrong\n"), (refused, [
                    f"Cannot {what}: The password was not accepted.", "Try again.", ""]))
        self.assertTrue(os.path.exists(self.path))

    def test_json_tells_it_too(self):
        terminal = self.asked("--json", "delete", self.path)
        status, lines = self.answer(terminal, "wrong\n")
        told = json.loads("\n".join(lines))
        self.assertEqual((status, told["domain"], told["code"], told["description"]),
                         (3, "NSPOSIXErrorDomain", 1, "The password was not accepted."))
        self.assertEqual(told["recoverySuggestion"], "Try again.")

    def test_ctrl_c_cancels(self):
        for arguments in (("delete", self.path), ("--no-feedback", "delete", "-r", self.path),
                          ("delete-files", self.path)):
            with self.subTest(arguments=arguments):
                terminal = self.asked(*arguments)
                status, lines = self.answer(terminal, "\x03")
                self.assertEqual(status, 4, terminal.seen)
                self.assertEqual(lines[2:], [
                    "Password: ", "Stopping. Press Ctrl-C again to leave at once.",
                    f"Cannot delete '{self.path}': Operation canceled",
                    "It was stopped. What had been done by then stays done.", ""])
        self.assertTrue(os.path.exists(self.path))


class TerminalTest(AskingTest):
    """Whom a terminal belongs to, and what is seen on it."""

    def test_whoever_has_a_terminal_is_asked_whatever_standard_input_is(self):
        for script in ('"$@" "$FILE" </dev/null', 'echo "$FILE" | xargs "$@"'):
            write(self.path, "")
            terminal = self.run_client("delete", script=script, FILE=self.path)
            self.expect_password_prompt(terminal)
            self.assertEqual(self.answer(terminal, PASSWORD + "\n")[0], 0, terminal.seen)
            self.assertFalse(os.path.exists(self.path))

    def test_nobody_is_asked_without_a_terminal(self):
        terminal = self.run_client("delete", self.path, script='setsid --wait "$@"')
        self.assertEqual(terminal.wait(), 3)
        self.assertIn("Not authorized.", terminal.seen)
        self.assertNotIn("Password", terminal.seen)

    def test_no_password_is_seen_after_ctrl_z(self):
        if self.daemon.is_sanitized("tsan"):
            self.skipTest("the thread sanitizer holds signals back while one is handled")
        # A shell that leaves the terminal as its job left it, and one that does not.
        for restore in ("", "stty echo; "):
            write(self.path, "")
            script = f'set -m; "$@"; echo suspended; read line; {restore}echo "read: $line"; fg'
            terminal = self.run_client("delete", self.path, script=script)
            self.expect_password_prompt(terminal)
            terminal.type("\x1a")
            terminal.expect("suspended")
            self.assertTrue(terminal.echoes(), "the shell's lines are seen")
            terminal.type("go on\n")
            wait_until(lambda: not terminal.echoes(), "what is typed is unseen")
            terminal.type(PASSWORD + "\n")
            self.assertEqual(terminal.wait(), 0, terminal.seen)
            self.assertFalse(os.path.exists(self.path))
            self.assertIn("read: go on\r\n", terminal.seen)
            self.assertNotIn(PASSWORD, terminal.seen)

    def test_the_agent_speaks_the_language_of_the_messages(self):
        german = "Vantor möchte Dateisystemobjekte unabhängig von ihren Zugriffsrechten löschen."
        for environment in ({"LANG": "C.UTF-8", "LC_MESSAGES": "de_DE.UTF-8"},
                            {"LANG": "en_US.UTF-8", "LANGUAGE": "de:en"},
                            {"LANG": "de_DE.UTF-8"}):
            with self.subTest(environment=environment):
                # Without a text the sentence of the operation is shown, which polkit translates.
                terminal = self.asked("--prompt", "", "delete", self.path, **environment)
                self.assertIn(german, terminal.seen)
                self.answer(terminal, "\x03")


class RefusedTest(AskingTest):
    RULES = """
polkit.addRule(function(action, subject) {
  if (action.id == "com.corvane.vnt.delete-files") return polkit.Result.NO;
});
"""

    def test_who_is_not_asked_is_to_ask_an_administrator(self):
        terminal = self.run_client("delete-files", self.path)
        self.assertEqual((terminal.wait(), self.text_of(terminal)), (
            3, f"Cannot delete '{self.path}': Operation not permitted\n"
            "You are not authorized to do this. Ask an administrator of this machine.\n"))


if __name__ == "__main__":
    main()
