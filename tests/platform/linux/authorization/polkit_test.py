"""What polkit and the people it asks decide, through the daemon and the client program."""

import contextlib
import os
import select
import signal
import socket
import threading

from gi.repository import GLib

from polkit_support import (ADMINISTRATOR, ADMINISTRATOR_NAME, PASSWORD, USER, USER_NAME, PolkitTest,
                            write)
from bus import (DELETE_FILEOBJECTS, DISCARD_AUTH, MARKER, NOP, OSSTATUS, POSIX,
                 dictionary)
from support import main, wait_until

DENIED = (POSIX, 1, {})
CANCELLED = (POSIX, 89, {})
NOBODY_TO_ASK = (OSSTATUS, -60007, {})
FAILED = (OSSTATUS, -60008, {})


class Requestor(PolkitTest):
    """Requests of an ordinary user's process, whose dialogs the test itself answers."""

    def setUp(self):
        super().setUp()
        self.requestor = self.user()
        self.client = self.client_of(self.requestor)

    def protected_file(self):
        path = f"{self.folder}/protected"
        write(path, "")
        return path

    def delete(self, path, form=None, client=None):
        return (client or self.client).perform(DELETE_FILEOBJECTS,
                                               form or self.form(self.requestor), ["0", "0", path])


class RequestTest(Requestor):
    def test_what_everybody_may_is_done_without_asking(self):
        self.assertIsNone(self.client.perform(NOP, self.form(self.requestor)))

    def test_what_is_granted_is_done(self):
        self.agent(self.requestor.process.pid, "grant")
        path = self.protected_file()
        self.assertIsNone(self.delete(path))
        self.assertFalse(os.path.exists(path))

    def test_what_is_not_granted_is_not_done(self):
        path = self.protected_file()
        for manner, error in (("refuse", DENIED), ("dismiss", CANCELLED), (None, NOBODY_TO_ASK)):
            with self.subTest(manner=manner):
                agent = self.agent(self.requestor.process.pid, manner) if manner else None
                self.assertEqual(self.delete(path), error)
                self.assertTrue(os.path.exists(path))
                if agent:
                    agent.end()

    def test_a_discarded_authorization_is_asked_for_again(self):
        agent = self.agent(self.requestor.process.pid, "grant")
        self.assertIsNone(self.delete(self.protected_file()))
        agent.end()
        self.assertIsNone(self.delete(self.protected_file()), "it was kept")
        self.assertIsNone(self.client.perform(DISCARD_AUTH, self.form(self.requestor)))
        path = self.protected_file()
        self.assertEqual(self.delete(path), NOBODY_TO_ASK)
        self.assertTrue(os.path.exists(path))

    def test_a_dialog_closes_when_its_client_goes_away_and_others_are_served_meanwhile(self):
        agent = self.agent(self.requestor.process.pid, "wait")
        form = self.form(self.requestor)

        def ask():
            with contextlib.suppress(GLib.Error):
                self.delete(self.protected_file(), form=form)
        thread = threading.Thread(target=ask)
        thread.start()
        self.assertEqual(agent.next_event()["event"], "asked")
        other = self.user()
        self.assertIsNone(self.client_of(other).perform(NOP, self.form(other)))
        self.client.close()
        self.assertEqual(agent.next_event()["event"], "cancelled")
        thread.join()

    def test_a_yes_after_the_asking_process_has_ended_has_nothing_done(self):
        path = self.protected_file()
        agent = self.agent(self.requestor.process.pid, "late")
        errors = []
        form = self.form(self.requestor)
        thread = threading.Thread(target=lambda: errors.append(self.delete(path, form=form)))
        thread.start()
        self.assertEqual(agent.next_event()["event"], "asked")
        self.assertEqual(agent.next_event()["event"], "open")
        # Its connection is still there: it is this process's as well.
        self.requestor.end()
        agent.process.send_signal(signal.SIGUSR1)
        thread.join()
        self.assertEqual(errors, [(OSSTATUS, -60002, {})])
        self.assertTrue(os.path.exists(path))

    def test_a_user_has_four_dialogs_at_a_time_and_others_have_theirs(self):
        path = self.protected_file()
        users = [self.user() for _ in range(5)]
        clients = [self.client_of(user) for user in users]
        agents = [self.agent(user.process.pid, "wait") for user in users]

        def ask(client, form):
            with contextlib.suppress(GLib.Error):
                self.delete(path, form=form, client=client)
        threads = []
        for user, client, agent in list(zip(users, clients, agents))[:4]:
            threads.append(threading.Thread(target=ask, args=(client, self.form(user))))
            threads[-1].start()
            self.assertEqual(agent.next_event()["event"], "asked")
        self.assertEqual(self.delete(path, form=self.form(users[4]), client=clients[4]),
                         NOBODY_TO_ASK)
        self.assertIsNone(clients[4].perform(NOP, self.form(users[4])), "it takes no dialog")
        other = self.user(ADMINISTRATOR)
        agent = self.agent(other.process.pid, "grant")
        self.assertIsNone(self.delete(path, form=self.form(other), client=self.client_of(other)))
        agent.end()
        for client in clients[:4]:
            client.close()
        for thread in threads:
            thread.join()


class RuleTest(Requestor):
    RULES = f"""
polkit.addRule(function(action, subject) {{
  if (action.id == "com.corvane.vnt.delete-fileobjects" && subject.user == "{USER_NAME}")
    return polkit.Result.YES;
  if (action.id == "com.corvane.vnt.nop") return polkit.Result.NO;
}});
"""

    def test_rules_of_the_machine_decide(self):
        self.assertEqual(self.client.perform(NOP, self.form(self.requestor)), DENIED)
        path = self.protected_file()
        self.assertIsNone(self.delete(path))
        self.assertFalse(os.path.exists(path))

    def test_a_rule_is_nothing_that_can_be_discarded(self):
        self.assertIsNone(self.client.perform(DISCARD_AUTH, self.form(self.requestor)))
        self.assertIsNone(self.delete(self.protected_file()))


class BusyBusTest(Requestor):
    """Others keep the system's bus from getting to the daemon, which must not pass for a machine without
    polkit."""

    RULES = f"""
polkit.addRule(function(action, subject) {{
  if (action.id == "com.corvane.vnt.nop" && subject.user == "{USER_NAME}")
    return polkit.Result.NO;
}});
"""
    # The bus admits 64 that have not said who they are, and gives them up after a while; so many times
    # over there is somebody in front of the daemon.
    MANY = 640

    def test_what_a_rule_forbids_stays_forbidden(self):
        agent = self.agent(self.requestor.process.pid, "wait")
        form = self.form(self.requestor)

        def ask():
            with contextlib.suppress(GLib.Error):
                self.delete(self.protected_file(), form=form)
        # This one keeps the connection that the daemon may have to the bus.
        thread = threading.Thread(target=ask)
        thread.start()
        self.assertEqual(agent.next_event()["event"], "asked")
        client = self.client_of(self.requestor)
        busy, done = threading.Event(), threading.Event()
        keeping = threading.Thread(target=self.keep_busy, args=(busy, done))
        keeping.start()
        busy.wait()
        try:
            # Should it get in between two others, the rule is heeded.
            self.assertIn(client.perform(NOP, form), (FAILED, DENIED))
        finally:
            done.set()
            keeping.join()
        self.assertEqual(client.perform(NOP, form), DENIED)
        self.client.close()
        thread.join()

    def keep_busy(self, busy, done):
        silent = {}
        poll = select.poll()
        while not done.is_set():
            # Until its queue is full: who comes then has to wait to get in.
            with contextlib.suppress(BlockingIOError):
                while len(silent) < self.MANY:
                    connecting = socket.socket(socket.AF_UNIX)
                    connecting.setblocking(False)
                    connecting.connect(self.polkit.bus)
                    silent[connecting.fileno()] = connecting
                    poll.register(connecting, select.POLLHUP)
            busy.set()
            for number, _ in poll.poll(1):
                poll.unregister(number)
                silent.pop(number).close()
        for connected in silent.values():
            connected.close()


class DialogTest(Requestor):
    def test_the_dialog_shows_nothing_that_misleads(self):
        agent = self.agent(self.requestor.process.pid, "dismiss")
        for hidden in ("\u202e", "\u200b", "\u061c", "\ufeff", "\U0001d173", "\U00013430",
                       "\u0600", "\x1b[31m", "\n"):
            with self.subTest(hidden=ascii(hidden)):
                arguments = [MARKER, dictionary(ZELAuthorizationPrompt=f"a{hidden}b <c>"), "0", "0", "/none"]
                self.assertEqual(self.client.perform(DELETE_FILEOBJECTS, self.form(self.requestor),
                                                     arguments), CANCELLED)
                shown = agent.next_event()["message"]
                self.assertNotIn(hidden, shown)
                self.assertNotIn("<", shown)


class TerminalTest(PolkitTest):
    """The client program on the terminal of an ordinary user, with polkit's own text agent."""

    def setUp(self):
        super().setUp()
        if not os.path.exists("/usr/bin/pkttyagent"):
            self.skipTest("polkit's text agent is not installed")
        self.expects_end = True  # with its last client
        self.path = f"{self.folder}/protected"
        write(self.path, "")

    def delete(self):
        return self.run_client("--prompt", "Really <delete> it?", "delete", self.path)

    def test_the_right_password_has_it_done(self):
        terminal = self.delete()
        terminal.expect("Really ‹delete› it[?]")
        self.expect_password_prompt(terminal)
        terminal.type(PASSWORD + "\n")
        self.assertEqual(terminal.wait(), 0, terminal.seen)
        self.assertFalse(os.path.exists(self.path))
        self.assertNotIn(PASSWORD, terminal.seen)

    def test_a_wrong_password_has_nothing_done(self):
        terminal = self.delete()
        self.expect_password_prompt(terminal)
        terminal.type("wrong\n")
        self.assertEqual(terminal.wait(), 3, terminal.seen)
        self.assertTrue(os.path.exists(self.path))

    def test_an_interrupted_dialog_has_nothing_done(self):
        terminal = self.delete()
        self.expect_password_prompt(terminal)
        terminal.type("\x03")
        self.assertEqual(terminal.wait(), 4, terminal.seen)
        self.assertTrue(os.path.exists(self.path))
        self.wait_until_no_agent_is_left()

    def test_nobody_is_asked_for_what_everybody_may(self):
        terminal = self.run_client("nop")
        self.assertEqual(terminal.wait(), 0, terminal.seen)
        self.assertNotIn("AUTHENTICATING", terminal.seen)

    def test_the_doctor_says_where_dialogs_are_shown(self):
        terminal = self.run_client("doctor")
        terminal.wait()
        self.assertRegex(terminal.seen, "dialogs +ok +shown on this terminal")
        self.assertRegex(terminal.seen, "rights +ok +all 8 registered")

    def wait_until_no_agent_is_left(self):
        def is_left():
            for pid in filter(str.isdigit, os.listdir("/proc")):
                try:
                    with open(f"/proc/{pid}/cmdline", "rb") as command:
                        if command.read().startswith(b"/usr/bin/pkttyagent\0") \
                                and os.stat(f"/proc/{pid}").st_uid == USER:
                            return True
                except OSError:
                    continue
            return False
        wait_until(lambda: not is_left(), "the text agent has ended")


if __name__ == "__main__":
    main()
