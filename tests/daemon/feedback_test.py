"""The feedback connection of a request: order, closing, and endpoints that are not what they
should be."""

import contextlib
import os
import re
import socket
import threading
import time

from gi.repository import Gio

from bus import (DELETE_FILEOBJECTS, FEEDBACK_INTERFACE, FEEDBACK_MEMBER, FEEDBACK_PATH, NOP,
                 POSIX, Client, FeedbackServer, RawPeer)
from log_lines import about, completed, executed
from slow_feedback import SlowFeedback
from support import DEBUG, ERROR, TEST_PROGRAMS, DaemonTest, bench_only, logged, main

CONFIGURING = (DEBUG, "About to configure feedback protocol.")
SENDING_FINAL = (DEBUG, "Sending final feedback message.")
SUSPENDING = (DEBUG, "Suspending feedback connection %p.")
FINAL = {"FinalFeedbackMessage": True}

PAUSE = 0.25
# How long a receiver may take nothing before it is given up.
STALL_TIMEOUT = 10


def opening(option):
    return DEBUG, (f"About to open return connection for feedback (progress option {option}).")


class FeedbackTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())

    def files(self, count):
        paths = [f"{self.folder}/object-{number}" for number in range(count)]
        for path in paths:
            with open(path, "wb"):
                pass
        return paths

    def delete(self, paths, endpoint, client=None):
        return (client or self.client).perform(DELETE_FILEOBJECTS, self.form(), ["0", "0", *paths],
                                               endpoint)

    def test_progress_begins_with_zero_and_ends_with_the_final_message(self):
        paths = self.files(4)
        server = FeedbackServer()
        mark = self.log.mark()
        self.assertIsNone(self.delete(paths, server.endpoint))
        self.assertEqual(server.wait_for_final(),
                         [{"ProgressFraction": fraction} for fraction in (0, .25, .5, .75, 1, 1)] +
                         [FINAL])
        self.assertEqual([path for path in paths if os.path.exists(path)], [])
        self.assertLoggedWithAddress(
            mark, about("delete-fileobjects", 6), CONFIGURING, opening(1),
            executed("delete-fileobjects", "enabled"), SENDING_FINAL,
            SUSPENDING, completed("delete-fileobjects", 0))

    def test_messages_are_what_the_interface_says(self):
        server = FeedbackServer()
        self.delete(self.files(1), server.endpoint)
        server.wait_for_final()
        for _, message in server.messages:
            self.assertEqual(
                (message.get_path(), message.get_interface(), message.get_member(),
                 message.get_signature(), message.get_message_type(), message.get_flags()),
                (FEEDBACK_PATH, FEEDBACK_INTERFACE, FEEDBACK_MEMBER, "a{sv}",
                 Gio.DBusMessageType.METHOD_CALL, Gio.DBusMessageFlags.NO_REPLY_EXPECTED))
        values = [list(dict(self.entries(message)).values()) for _, message in server.messages]
        self.assertEqual(values, [["d"]] * 3 + [["b"]])

    @staticmethod
    def entries(message):
        dictionary = message.get_body().get_child_value(0)
        for index in range(dictionary.n_children()):
            entry = dictionary.get_child_value(index)
            yield (entry.get_child_value(0).get_string(),
                   entry.get_child_value(1).get_variant().get_type_string())

    def test_an_operation_that_fails_closes_its_feedback_as_well(self):
        server = FeedbackServer()
        self.assertEqual(self.delete([f"{self.folder}/none"], server.endpoint)[:2], (POSIX, 2))
        self.assertEqual(server.wait_for_final()[-1], FINAL)
        server = FeedbackServer()
        mark = self.log.mark()
        self.assertEqual(self.client.perform(DELETE_FILEOBJECTS, self.form(), [], server.endpoint),
                         (POSIX, 22, {}))
        self.assertEqual(server.wait_for_final(), [{"ProgressFraction": 0.0}, FINAL])
        self.log.wait_for(lambda line: line == logged(*completed("delete-fileobjects", 22)), mark)

    def test_without_an_endpoint_nothing_is_opened(self):
        mark = self.log.mark()
        self.assertIsNone(self.delete(self.files(1), None))
        self.assertLogged(mark, about("delete-fileobjects", 3),
                          executed("delete-fileobjects", "disabled"),
                          completed("delete-fileobjects", 0))

    def start_slow_deletion(self):
        """A receiver that has got the first message, and the peer that waits for the reply."""
        slow = SlowFeedback()
        caller = RawPeer(self.daemon.connect()).handshake()
        slow.request(caller, self.form(), ["0", "0"] + [f"{self.folder}/none"] * slow.COUNT)
        slow.wait_for_opening()
        return slow, caller

    def assertGotEverything(self, slow):
        count = slow.COUNT
        self.assertEqual([body["ProgressFraction"] for body in slow.bodies[:-1]],
                         [number / count for number in range(count + 1)] + [1.0])

    def test_a_slow_receiver_gets_everything_and_the_reply_comes_a_quarter_second_later(self):
        slow, caller = self.start_slow_deletion()
        # The final message is still to be sent.
        before_final = time.monotonic()
        slow.drain()
        self.assertEqual(caller.receive().get_body().unpack()[0][0][1], 2)
        self.assertGreaterEqual(time.monotonic() - before_final, PAUSE)
        self.assertGreater(slow.size, slow.LEAST_SIZE)
        self.assertGotEverything(slow)
        # The connection was closed before the reply came.
        slow.peer.socket.setblocking(False)
        self.assertEqual(slow.peer.socket.recv(1), b"")

    def test_a_receiver_that_is_slow_for_longer_than_a_stuck_one_is_waited_for_gets_everything(self):
        """It takes as long."""
        slow, caller = self.start_slow_deletion()
        end = time.monotonic() + STALL_TIMEOUT + 2
        while time.monotonic() < end:
            for _ in range(32):
                slow.take()
            # Not for something to happen: the pace is what the test is about.
            time.sleep(1)
        slow.drain()
        self.assertEqual(caller.receive().get_body().unpack()[0][0][1], 2)
        self.assertGotEverything(slow)

    def test_requests_keep_their_feedback_apart(self):
        servers = [FeedbackServer() for _ in range(4)]
        counts = [1, 2, 4, 5]
        clients = [Client(self.daemon.connect()) for _ in servers]
        missing = [f"{self.folder}/none"]
        threads = [threading.Thread(target=self.delete,
                                    args=(missing * count, server.endpoint, client))
                   for server, count, client in zip(servers, counts, clients)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        for server, count in zip(servers, counts):
            fractions = [body["ProgressFraction"] for body in server.wait_for_final()[:-1]]
            self.assertEqual(fractions, [0, *((n + 1) / count for n in range(count)), 1])

    def test_nothing_of_a_feedback_connection_is_left_behind(self):
        self.client.version()
        holdings = self.daemon.holdings()
        for _ in range(3):
            server = FeedbackServer()
            self.delete([f"{self.folder}/none"], server.endpoint)
            server.close()
        self.daemon.wait_for_holdings(holdings)


@bench_only("it serves another set of operations")
class OpeningTest(DaemonTest):
    """Operations that send nothing themselves."""

    PROGRAM = f"{TEST_PROGRAMS}/daemon-of-test-operationset"
    LIVE_OUTPUT, LIVE_PROGRESS = 6, 7

    def assertFeedback(self, code, identifier, option, opening_message):
        client = Client(self.daemon.connect())
        server = FeedbackServer()
        mark = self.log.mark()
        # The number tells whether the operation got a connection.
        self.assertEqual(client.perform(code, self.form(), ["text"], server.endpoint),
                         (POSIX, 2, {}))
        self.assertEqual(server.wait_for_final(), [opening_message, FINAL])
        self.assertLoggedWithAddress(
            mark, about(identifier, 1), CONFIGURING, opening(option),
            executed(identifier, "enabled"), SENDING_FINAL, SUSPENDING, completed(identifier, 2))
        mark = self.log.mark()
        self.assertEqual(client.perform(code, self.form(), ["text"]), (POSIX, 1, {}))
        self.assertLogged(mark, about(identifier, 1), executed(identifier, "disabled"),
                          completed(identifier, 1))

    def test_progress_opens_with_zero(self):
        self.assertFeedback(self.LIVE_PROGRESS, "live-progress", 1, {"ProgressFraction": 0.0})

    def test_live_output_opens_with_two_empty_blocks(self):
        self.assertFeedback(self.LIVE_OUTPUT, "live-output", 0, {"OutputData": [], "ErrorData": []})


class EndpointTest(DaemonTest):
    """Endpoints that are none: the request is answered with the transport's error, at once or when
    its patience ends, and is not performed."""

    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())
        self.innocent = Client(self.daemon.connect())
        self.path = f"{self.folder}/object"
        with open(self.path, "wb"):
            pass

    def assertNoConnection(self, endpoint, code):
        self.client.version()
        holdings = self.daemon.holdings()
        mark = self.log.mark()
        domain, answered, _ = self.client.perform(DELETE_FILEOBJECTS, self.form(),
                                                  ["0", "0", self.path], endpoint)
        self.assertEqual((domain, answered), (POSIX, code))
        self.log.wait_for(lambda line: "no return connection" in line, mark)
        lines = self.log.after(mark)
        self.assertEqual(lines[:3], [logged(*about("delete-fileobjects", 3)),
                                     logged(*CONFIGURING), logged(*opening(1))])
        self.assertRegex(lines[3], re.escape(logged(
            ERROR, "The operation is supporting feedback information, but no return connection "
            "could be opened (")) + r".+\)\.$")
        self.assertEqual(len(lines), 4, lines)
        self.assertTrue(os.path.exists(self.path))
        self.assertIsNone(self.innocent.perform(NOP, self.form()))
        self.daemon.wait_for_holdings(holdings)

    def test_a_descriptor_that_is_no_socket(self):
        with contextlib.ExitStack() as stack:
            others = [stack.enter_context(open(name, "rb")) for name in ("/dev/null", __file__)]
            read_end, write_end = os.pipe()
            folder = os.open("/", os.O_RDONLY)
            for descriptor in (read_end, write_end, folder):
                stack.callback(os.close, descriptor)
            for endpoint in (*others, read_end, write_end, folder):
                self.assertNoConnection(endpoint, 38)

    def test_a_socket_that_listens_or_is_not_connected(self):
        with socket.socket(socket.AF_UNIX) as listening, socket.socket(socket.AF_UNIX) as alone:
            listening.bind(f"{self.folder}/listening")
            listening.listen()
            self.assertNoConnection(listening, 57)
            self.assertNoConnection(alone, 57)

    def test_a_socket_of_another_kind(self):
        for kind in (socket.SOCK_DGRAM, socket.SOCK_SEQPACKET):
            ours, theirs = socket.socketpair(socket.AF_UNIX, kind)
            with ours, theirs:
                self.assertNoConnection(theirs, 41)
        with socket.create_server(("127.0.0.1", 0)) as listening:
            with socket.create_connection(listening.getsockname()) as connected:
                self.assertNoConnection(connected, 41)

    def test_a_socket_whose_other_end_is_closed(self):
        ours, theirs = socket.socketpair()
        ours.close()
        with theirs:
            domain, code, _ = self.client.perform(DELETE_FILEOBJECTS, self.form(),
                                                  ["0", "0", self.path], theirs)
            self.assertEqual(domain, POSIX)
            self.assertIn(code, (32, 54))
        self.assertTrue(os.path.exists(self.path))
        self.assertIsNone(self.innocent.perform(NOP, self.form()))

    def test_a_receiver_that_refuses_the_handshake(self):
        ours, theirs = socket.socketpair()
        ours.sendall(b"REJECTED\r\n" * 3)
        with ours, theirs:
            domain, code, _ = self.client.perform(DELETE_FILEOBJECTS, self.form(),
                                                  ["0", "0", self.path], theirs)
        self.assertEqual((domain, code != 0), (POSIX, True))
        self.assertTrue(os.path.exists(self.path))

    def test_a_receiver_whose_handshake_never_ends(self):
        ours, theirs = socket.socketpair()

        def flood():
            with contextlib.suppress(OSError):
                while True:
                    ours.sendall(b"DATA " * 10000)

        flooding = threading.Thread(target=flood)
        before = self.daemon.memory()
        with theirs:
            flooding.start()
            domain, code, _ = self.client.perform(DELETE_FILEOBJECTS, self.form(),
                                                  ["0", "0", self.path], theirs)
        self.assertEqual((domain, code != 0), (POSIX, True))
        ours.shutdown(socket.SHUT_RDWR)
        flooding.join()
        self.assertLess(self.daemon.memory() - before, 8 << 10)
        self.assertTrue(os.path.exists(self.path))

    def test_a_receiver_that_says_nothing_is_given_up_after_a_while(self):
        ours, theirs = socket.socketpair()
        with ours, theirs:
            others = threading.Thread(target=self.innocent.version)
            others.start()
            self.assertNoConnection(theirs, 60)
            others.join()

    def test_a_connection_of_the_daemon_itself(self):
        """The daemon then talks to itself, which neither side minds."""
        endpoint = self.client.endpoint()
        self.assertIsNone(self.client.perform(DELETE_FILEOBJECTS, self.form(),
                                              ["0", "0", self.path], endpoint))
        self.assertFalse(os.path.exists(self.path))


class LostReceiverTest(DaemonTest):
    """A receiver that is lost in the middle does not keep the operation from its end."""

    def setUp(self):
        super().setUp()
        self.paths = [f"{self.folder}/object-{number}" for number in range(50)]
        for path in self.paths:
            with open(path, "wb"):
                pass
        self.slow = SlowFeedback()
        self.caller = RawPeer(self.daemon.connect()).handshake()
        # What does not exist is soon removed with all that is below it.
        missing = [f"{self.folder}/none"] * SlowFeedback.COUNT
        self.slow.request(self.caller, self.form(), ["1", "0", *missing, *self.paths])
        self.slow.wait_for_opening()

    def assertDone(self):
        self.assertEqual(self.caller.receive().get_body().unpack(), ([],))
        self.assertEqual([path for path in self.paths if os.path.exists(path)], [])
        self.log.wait_for(lambda line: line == logged(*completed("delete-fileobjects", 0)), 0)

    def test_a_receiver_that_dies(self):
        self.slow.peer.close()
        self.assertDone()

    def test_a_receiver_that_stops_reading(self):
        self.assertDone()

    def test_a_receiver_that_sends_garbage(self):
        self.slow.peer.send(b"garbage" * 100)
        self.slow.peer.close()
        self.assertDone()

    def test_a_caller_that_dies_with_its_receiver(self):
        self.caller.close()
        self.slow.peer.close()
        self.log.wait_for(lambda line: line == logged(*completed("delete-fileobjects", 0)), 0)
        self.assertEqual([path for path in self.paths if os.path.exists(path)], [])


if __name__ == "__main__":
    main()
