"""Clients of the command line that are ended by a signal in the middle of their work."""

import contextlib
import os
import signal
import subprocess
import sys

from bus import Client
from support import (PATIENCE, DaemonTest, logged, main, make_application, root_only,
                     wait_until)

sys.path.append(f"{os.path.dirname(os.path.abspath(__file__))}/../support")
from terminal import Terminal  # noqa: E402

ENDING = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)


class InterruptionTest(DaemonTest):
    def prepare(self):
        os.mkfifo(f"{self.folder}/go-on")
        self.application = make_application(
            self.folder, f"#!/bin/sh\ntrap \"$1\" TERM\nexec 3<>'{self.folder}/go-on'\n"
                         f"touch '{self.folder}/runs'\nwhile ! read -r _ <&3; do :; done\n")

    def setUp(self):
        super().setUp()
        # What it runs is the daemon's child, and goes on when both have ended.
        self.addCleanup(self.go_on)

    def go_on(self):
        # For reading too: nobody may be there to read.
        with open(os.open(f"{self.folder}/go-on", os.O_RDWR), "w", encoding="ascii") as go_on:
            go_on.write("\n")
            go_on.flush()
            wait_until(lambda: not self.is_utility_running(), "the utility has ended")

    def is_utility_running(self):
        return subprocess.run(["pgrep", "-f", f"{self.folder}/Test.app"], check=False,
                              stdout=subprocess.DEVNULL).returncode == 0

    # What the utility does when it is asked to end.
    ending = "exit 3"

    def start_client(self, ignored=()):
        """A client whose utility runs."""
        def ignore():
            for number in ignored:
                signal.signal(number, signal.SIG_IGN)
        client = subprocess.Popen(
            self.client_command("execute", "--application", self.application, "lipo",
                                self.ending),
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=ignore,
            **self.client_options())
        self.addCleanup(client.wait)
        self.addCleanup(client.kill)
        wait_until(lambda: os.path.exists(f"{self.folder}/runs"), "the utility runs")
        return client

    def assertEndedBy(self, client, number):
        self.assertEqual(client.communicate(timeout=PATIENCE), (b"", b""))
        self.assertEqual(client.returncode, -number)

    def interrupt_only_client(self, number):
        client = self.start_client()
        client.send_signal(number)
        self.assertEndedBy(client, number)
        self.assertEndsWith(0)
        self.assertIn(logged(7, f"Finishing work for client {client.pid}."), self.log.after(0))

    def assertStopped(self, client):
        output, error = client.communicate(timeout=PATIENCE)
        self.assertEqual(output, b"")
        self.assertEqual(error.decode().splitlines(), [
            "Stopping. Press Ctrl-C again to leave at once.",
            "Cannot run 'lipo': Operation canceled",
            "It was stopped. What had been done by then stays done."])
        self.assertEqual(client.returncode, 4)

    def test_an_interrupt_ends_the_operation_and_the_helper_with_its_only_client(self):
        client = self.start_client()
        client.send_signal(signal.SIGINT)
        self.assertStopped(client)
        self.assertFalse(self.is_utility_running())
        self.assertEndsWith(0)
        self.assertIn(logged(7, f"Finishing work for client {client.pid}."), self.log.after(0))

    def on_terminal(self):
        """The same on a terminal, where a person presses Ctrl-C."""
        terminal = Terminal(self.client_command("execute", "--application", self.application,
                                                "lipo", self.ending),
                            self.client_options()["env"])
        wait_until(lambda: os.path.exists(f"{self.folder}/runs"), "the utility runs")
        terminal.type("\x03")
        terminal.expect(r"\nStopping\. Press Ctrl-C again to leave at once\.")
        return terminal

    @root_only("the terminal's program is root's")
    def test_a_person_stops_an_operation(self):
        terminal = self.on_terminal()
        self.assertEqual(terminal.wait(), 4)
        self.assertIn("It was stopped. What had been done by then stays done.", terminal.seen)
        self.assertEndsWith(0)

    @root_only("the terminal's program is root's")
    def test_a_person_leaves_what_does_not_stop(self):
        self.ending = ":"
        terminal = self.on_terminal()
        terminal.type("\x03")
        self.assertEqual(terminal.wait(), -signal.SIGINT)
        self.assertEndsWith(0)

    def test_an_interrupt_ends_no_other_client(self):
        other = Client(self.daemon.connect())
        other.register(1)
        client = self.start_client()
        client.send_signal(signal.SIGINT)
        self.assertStopped(client)
        self.assertEqual(other.version(), "1.3")

    def test_a_second_interrupt_leaves_at_once(self):
        self.ending = ":"
        client = self.start_client()
        client.send_signal(signal.SIGINT)
        self.assertEqual(client.stderr.readline(),
                         b"Stopping. Press Ctrl-C again to leave at once.\n")
        client.send_signal(signal.SIGINT)
        self.assertEndedBy(client, signal.SIGINT)
        self.assertEndsWith(0)

    def test_the_helper_ends_with_its_only_client_on_a_termination(self):
        self.interrupt_only_client(signal.SIGTERM)

    def test_the_helper_ends_with_its_only_client_on_a_hangup(self):
        self.interrupt_only_client(signal.SIGHUP)

    def test_the_helper_ends_with_its_only_client_on_a_quit(self):
        self.interrupt_only_client(signal.SIGQUIT)

    def test_the_helper_stays_for_its_other_clients(self):
        other = Client(self.daemon.connect())
        other.register(1)
        client = self.start_client()
        client.send_signal(signal.SIGTERM)
        self.assertEndedBy(client, signal.SIGTERM)
        self.log.wait_for(lambda line: line == logged(7, "1 clients remaining."), 0)
        self.assertEqual(other.version(), "1.3")

    def test_what_the_client_was_started_to_ignore_does_not_end_it(self):
        client = self.start_client(ignored=ENDING)
        for number in ENDING:
            client.send_signal(number)
        self.go_on()
        self.assertEqual(client.communicate(timeout=PATIENCE), (b"", b""))
        self.assertEqual(client.returncode, 0)
        self.assertEndsWith(0)

    def test_a_helper_that_does_not_answer_is_left_at_the_second_signal(self):
        """At the first one it waits ten seconds for the helper."""
        client = self.start_client()
        self.daemon.process.send_signal(signal.SIGSTOP)
        self.addCleanup(self.daemon.process.send_signal, signal.SIGCONT)

        def has_ended():
            client.send_signal(signal.SIGINT)
            return client.poll() is not None
        wait_until(has_ended, "the client has ended", patience=8)
        client.communicate()
        self.assertEqual(client.returncode, -signal.SIGINT)

    def test_a_client_that_is_killed_stays_registered(self):
        client = self.start_client()
        client.kill()
        client.wait()
        other = Client(self.daemon.connect())
        mark = self.log.mark()
        other.register(1)
        other.unregister(1)
        self.assertIn(logged(7, "1 clients remaining."), self.log.after(mark))

    def ask_to_make_room(self):
        """As an upgrade does."""
        self.daemon.process.send_signal(signal.SIGWINCH)

    def test_a_helper_whose_clients_were_all_killed_makes_room_when_asked(self):
        client = self.start_client()
        client.kill()
        client.wait()
        self.ask_to_make_room()
        # What it has begun it ends.
        self.go_on()

        def has_ended():
            with contextlib.suppress(ProcessLookupError):
                self.ask_to_make_room()
            return self.daemon.process.poll() is not None
        wait_until(has_ended, "the helper has ended")
        self.assertEndsWith(0)
        self.assertIn(logged(7, f"Finishing work for client {client.pid}."), self.log.after(0))

    def test_a_helper_with_a_client_at_work_makes_no_room(self):
        client = self.start_client()
        self.ask_to_make_room()
        self.go_on()
        self.assertEqual(client.communicate(timeout=PATIENCE), (b"", b""))
        self.assertEqual(client.returncode, 0)
        self.assertEndsWith(0)

    def test_a_helper_makes_no_room_while_a_registered_process_lives(self):
        registered = subprocess.Popen(["sleep", "1000"])
        self.addCleanup(registered.wait)
        self.addCleanup(registered.kill)
        own = Client(self.daemon.connect())
        own.register(registered.pid)
        own.register(4000000)
        own.close()
        # At one time or another nobody is connected.
        for _ in range(20):
            self.ask_to_make_room()
            other = Client(self.daemon.connect())
            self.assertEqual(other.version(), "1.3")
            other.close()
        other = Client(self.daemon.connect())
        mark = self.log.mark()
        other.unregister(4000000)
        self.assertIn(logged(7, "1 clients remaining."), self.log.after(mark))


if __name__ == "__main__":
    main()
