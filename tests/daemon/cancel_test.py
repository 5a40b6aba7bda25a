"""Requests that are cancelled while they are in progress, over another connection."""

import os
import signal
import subprocess
import sys
import threading
import time

from bus import (DELETE_FILEOBJECTS, EXECUTE_UTILITY, NOP, POSIX, Client, FeedbackServer,
                 dictionary, named)
from gi.repository import GLib
from support import (PATIENCE, SOMEBODY, SOMEBODY_ELSE, TEST_PROGRAMS, DaemonTest, bench_only, main,
                     make_application, root_only, wait_until)

sys.path.append(f"{os.path.dirname(os.path.abspath(__file__))}/../support")
from big_tree import FILES, FOLDERS, BigTree  # noqa: E402

CANCELLED, INVALID = (POSIX, 89, {}), (POSIX, 22, {})
TOKEN = "4d2c6a40-9a3e-4f5e-a3ab-6f5f0b0b6d11"

# Tells who it is and waits until it is told to go on; asked to end, it does as the first argument
# says.
UTILITY = """#!/bin/sh
trap "$1" TERM
echo $$ >"$2.new" && mv "$2.new" "$2"
while ! read -r line <'{folder}/go-on'; do :; done
"""


class Request(threading.Thread):
    """One request on a connection of its own, and what it is answered with."""

    def __init__(self, connected, code, form, arguments, endpoint=None):
        super().__init__(daemon=True)
        self.client = Client(connected)
        self.answer = None
        self._what = (code, form, arguments, endpoint)
        self.start()

    def run(self):
        self.answer = self.client.perform(*self._what)


class CancelTest(DaemonTest):
    def prepare(self):
        self.application = make_application(self.folder, UTILITY.format(folder=self.folder))
        os.mkfifo(f"{self.folder}/go-on")

    def setUp(self):
        super().setUp()
        self.other = Client(self.daemon.connect())
        self.addCleanup(self.go_on)

    def go_on(self):
        """Lets every utility end that still waits."""
        gate = os.open(f"{self.folder}/go-on", os.O_RDWR)
        os.write(gate, b"\n" * 200)
        self.addCleanup(os.close, gate)

    def run_utility(self, token, at_termination="exit 3", name="pid", endpoint=None):
        """A request whose utility runs, and that utility's process."""
        told = f"{self.folder}/{name}"
        request = Request(self.daemon.connect(), EXECUTE_UTILITY, self.form(),
                          named(token, [self.application, "lipo", at_termination, told]), endpoint)
        wait_until(lambda: os.path.exists(told), "the utility runs")
        with open(told, encoding="ascii") as file:
            return request, int(file.read())

    def assertCancelled(self, request):
        request.join()
        self.assertEqual(request.answer, CANCELLED)

    def test_a_utility_is_asked_to_end(self):
        server = FeedbackServer()
        request, utility = self.run_utility(TOKEN, endpoint=server.endpoint)
        self.assertTrue(self.other.cancel(TOKEN))
        self.assertCancelled(request)
        self.assertFalse(os.path.exists(f"/proc/{utility}"))
        self.assertIn("FinalFeedbackMessage", server.wait_for_final()[-1])
        server.close()

    def test_a_utility_that_goes_on_is_killed_after_ten_seconds(self):
        request, utility = self.run_utility(TOKEN, at_termination=":")
        began = time.monotonic()
        self.assertTrue(self.other.cancel(TOKEN))
        self.assertCancelled(request)
        self.assertGreaterEqual(time.monotonic() - began, 10)
        self.assertFalse(os.path.exists(f"/proc/{utility}"))

    def test_a_request_is_cancelled_twice(self):
        ending = f"touch '{self.folder}/asked'; read -r line <'{self.folder}/go-on'; exit 3"
        request, _ = self.run_utility(TOKEN, at_termination=ending)
        self.assertTrue(self.other.cancel(TOKEN))
        wait_until(lambda: os.path.exists(f"{self.folder}/asked"), "the utility is asked to end")
        self.assertTrue(self.other.cancel(TOKEN))
        self.go_on()
        self.assertCancelled(request)

    def test_a_request_that_has_ended_is_in_progress_no_more(self):
        form = self.form()
        self.assertIsNone(Client(self.daemon.connect()).perform(NOP, form, named(TOKEN)))
        self.assertFalse(self.other.cancel(TOKEN))
        self.assertFalse(self.other.cancel(TOKEN))

    def test_another_token_cancels_nothing(self):
        request, utility = self.run_utility(TOKEN)
        for token in ("", TOKEN[:-1], TOKEN + "1", "x" * 100_000):
            self.assertFalse(self.other.cancel(token))
        self.assertTrue(os.path.exists(f"/proc/{utility}"))
        self.go_on()
        request.join()
        self.assertIsNone(request.answer)

    @root_only("the request is root's")
    def test_another_users_request_is_not_cancelled_but_by_root(self):
        request, utility = self.run_utility(TOKEN)
        for uid in (SOMEBODY, SOMEBODY_ELSE):
            self.assertFalse(Client(self.user(uid).connect(self.daemon.socket_path)).cancel(TOKEN))
        self.assertTrue(os.path.exists(f"/proc/{utility}"))
        self.assertTrue(self.other.cancel(TOKEN))
        self.assertCancelled(request)

    def test_requests_with_one_token_are_cancelled_together(self):
        requests = [self.run_utility(TOKEN, name=f"pid{i}")[0] for i in range(3)]
        self.assertTrue(self.other.cancel(TOKEN))
        for request in requests:
            self.assertCancelled(request)

    @root_only("another user has fewer connections")
    def test_a_hundred_are_cancelled_at_once(self):
        requests = [self.run_utility(f"{TOKEN}-{i}", name=f"pid{i}")[0] for i in range(100)]
        clients = [Client(self.daemon.connect()) for _ in requests]
        answers = []
        cancelling = [
            threading.Thread(target=lambda i=i, client=client: answers.append(
                client.cancel(f"{TOKEN}-{i}"))) for i, client in enumerate(clients)]
        for thread in cancelling:
            thread.start()
        for thread in cancelling:
            thread.join()
        self.assertEqual(answers, [True] * 100)
        for request in requests:
            self.assertCancelled(request)

    def test_a_token_is_one_to_64_characters_and_interaction_a_boolean(self):
        client = Client(self.daemon.connect())
        form = self.form()
        for token in ("x", "x" * 64, "ü" * 64, "😀" * 64):
            self.assertIsNone(client.perform(NOP, form, named(token)))
        for wrong in (dictionary(ZELOperationToken=""), dictionary(ZELOperationToken="x" * 65),
                      dictionary(ZELOperationToken=GLib.Variant("u", 1)),
                      dictionary(ZELAuthorizationInteraction="no"),
                      dictionary(ZELAuthorizationInteraction=GLib.Variant("u", 0))):
            with self.subTest(metadata=wrong):
                # Before anything else: the authorization is not looked at.
                self.assertEqual(client.perform(NOP, b"", ["!ZELMETA!", wrong]), INVALID)

    def test_a_control_call_of_another_shape_is_a_bus_error(self):
        for member, body in (("CancelOperation", GLib.Variant("(u)", (1,))),
                             ("CancelOperation", None),
                             ("Cancel", GLib.Variant("(s)", ("",)))):
            with self.assertRaises(GLib.Error):
                self.other.call(member, body, None,
                                interface="com.corvane.ZELPrivilegedHelperControl")
        self.assertEqual(self.other.version(), "1.3")

    @bench_only("it runs a program of the build")
    def test_the_library_cancels_from_another_thread(self):
        result = subprocess.run(
            [f"{TEST_PROGRAMS}/cancelling", self.daemon.socket_path, self.issuer.socket_path,
             self.application, f"{self.folder}/pid"], stdout=subprocess.PIPE, check=True,
            timeout=PATIENCE)
        self.expects_end = True
        self.assertEqual(result.stdout, b"NSPOSIXErrorDomain 89\n" * 2)


@bench_only("it stops the daemon's process")
class CancelledRemovalTest(DaemonTest):
    """A deletion that is stopped in its middle, however fast the machine is."""

    def test_a_tree_of_600000_files_is_left_in_its_middle(self):
        tree = BigTree(self)
        server = FeedbackServer()
        other = Client(self.daemon.connect())
        request = Request(self.daemon.connect(), DELETE_FILEOBJECTS, self.form(),
                          named(TOKEN, ["1", "0", tree.path]), server.endpoint)
        tree.hold_in_its_middle(self.daemon.process.pid)
        cancelling = threading.Thread(target=other.cancel, args=(TOKEN,))
        cancelling.start()
        os.kill(self.daemon.process.pid, signal.SIGCONT)
        cancelling.join()
        request.join()
        self.assertEqual(request.answer, CANCELLED)
        left = tree.left()
        self.assertLess(left, FOLDERS * FILES)
        self.assertGreater(left, FOLDERS * FILES / 2)
        feedback = server.wait_for_final()
        self.assertEqual(feedback, [{"ProgressFraction": 0.0}, {"FinalFeedbackMessage": True}])
        # Nothing goes on behind the answer.
        self.assertEqual(tree.left(), left)
        server.close()


if __name__ == "__main__":
    main()
