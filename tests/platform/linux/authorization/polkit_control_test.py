"""Dialogs that are cancelled, forbidden or only asked about."""

import json
import os
import threading

from gi.repository import GLib

from polkit_support import PolkitTest, write
from bus import DELETE_FILEOBJECTS, DISCARD_AUTH, MARKER, NOP, OSSTATUS, POSIX, dictionary, named
from support import SOMEBODY_ELSE, main, wait_until

CANCELLED = (POSIX, 89, {})
NOBODY_TO_ASK = (OSSTATUS, -60007, {})
TOKEN = "a token"


class ControlTest(PolkitTest):
    RULES = """polkit.addRule(function(action, subject) {
  if (action.id == 'com.corvane.vnt.execute-utility') return polkit.Result.NO; });
"""

    def setUp(self):
        super().setUp()
        self.requestor = self.user()
        self.client = self.client_of(self.requestor)
        self.path = f"{self.folder}/protected"
        write(self.path, "")

    def delete(self, metadata):
        return self.client.perform(DELETE_FILEOBJECTS, self.form(self.requestor),
                                   [MARKER, metadata, "0", "0", self.path])

    def test_a_dialog_closes_when_its_request_is_cancelled(self):
        agent = self.agent(self.requestor.process.pid, "wait")
        form = self.form(self.requestor)
        answers = []
        asking = threading.Thread(target=lambda: answers.append(self.client.perform(
            DELETE_FILEOBJECTS, form, named(TOKEN, ["0", "0", self.path]))))
        asking.start()
        self.assertIn(b'"asked"', agent.process.stdout.readline())
        self.assertFalse(self.client_of(self.user(SOMEBODY_ELSE)).cancel(TOKEN))
        other = self.user()
        self.assertTrue(self.client_of(other).cancel(TOKEN))
        self.assertIn(b'"cancelled"', agent.process.stdout.readline())
        asking.join()
        self.assertEqual(answers, [CANCELLED])
        self.assertTrue(os.path.exists(self.path))
        wait_until(self.log.mark, "the log is taken")
        self.assertRegex("\n".join(self.log.audit),
                         r"delete-fileobjects: cancelled \(NSPOSIXErrorDomain 89\)$")
        self.assertFalse(self.client_of(other).cancel(TOKEN))

    def test_nobody_is_asked_where_that_is_not_wanted(self):
        agent = self.agent(self.requestor.process.pid, "grant")
        quiet = dictionary(ZELAuthorizationInteraction=GLib.Variant("b", False))
        self.assertEqual(self.delete(quiet), NOBODY_TO_ASK)
        self.assertTrue(os.path.exists(self.path))
        # The first dialog is that of a request that allows one.
        aloud = dictionary(ZELAuthorizationInteraction=GLib.Variant("b", True),
                           ZELAuthorizationPrompt="allowed")
        self.assertIsNone(self.delete(aloud))
        self.assertIn(b'"allowed"', agent.process.stdout.readline())

    def test_what_a_request_would_meet_is_told_without_asking(self):
        def query(code):
            return self.client.query(code, self.form(self.requestor))
        self.assertEqual(query(NOP), "granted")
        self.assertEqual(query(2), "denied")
        self.assertEqual(query(DELETE_FILEOBJECTS), "unavailable")
        agent = self.agent(self.requestor.process.pid, "grant")
        self.assertEqual(query(DELETE_FILEOBJECTS), "challenge")
        self.assertEqual(query(2), "denied")
        # The first dialog is that of the request, and it leaves an authorization that is kept.
        self.assertIsNone(self.delete(dictionary(ZELAuthorizationPrompt="requested")))
        self.assertIn(b'"requested"', agent.process.stdout.readline())
        self.assertEqual(query(DELETE_FILEOBJECTS), "granted")
        self.assertIsNone(self.client.perform(DISCARD_AUTH, self.form(self.requestor)))
        self.assertEqual(query(DELETE_FILEOBJECTS), "challenge")

    def test_an_agent_can_begin_after_it_was_looked_for(self):
        self.assertEqual(self.client.query(DELETE_FILEOBJECTS, self.form(self.requestor)),
                         "unavailable")
        self.agent(self.requestor.process.pid, "grant")
        self.assertIsNone(self.delete(dictionary()))

    def told(self, *arguments):
        """What the tool tells on the terminal of a user, and its exit status. The helper stays."""
        self.client.register(self.requestor.process.pid)
        terminal = self.run_client(*arguments)
        status = terminal.wait()
        return terminal.seen.strip(), status

    def test_the_tool_tells_what_a_request_would_meet(self):
        self.assertEqual(self.told("may", "nop"), ("granted", 0))
        self.assertEqual(self.told("may", "execute-utility"), ("denied", 3))
        # It would ask on the terminal itself.
        self.assertEqual(self.told("may", "delete-fileobjects"), ("would ask", 0))
        self.assertEqual(self.told("--no-interaction", "may", "delete-fileobjects"),
                         ("nobody to ask", 3))
        shown, status = self.told("--json", "may", "delete-fileobjects")
        self.assertEqual(json.loads(shown)["result"],
                         {"operation": "delete-fileobjects", "authorization": "challenge"})
        self.assertEqual(status, 0)
        self.assertEqual(self.told("may", "fly"),
                         ("'fly' is not an operation. 'operations' lists them.", 2))

    def test_the_tool_asks_nobody_where_that_is_not_wanted(self):
        shown, status = self.told("--no-interaction", "delete", self.path)
        self.assertEqual(status, 3, shown)
        self.assertNotIn("AUTHENTICATING", shown)
        self.assertTrue(os.path.exists(self.path))


if __name__ == "__main__":
    main()
