"""The small requests of the service: version, endpoints, the registry of clients, debug mode."""

import os
import subprocess
import threading
import time

from gi.repository import Gio, GLib

from bus import (DELETE_FILEOBJECTS, HELPER_INTERFACE, HELPER_PATH, NOP, Client, RawPeer, data,
                 message, request_body)
from slow_feedback import SlowFeedback
from support import (ANOTHER, DEBUG, ERROR, NOTICE, SOMEBODY_ELSE, DaemonTest, comparable, logged,
                     main, root_only)


def beginning(pid, level=DEBUG):
    return level, f"Beginning work for client {pid}."


def finishing(pid, level=DEBUG):
    return level, f"Finishing work for client {pid}."


def remaining(count, level=DEBUG):
    return level, f"{count} clients remaining."


TERMINATING = (DEBUG, "Terminating privileged helper.")


class RegistryTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())
        self.mark = self.log.mark()

    def test_a_client_registered_twice_and_unregistered_once_was_the_last(self):
        self.client.register(100)
        self.client.register(100)
        self.assertEqual(self.client.unregister(100), ())
        self.assertEndsWith(0)
        self.assertLogged(self.mark, beginning(100), beginning(100), finishing(100), remaining(0),
                          TERMINATING)

    def test_the_helper_runs_on_while_clients_remain(self):
        self.client.register(100)
        self.client.register(200)
        self.client.unregister(100)
        self.assertLogged(self.mark, beginning(100), beginning(200), finishing(100), remaining(1))
        self.assertEqual(self.client.version(), "1.3")
        self.client.unregister(200)
        self.assertEndsWith(0)

    def test_unregistering_an_unknown_client_with_an_empty_registry_ends_the_helper(self):
        self.client.unregister(300)
        self.assertEndsWith(0)
        self.assertLogged(self.mark, finishing(300), remaining(0), TERMINATING)

    def test_unregistering_an_unknown_client_changes_nothing_for_others(self):
        self.client.register(100)
        self.client.unregister(300)
        self.assertLogged(self.mark, beginning(100), finishing(300), remaining(1))

    def test_unregistering_while_others_remain_waits_for_nobody_who_arrives(self):
        self.client.register(100)
        # Each has been accepted and sends no message: the last one to leave would wait that long.
        count, patience = 60, 0.25
        begin = time.monotonic()
        for _ in range(count):
            silent = RawPeer(self.daemon.connect()).handshake()
            self.client.unregister(200)
            silent.close()
        self.assertLess(time.monotonic() - begin, count * patience)

    def test_numbers_are_whatever_the_client_sends(self):
        numbers = [0, -1, 2**31 - 1, -2**31]
        for number in numbers:
            self.client.register(number)
        self.client.unregister(1)
        self.assertLogged(self.mark, *map(beginning, numbers), finishing(1), remaining(4))

    def test_all_connections_share_the_registry(self):
        self.client.register(100)
        other = Client(self.daemon.connect())
        other.register(200)
        other.unregister(100)
        self.assertLogged(self.mark, beginning(100), beginning(200), finishing(100), remaining(1))

    def test_a_client_that_disconnects_stays_registered(self):
        lost = Client(self.daemon.connect())
        lost.register(100)
        lost.close()
        self.client.register(200)
        self.client.unregister(200)
        self.assertLogged(self.mark, beginning(100), beginning(200), finishing(200), remaining(1))

    def test_a_helper_without_registered_clients_keeps_running(self):
        self.client.version()
        self.client.close()
        self.assertEqual(Client(self.daemon.connect()).version(), "1.3")

    def test_a_message_whose_sender_wants_no_reply_gets_none(self):
        peer = RawPeer(self.daemon.connect()).handshake()
        no_reply = Gio.DBusMessageFlags.NO_REPLY_EXPECTED
        for serial, member in enumerate(("RegisterClientWithPID", "RegisterClientWithPID",
                                         "UnregisterClientWithPID"), 1):
            peer.send(message(member, GLib.Variant("(i)", (100 + serial,)), serial,
                              flags=no_reply))
        peer.send(message("EnableDebugMode", GLib.Variant("(b)", (False,)), 4, flags=no_reply))
        peer.send(message("PerformPrivilegedOperation", request_body(9999, b"", []), 5,
                          flags=no_reply))
        peer.send(message("GetVersionString", None, 6))
        self.assertEqual(peer.receive().get_reply_serial(), 6)
        peer.send(message("UnregisterClientWithPID", GLib.Variant("(i)", (101,)), 7,
                          flags=no_reply))
        peer.send(message("UnregisterClientWithPID", GLib.Variant("(i)", (102,)), 8,
                          flags=no_reply))
        self.assertEndsWith(0)
        self.assertRaises((EOFError, ConnectionResetError), peer.receive)

    def test_the_end_does_not_wait_for_requests_in_progress(self):
        feedback = SlowFeedback()
        busy = RawPeer(self.daemon.connect()).handshake()
        feedback.request(busy, self.form(), ["0", "0"] + [f"{self.folder}/none"] * SlowFeedback.COUNT)
        feedback.wait_for_opening()
        self.client.unregister(1)
        self.assertEndsWith(0)
        self.assertRaises((EOFError, ConnectionResetError), busy.receive)
        self.assertNotIn("was completed", "\n".join(self.log.after(0)))


class RegistryOfUsersTest(DaemonTest):
    """What users may do to what others registered."""

    def setUp(self):
        super().setUp()
        self.root = Client(self.daemon.connect())
        self.users = [self.client_of(uid) for uid in (ANOTHER, SOMEBODY_ELSE)]
        self.mark = self.log.mark()

    def client_of(self, uid):
        return Client(self.user(uid).connect(self.daemon.socket_path))

    def ignored(self, uid, pid):
        return (f"User {uid} asked to unregister client {pid}, which only other users "
                "registered. This and what follows of the kind from this user is ignored.")

    def assertLines(self, *lines):
        expected = [line if isinstance(line, str) else logged(*line) for line in lines]
        self.log.wait_for(lambda line: line == expected[-1], self.mark)
        self.assertEqual(comparable(self.log.after(self.mark)), comparable(expected))

    def test_edge_cases_hold_for_one_ordinary_user(self):
        one = self.users[0]
        one.register(100)
        one.register(100)
        one.register(200)
        one.unregister(100)
        one.unregister(300)
        self.assertLogged(self.mark, beginning(100), beginning(100), beginning(200), finishing(100),
                          remaining(1), finishing(300), remaining(1))
        one.unregister(200)
        self.assertEndsWith(0)

    def test_an_unknown_number_of_a_user_ends_the_helper_without_clients(self):
        self.assertEqual(self.users[0].unregister(300), ())
        self.assertEndsWith(0)
        self.assertLogged(self.mark, finishing(300), remaining(0), TERMINATING)

    def test_who_unregisters_what_only_others_registered_is_acknowledged_and_ignored(self):
        one, other = self.users
        one.register(100)
        self.root.register(200)
        for _ in range(3):
            self.assertEqual(other.unregister(100), ())
            self.assertEqual(other.unregister(200), ())
        one.unregister(100)
        self.assertLines(beginning(100), beginning(200), self.ignored(SOMEBODY_ELSE, 100),
                         finishing(100), remaining(1))

    def test_a_number_of_others_that_one_registers_oneself_cannot_be_taken_out_either(self):
        one, other = self.users
        one.register(100)
        other.register(100)
        other.unregister(100)
        self.assertEqual(one.version(), "1.3")
        one.unregister(100)
        self.assertEndsWith(0)
        self.assertLogged(self.mark, beginning(100), beginning(100), finishing(100), remaining(0),
                          TERMINATING)

    def test_a_number_is_forgotten_with_its_registration(self):
        one, other = self.users
        self.root.register(1)
        one.register(100)
        one.unregister(100)
        other.unregister(100)
        self.assertLogged(self.mark, beginning(1), beginning(100), finishing(100), remaining(1),
                          finishing(100), remaining(1))

    @root_only("it is about root's registrations")
    def test_root_unregisters_whatever_there_is(self):
        for client in self.users:
            client.register(100)
        self.root.unregister(100)
        self.assertEndsWith(0)

    def test_a_connection_of_an_endpoint_counts_for_its_user(self):
        one, other = self.users
        one.register(100)
        Client(other.endpoint()).unregister(100)
        Client(one.endpoint()).unregister(100)
        self.assertEndsWith(0)
        self.assertLines(beginning(100), self.ignored(SOMEBODY_ELSE, 100),
                         finishing(100), remaining(0), TERMINATING)

    def test_a_user_has_at_most_128_numbers_registered(self):
        one, other = self.users
        other.register(100)
        for pid in range(1000, 1000 + 128):
            one.register(pid)
        mark = self.log.mark()
        self.assertEqual(one.register(2000), ())
        one.register(1000)  # it is one of them
        other.register(3000)
        one.unregister(1000)
        one.register(2001)
        self.assertLogged(mark, beginning(1000), beginning(3000), finishing(1000), remaining(129),
                          beginning(2001))

    @root_only("it is about root's registrations")
    def test_root_has_any_number_registered(self):
        for pid in range(1000, 1000 + 200):
            self.root.register(pid)
        self.root.unregister(1)
        self.assertEqual(self.log.after(self.mark)[-1], logged(*remaining(200)))


@root_only("others cannot register that many")
class CleanUpTest(DaemonTest):
    """The registry of a helper that most clients left without a word."""

    MANY = 4096

    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())

    def register_many(self, *running):
        """Those, and numbers of no process until there are as many as start the clean-up."""
        for pid in (*running, *range(-self.MANY, -len(running))):
            self.client.send("RegisterClientWithPID", GLib.Variant("(i)", (pid,)))
        self.assertEqual(self.client.version(), "1.3")

    def assertRemain(self, count):
        mark = self.log.mark()
        self.client.unregister(-100000)
        self.assertLogged(mark, finishing(-100000), remaining(count))

    def test_clients_that_have_ended_make_room_collected_or_not(self):
        uncollected = subprocess.Popen(["true"])
        self.addCleanup(uncollected.wait)
        os.waitid(os.P_PID, uncollected.pid, os.WEXITED | os.WNOWAIT)
        self.register_many(os.getpid(), uncollected.pid)
        self.assertRemain(self.MANY)
        self.client.register(-200000)
        self.assertRemain(2)

    def test_clients_of_which_it_cannot_be_told_stay(self):
        self.register_many(os.getpid())
        self.daemon.use_up_descriptors()
        self.client.register(-200000)
        # What no process has needs no look, what one has does.
        self.assertRemain(2)


class ServiceTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())

    def test_the_version_is_the_bare_one(self):
        self.assertEqual(self.client.version(), "1.3")

    def test_an_endpoint_is_a_working_new_connection(self):
        other = Client(self.client.endpoint())
        self.assertEqual(other.version(), "1.3")
        self.assertIsNone(other.perform(NOP, self.form()))

    def test_the_connection_of_an_endpoint_outlives_the_one_it_came_from(self):
        endpoint = self.client.endpoint()
        self.client.close()
        further = Client(Client(endpoint).endpoint())
        self.assertEqual(further.version(), "1.3")

    def test_an_endpoint_that_is_not_used_costs_nothing(self):
        self.client.version()
        holdings = self.daemon.holdings()
        for _ in range(50):
            self.client.endpoint().close()
        self.daemon.wait_for_holdings(holdings)

    def test_an_endpoint_needs_descriptor_passing(self):
        peer = RawPeer(self.daemon.connect())
        peer.send(b"\0AUTH EXTERNAL\r\nDATA\r\n")
        answers = b""
        while b"OK " not in answers or not answers.endswith(b"\r\n"):
            answers += peer.socket.recv(4096)
        peer.send(b"BEGIN\r\n" + message("ConnectWithEndpoint"))
        self.assertEqual(peer.receive().get_message_type(), Gio.DBusMessageType.ERROR)

    def test_peers_may_call_themselves_anonymous(self):
        peer = RawPeer(self.daemon.connect())
        peer.send(b"\0AUTH ANONYMOUS\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n")
        answers = b""
        while b"AGREE_UNIX_FD\r\n" not in answers:
            answers += peer.socket.recv(4096)
        peer.send(message("GetVersionString"))
        self.assertEqual(peer.receive().get_body().unpack(), ("1.3",))

    def test_messages_may_have_the_other_byte_order(self):
        peer = RawPeer(self.daemon.connect()).handshake()
        call = Gio.DBusMessage.new_method_call(None, HELPER_PATH, HELPER_INTERFACE,
                                               "GetVersionString")
        call.set_serial(1)
        call.set_byte_order(Gio.DBusMessageByteOrder.BIG_ENDIAN)
        peer.send(bytes(call.to_blob(Gio.DBusCapabilityFlags.NONE)))
        self.assertEqual(peer.receive().get_body().unpack(), ("1.3",))

    def test_a_message_may_come_byte_by_byte(self):
        peer = RawPeer(self.daemon.connect())
        for byte in b"\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n":
            peer.send(bytes([byte]))
        answers = b""
        while b"AGREE_UNIX_FD\r\n" not in answers:
            answers += peer.socket.recv(4096)
        for byte in message("GetVersionString"):
            peer.send(bytes([byte]))
        self.assertEqual(peer.receive().get_body().unpack(), ("1.3",))

    def test_requests_on_different_connections_run_in_parallel(self):
        feedback = SlowFeedback()
        form = self.form()
        busy = RawPeer(self.daemon.connect()).handshake()
        feedback.request(busy, form, ["0", "0"] + [f"{self.folder}/none"] * SlowFeedback.COUNT)
        feedback.wait_for_opening()
        # The first request waits for its feedback to be taken; others neither wait nor disturb it.
        for _ in range(3):
            self.assertIsNone(self.client.perform(NOP, form))
        self.assertNotIn("Operation delete-fileobjects was completed", "\n".join(self.log.after(0)))
        feedback.drain()
        self.assertEqual(busy.receive().get_reply_serial(), 1)

    def test_messages_of_one_connection_are_handled_in_their_order(self):
        feedback = SlowFeedback()
        peer = RawPeer(self.daemon.connect()).handshake()
        feedback.request(peer, self.form(), ["0", "0"] + [f"{self.folder}/none"] * SlowFeedback.COUNT)
        for serial in range(2, 6):
            peer.send(message("GetVersionString", None, serial))
        feedback.wait_for_opening()
        feedback.drain()
        self.assertEqual([peer.receive().get_reply_serial() for _ in range(5)], [1, 2, 3, 4, 5])

    def test_many_clients_at_once_are_all_answered(self):
        form = self.form()
        failures = []

        def work():
            try:
                client = Client(self.daemon.connect())
                for _ in range(30):
                    if client.perform(NOP, form) is not None or client.version() != "1.3":
                        failures.append("wrong answer")
                client.close()
            except Exception as error:  # pylint: disable=broad-except
                failures.append(error)

        threads = [threading.Thread(target=work) for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])


class DebugModeTest(DaemonTest):
    DEBUG_LINES = False
    ENABLED = [
        (ERROR, "Debug mode changed to enabled. Debug messages are now handled at logging priority "
         "level 5."),
        (NOTICE, "--- This is helper version 1.3, implementing operation set 'vnt'. ---"),
    ]
    DISABLED = (ERROR, "Debug mode changed to disabled. Debug messages are now handled at logging "
                "priority level 7.")

    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())
        self.mark = self.log.mark()

    def test_each_change_is_logged_once(self):
        self.client.debug(False)
        self.assertEqual(self.client.debug(True), ())
        self.client.debug(True)
        self.client.debug(False)
        self.client.debug(False)
        self.client.debug(True)
        self.assertLogged(self.mark, *self.ENABLED, self.DISABLED, *self.ENABLED)

    def test_routine_lines_follow_the_level_and_rejections_do_not(self):
        self.client.debug(True)
        other = Client(self.daemon.connect())
        other.register(100)
        other.unregister(200)
        other.perform(9999, b"", None)
        other.perform(NOP, b"")
        other.perform(NOP, self.form(), ["x"])
        self.assertLogged(
            self.mark, *self.ENABLED, beginning(100, NOTICE), finishing(200, NOTICE),
            remaining(1, NOTICE),
            (ERROR, "Received invalid operation with code 9999 argument list (nil)."),
            (NOTICE, "About to perform privileged operation 'nop' with 0 arguments."),
            (NOTICE, "Operation could not be authorized, rejected with error code 22."),
            (NOTICE, "About to perform privileged operation 'nop' with 1 arguments."),
            (ERROR, "Operation nop was rejected because an invalid number of arguments was "
             "specified (0 expected, 1 sent)."))
        mark = self.log.mark()
        self.client.debug(False)
        other.register(300)
        self.assertLogged(mark, self.DISABLED, beginning(300))

    def test_anybody_may_switch_it(self):
        Client(self.user().connect(self.daemon.socket_path)).debug(True)
        self.assertLogged(self.mark, *self.ENABLED)

    def test_every_start_begins_without_it(self):
        self.client.debug(True)
        self.client.unregister(1)
        self.assertEndsWith(0)
        again = self.start()
        Client(again.connect()).register(100)
        self.assertEqual(again.log.after(0), self.shown(beginning(100)))


if __name__ == "__main__":
    main()
