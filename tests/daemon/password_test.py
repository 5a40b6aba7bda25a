"""Requests of an ordinary user whom the machine's polkit asks for an administrator's password."""

import os
import sys
import threading

sys.path.append(f"{os.path.dirname(os.path.abspath(__file__))}/../support")

from bus import (DELETE_FILEOBJECTS, EXECUTE_UTILITY, NOP, OSSTATUS, POSIX,  # noqa: E402
                 Client)
from protection import IMMUTABLE, protect, unprotect  # noqa: E402
from support import (DaemonTest, installed_only, main, make_application,  # noqa: E402
                     root_only, wait_until)
from terminal import Terminal  # noqa: E402

PASSWORD = "admins-password"
DENIED = (POSIX, 1, {})
NOBODY_TO_ASK = (OSSTATUS, -60007, {})


@installed_only("its polkit asks at terminals, for the password of an account")
@root_only("its client is another user's")
class PasswordTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.asking = self.user()
        self.client = Client(self.asking.connect(self.daemon.socket_path))
        self.addCleanup(unprotect, self.folder)
        self.path = f"{self.folder}/protected"
        with open(self.path, "wb"):
            pass
        protect(self.path, IMMUTABLE)
        self.deletion = (DELETE_FILEOBJECTS, ["0", "0", self.path])

    def perform(self, request):
        code, arguments = request
        return self.client.perform(code, self.form(self.asking), arguments)

    def start_agent(self):
        """The terminal of whoever is asked for the user's requests."""
        ready, registered = os.pipe()
        os.set_inheritable(registered, True)
        uid = str(self.asking.uid)
        terminal = Terminal(["setpriv", "--reuid", uid, "--regid", uid, "--clear-groups",
                             "pkttyagent", "--process", str(self.asking.process.pid),
                             "--notify-fd", str(registered)])
        self.addCleanup(os.kill, terminal.pid, 9)
        os.close(registered)
        with open(ready, "rb") as end:
            end.read()
        return terminal

    def answered(self, terminal, password, request):
        """What is answered after `password` was typed for it."""
        answers = []
        requesting = threading.Thread(target=lambda: answers.append(self.perform(request)))
        requesting.start()
        terminal.expect("Password: ")
        # The agent shows its prompt, then drops what has been typed and no longer echoes.
        wait_until(lambda: not terminal.echoes(), "what is typed is unseen")
        terminal.type(password + "\n")
        terminal.expect("==== AUTHENTICATION (COMPLETE|FAILED)")
        requesting.join()
        return answers[0]

    def test_without_anybody_to_ask_nothing_is_done(self):
        self.assertEqual(self.perform(self.deletion), NOBODY_TO_ASK)
        self.assertTrue(os.path.exists(self.path))
        self.assertIsNone(self.perform((NOP, [])))

    def test_the_password_lets_a_protected_file_be_deleted(self):
        terminal = self.start_agent()
        self.assertIsNone(self.answered(terminal, PASSWORD, self.deletion))
        self.assertFalse(os.path.exists(self.path))
        self.assertIn("Vantor", terminal.seen)

    def test_the_password_lets_a_utility_run(self):
        application = make_application(self.folder, "#!/bin/sh\nid -u >\"$1\"\n")
        request = (EXECUTE_UTILITY, [application, "lipo", f"{self.folder}/user"])
        self.assertIsNone(self.answered(self.start_agent(), PASSWORD, request))
        with open(f"{self.folder}/user", encoding="ascii") as user:
            self.assertEqual(user.read(), "0\n")

    def test_another_password_does_not(self):
        self.assertEqual(self.answered(self.start_agent(), "guessed", self.deletion), DENIED)
        self.assertTrue(os.path.exists(self.path))


if __name__ == "__main__":
    main()
