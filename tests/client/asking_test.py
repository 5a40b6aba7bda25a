"""What an ordinary user is asked at a terminal, and what comes of the answers."""

import os
import re
import sys

SOURCES = os.environ["CORVANE_SOURCES"]
sys.path.insert(0, f"{SOURCES}/tests/platform/linux/authorization")
from polkit_support import PASSWORD, PolkitTest, write
from bus import Client
from support import main, make_application


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


if __name__ == "__main__":
    main()
