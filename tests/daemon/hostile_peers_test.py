"""Peers that break every rule. Whatever they do, the daemon and everybody else go on."""

import contextlib
import os
import pwd
import random
import resource
import select
import socket
import struct
import subprocess

from gi.repository import Gio, GLib

from bus import (DELETE_FILEOBJECTS, HANDSHAKE, HELPER_INTERFACE, HELPER_PATH, MARKER, NOP, POSIX,
                 Client, RawPeer, data, dictionary, message, request_body)
from support import (ANOTHER, DEBUG, INSTALLED, SOMEBODY, SOMEBODY_ELSE, BenchDaemon, DaemonTest,
                     FolderTest, bench_only, listening_socket, main, wait_until)

if INSTALLED:
    from installed import systemctl

MIB = 1 << 20
# What the daemon takes at most: one message, all messages of a user on their way, and connections.
MESSAGE_LIMIT = 16 * MIB
CONNECTION_LIMIT = 128

INVALID_ARGS = "org.freedesktop.DBus.Error.InvalidArgs"
LIMITS_EXCEEDED = "org.freedesktop.DBus.Error.LimitsExceeded"


def header(body_size, fields_size=0, order="l", kind=1, flags=0, version=1):
    """The first 16 bytes of a message."""
    return struct.pack("<cBBBIII" if order != "B" else ">cBBBIII", order.encode(), kind, flags,
                       version, body_size, 1, fields_size)


class HostilePeersTest(DaemonTest):
    """The hostile peer is a user; others were connected before it came."""

    def setUp(self):
        super().setUp()
        self.hostile = self.user()
        self.innocent = [Client(self.daemon.connect()),
                         Client(self.user(ANOTHER).connect(self.daemon.socket_path)),
                         Client(self.user(SOMEBODY_ELSE).connect(self.daemon.socket_path))]
        self.assertInnocentAreServed()

    def assertInnocentAreServed(self):
        for client in self.innocent:
            self.assertEqual(client.version(), "1.3")
        self.assertIsNone(self.innocent[0].perform(NOP, self.form()))
        late = Client(self.daemon.connect())
        self.assertEqual(late.version(), "1.3")
        late.close()

    def peer(self):
        peer = RawPeer(self.hostile.connect(self.daemon.socket_path))
        self.addCleanup(peer.close)
        return peer

    def talking_peer(self):
        return self.peer().handshake()

    def assertDropped(self, peer):
        self.assertTrue(peer.is_dropped())
        self.assertInnocentAreServed()

    def assertAnswersError(self, peer, content, name, descriptors=()):
        """The message is answered with the error called `name`, and the connection goes on."""
        peer.send(content, descriptors)
        answer = peer.receive()
        self.assertEqual((answer.get_message_type(), answer.get_error_name()),
                         (Gio.DBusMessageType.ERROR, name))
        peer.send(message("GetVersionString", None, 77))
        self.assertEqual(peer.receive().get_body().unpack(), ("1.3",))
        self.assertInnocentAreServed()

    def large(self, size):
        """A large size. Sanitizers copy a message with every part of it that comes."""
        return size // 16 if self.daemon.is_sanitized() else size

    def send_as_much_as_fits(self, peer, content):
        """Sends until the daemon takes nothing more, or drops the peer; how much was sent."""
        sent = 0
        with contextlib.suppress(OSError):
            while sent < len(content) and select.select([], [peer.socket], [], 0.5)[1]:
                sent += peer.socket.send(content[sent:sent + MIB], socket.MSG_DONTWAIT)
        return sent


class HandshakeTest(HostilePeersTest):
    def test_garbage_in_its_place(self):
        noise = random.Random(1)
        for garbage in (b"GET / HTTP/1.1\r\nHost: x\r\n\r\n", b"\0" * 5000, b"\r\n" * 3000,
                        b"\0\r\n" + b"\0" * 5000, b"\0AUTH\r\nAUTH\r\n" * 500,
                        b"\x16\x03\x01\x02\x00\x01", noise.randbytes(5000),
                        b"\0" + noise.randbytes(5000), HANDSHAKE[1:], message("GetVersionString")):
            with self.subTest(garbage=garbage[:20]):
                peer = self.peer()
                self.send_as_much_as_fits(peer, garbage)
                self.assertDropped(peer)

    def test_one_that_has_no_end(self):
        for endless in (b"A", b"AUTH EXTERNAL 30\r\n", b"NEGOTIATE_UNIX_FD\r\n", b"DATA\r\n", b"\0",
                        b"CANCEL\r\n", b"ERROR\r\n", b"BEGIN \r\n", b"begin\r\n"):
            with self.subTest(endless=endless):
                before = self.daemon.memory()
                peer = self.peer()
                sent = self.send_as_much_as_fits(peer, b"\0" + endless * (4 * MIB // len(endless)))
                self.assertDropped(peer)
                self.assertLess(sent, 2 * MIB)
                self.assertLess(self.daemon.memory() - before, 8 << 10)

    def test_one_that_stops_is_given_up_after_a_while(self):
        beginnings = [b"", b"\0", b"\0AUTH EXTERNAL", b"\0AUTH EXTERNAL\r\n",
                      b"\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\n", HANDSHAKE[:-1]]
        peers = [self.peer() for _ in beginnings]
        for peer, beginning in zip(peers, beginnings):
            peer.send(beginning)
        self.assertInnocentAreServed()
        for peer in peers:
            self.assertDropped(peer)

    def test_one_that_begins_too_early(self):
        for beginning in (b"\0BEGIN\r\n", b"\0CANCEL\r\nBEGIN\r\n",
                          b"\0NEGOTIATE_UNIX_FD\r\nBEGIN\r\n", b"\0AUTH\r\nBEGIN\r\n",
                          b"\0AUTH DBUS_COOKIE_SHA1 30\r\nBEGIN\r\n"):
            with self.subTest(beginning=beginning):
                peer = self.peer()
                self.send_as_much_as_fits(peer, beginning + message("GetVersionString"))
                received = b""
                with contextlib.suppress(ConnectionResetError):
                    while part := peer.socket.recv(4096):
                        received += part
                self.assertNotIn(b"1.3", received)
                self.assertInnocentAreServed()

    def test_descriptors_that_come_with_it_are_not_kept(self):
        holdings = self.daemon.holdings()
        peer = self.peer()
        for byte in HANDSHAKE:
            peer.send(bytes([byte]), [0] * 50)
        answers = b""
        while b"AGREE_UNIX_FD\r\n" not in answers:
            answers += peer.socket.recv(4096)
        peer.send(message("GetVersionString"))
        self.assertEqual(peer.receive().get_body().unpack(), ("1.3",))
        peer.close()
        self.daemon.wait_for_holdings(holdings)
        self.assertInnocentAreServed()


class MessageTest(HostilePeersTest):
    def test_a_size_beyond_the_limit(self):
        for content in (header(MESSAGE_LIMIT), header(MESSAGE_LIMIT, order="B"),
                        header(0, MESSAGE_LIMIT), header(0xffffffff, 0xffffffff),
                        header(0xffffffff), header(0, 0xffffffff), header(0x7fffffff, 0x7fffffff),
                        header(MESSAGE_LIMIT - 16 + 1), header(MESSAGE_LIMIT // 2, MESSAGE_LIMIT // 2)):
            with self.subTest(content=content.hex()):
                peer = self.talking_peer()
                peer.send(content)
                self.assertDropped(peer)

    def test_a_size_within_the_limit(self):
        # Long data for an authorization, which is answered as what it is.
        body = request_body(NOP, bytes(self.large(MESSAGE_LIMIT - 4096)), [])
        peer = self.talking_peer()
        peer.send(message("PerformPrivilegedOperation", body))
        self.assertEqual(peer.receive().get_body().unpack(), ([(POSIX, 22, {})],))
        self.assertInnocentAreServed()

    def test_a_header_that_is_none(self):
        for content in (header(0, order="x"), header(0, version=0), header(0, version=2),
                        header(0, kind=0), header(0, order="\0"), bytes(64), b"\xff" * 64,
                        header(0, 1) + b"x" * 8, header(8, 0) + b"x" * 8,
                        header(0, 8) + b"\xff" * 8):
            with self.subTest(content=content.hex()):
                peer = self.talking_peer()
                peer.send(content.ljust(32, b"\0"))
                peer.socket.shutdown(socket.SHUT_WR)
                self.assertDropped(peer)

    def test_a_message_that_stops_is_given_up_after_a_while(self):
        whole = message("PerformPrivilegedOperation", request_body(NOP, bytes(32), ["x" * 1000]))
        peers = [self.talking_peer() for _ in range(4)]
        for peer, size in zip(peers, (1, 16, 100, len(whole) - 1)):
            peer.send(whole[:size])
        self.assertInnocentAreServed()
        for peer in peers:
            self.assertDropped(peer)

    def test_a_message_that_ends_with_its_sender(self):
        holdings = self.daemon.holdings()
        whole = message("PerformPrivilegedOperation", request_body(NOP, bytes(32), ["x"]))
        for size in range(0, len(whole), 7):
            peer = self.talking_peer()
            peer.send(whole[:size])
            peer.close()
        self.daemon.wait_for_holdings(holdings)
        self.assertInnocentAreServed()

    def test_a_sender_that_closes_its_side_is_still_answered(self):
        peer = self.talking_peer()
        peer.send(message("GetVersionString"))
        peer.socket.shutdown(socket.SHUT_WR)
        self.assertEqual(peer.receive().get_body().unpack(), ("1.3",))
        self.assertDropped(peer)

    def test_descriptors_beyond_the_limit(self):
        call = message("GetVersionString")
        for count in (5, 60, 253):
            peer = self.talking_peer()
            peer.send(call, [0] * count)
            self.assertDropped(peer)
        peer = self.talking_peer()
        for byte in call:
            peer.send(bytes([byte]), [0])
        self.assertDropped(peer)

    def test_descriptors_that_are_not_announced_or_do_not_come(self):
        body = request_body(NOP, bytes(32), [], 1)
        for announced, sent in ((0, 1), (1, 0), (1, 2), (2, 1), (4, 0)):
            with self.subTest(announced=announced, sent=sent):
                peer = self.talking_peer()
                peer.send(message("PerformPrivilegedOperation", body, descriptors=announced),
                          [0] * sent)
                peer.socket.shutdown(socket.SHUT_WR)
                self.assertDropped(peer)

    def test_a_descriptor_that_is_named_wrongly(self):
        body = GLib.Variant.new_tuple(GLib.Variant("t", NOP), data(bytes(32)),
                                      GLib.Variant("ah", [7]), GLib.Variant("aav", [[]]))
        self.assertAnswersError(self.talking_peer(),
                                message("PerformPrivilegedOperation", body, descriptors=1),
                                INVALID_ARGS, [0])

    def test_calls_that_nobody_serves(self):
        error = "org.freedesktop.DBus.Error."
        peer = self.talking_peer()
        for content, name in (
                (message("NoSuchMethod"), error + "UnknownMethod"),
                (message("getVersionString"), error + "UnknownMethod"),
                (message("GetVersionString", interface="no.such.Interface"),
                 error + "UnknownMethod"),
                (message("GetVersionString", path="/"), error + "UnknownObject"),
                (message("GetVersionString", path=HELPER_PATH + "/below"), error + "UnknownObject")):
            self.assertAnswersError(peer, content, name)

    def test_arguments_of_another_signature(self):
        peer = self.talking_peer()
        text, number = GLib.Variant("(s)", ("x",)), GLib.Variant("(i)", (1,))
        cases = [("GetVersionString", text), ("ConnectWithEndpoint", number),
                 ("RegisterClientWithPID", None), ("RegisterClientWithPID", text),
                 ("RegisterClientWithPID", GLib.Variant("(u)", (1,))),
                 ("RegisterClientWithPID", GLib.Variant("(ii)", (1, 2))),
                 ("UnregisterClientWithPID", None), ("UnregisterClientWithPID", text),
                 ("UnregisterClientWithPID", GLib.Variant("(x)", (1,))),
                 ("EnableDebugMode", number), ("EnableDebugMode", None),
                 ("PerformPrivilegedOperation", None), ("PerformPrivilegedOperation", number),
                 ("PerformPrivilegedOperation",
                  GLib.Variant("(tayahas)", (NOP, [], [], []))),
                 ("PerformPrivilegedOperation",
                  GLib.Variant("(tayahav)", (NOP, [], [], []))),
                 ("PerformPrivilegedOperation",
                  GLib.Variant("(xayahaav)", (NOP, [], [], [])))]
        mark = self.log.mark()
        for member, body in cases:
            with self.subTest(member=member, body=str(body)):
                self.assertAnswersError(peer, message(member, body), INVALID_ARGS)
        lines = [line for line in self.log.after(mark) if "nop" not in line]
        self.assertEqual(lines, [])

    def test_two_of_what_may_be_absent(self):
        peer = self.talking_peer()
        two_lists = request_body(9999, b"", None, lists=[[], []])
        self.assertAnswersError(peer, message("PerformPrivilegedOperation", two_lists),
                                INVALID_ARGS)
        two_endpoints = request_body(9999, b"", [], 2)
        holdings = self.daemon.holdings()
        self.assertAnswersError(
            peer, message("PerformPrivilegedOperation", two_endpoints, descriptors=2), INVALID_ARGS,
            [0, 0])
        self.assertNotIn("9999", "\n".join(self.log.after(0)))
        self.daemon.wait_for_holdings(holdings)

    def test_arguments_of_types_that_are_none(self):
        peer = self.talking_peer()
        with_descriptor = request_body(9999, b"", [GLib.Variant("h", 0)])
        self.assertAnswersError(
            peer, message("PerformPrivilegedOperation", with_descriptor, descriptors=1),
            INVALID_ARGS, [0])
        for value in (GLib.Variant("o", "/"), GLib.Variant("g", "s"), GLib.Variant("(ii)", (1, 2)),
                      GLib.Variant("a{ss}", {"a": "b"}), GLib.Variant("a{is}", {1: "b"}),
                      GLib.Variant("a(ii)", [(1, 2)]), GLib.Variant("ao", ["/"]),
                      GLib.Variant("(sxa{sv}i)", ("d", 1, {}, 2)),
                      GLib.Variant("a{sv}", {"key": GLib.Variant("o", "/")})):
            with self.subTest(value=str(value)):
                body = request_body(9999, b"", [value])
                self.assertAnswersError(peer, message("PerformPrivilegedOperation", body),
                                        INVALID_ARGS)
        self.assertNotIn("9999", "\n".join(self.log.after(0)))

    def test_more_short_values_than_a_list_may_hold(self):
        peer = self.talking_peer()
        for count, is_taken in ((16384, True), (16385, False)):
            body = request_body(NOP, bytes(32), ["short"] * count)
            peer.send(message("PerformPrivilegedOperation", body))
            answer = peer.receive()
            if is_taken:
                self.assertEqual(answer.get_body().unpack()[0][0][1], -60002)
            else:
                self.assertEqual(answer.get_error_name(), LIMITS_EXCEEDED)

    def test_a_key_that_occurs_twice(self):
        peer = self.talking_peer()
        entry = GLib.Variant.new_dict_entry(GLib.Variant("s", "key"),
                                            GLib.Variant("v", GLib.Variant("s", "value")))
        for count, error in ((1, None), (2, INVALID_ARGS)):
            twice = GLib.Variant.new_array(GLib.VariantType("{sv}"), [entry] * count)
            peer.send(message("PerformPrivilegedOperation",
                              request_body(NOP, bytes(32), [MARKER, twice])))
            self.assertEqual(peer.receive().get_error_name(), error)

    @staticmethod
    def nested(depth, wrap):
        value = GLib.Variant("s", "x")
        for _ in range(depth):
            value = wrap(value)
        return value

    def test_deep_nesting(self):
        wraps = {
            "variants": lambda value: GLib.Variant("v", value),
            "arrays of variants": lambda value: GLib.Variant("av", [value]),
            "dictionaries": lambda value: GLib.Variant("a{sv}", {"key": value}),
            "errors": lambda value: GLib.Variant("(sxa{sv})", ("d", 1, {"key": value})),
            "arrays of arrays": lambda value: GLib.Variant.new_array(value.get_type(), [value]),
        }
        for name, wrap in wraps.items():
            for depth in (10, 31, 33, 40, 60):
                with self.subTest(name=name, depth=depth):
                    if name == "arrays of arrays" and depth > 31:
                        continue  # no signature has more
                    try:
                        content = message("PerformPrivilegedOperation",
                                          request_body(NOP, bytes(32), [self.nested(depth, wrap)]))
                    except GLib.Error:
                        continue  # GDBus does not send it, and so nobody who uses it does
                    peer = self.talking_peer()
                    peer.send(content)
                    answer = None
                    with contextlib.suppress(EOFError, ConnectionResetError):
                        answer = peer.receive()
                    if depth <= 10:
                        self.assertEqual(answer.get_body().unpack()[0][0][1], -60002)
                    elif answer is not None and depth > 32:
                        self.assertEqual(answer.get_error_name(), INVALID_ARGS)
        self.assertInnocentAreServed()

    def test_nesting_that_only_the_raw_bytes_have(self):
        """Signatures of brackets without end, written by hand."""
        whole = message("PerformPrivilegedOperation",
                        request_body(NOP, bytes(32), [GLib.Variant("(sxa{sv})", ("d", 1, {}))]))
        signature = b"\x09(sxa{sv})\0"
        self.assertIn(signature, whole)
        for other in (b"\x09((((((((s\0", b"\x09aaaaaaaaa\0", b"\x09)))))))))\0", b"\x09{{{{{{{{{\0",
                      b"\x09a{a{a{a{a\0", b"\xff(sxa{sv})\0", b"\x00(sxa{sv})\0", b"\x09(sxa{sv})x",
                      b"\x09sssssssss\0", b"\x09vvvvvvvvv\0"):
            peer = self.talking_peer()
            peer.send(whole.replace(signature, other))
            peer.socket.shutdown(socket.SHUT_WR)
            self.assertTrue(peer.is_dropped())
        self.assertInnocentAreServed()

    def test_messages_that_are_no_calls(self):
        peer = self.talking_peer()
        error = Gio.DBusMessage.new_method_error_literal
        call = Gio.DBusMessage.new_method_call(None, HELPER_PATH, HELPER_INTERFACE, "X")
        call.set_serial(5)
        signals = [Gio.DBusMessage.new_signal(HELPER_PATH, HELPER_INTERFACE, "GetVersionString"),
                   Gio.DBusMessage.new_method_reply(call), error(call, "a.b", "text")]
        for serial, other in enumerate(signals, 10):
            other.set_serial(serial)
            peer.send(other.to_blob(Gio.DBusCapabilityFlags.NONE))
        peer.send(message("GetVersionString", None, 20))
        self.assertEqual(peer.receive().get_reply_serial(), 20)
        self.assertInnocentAreServed()

    def test_messages_that_claim_to_be_local(self):
        for member in ("Disconnected", "Connected"):
            peer = self.talking_peer()
            local = Gio.DBusMessage.new_signal("/org/freedesktop/DBus/Local2",
                                               "org.freedesktop.DBus.Loca1", member)
            local.set_serial(3)
            content = local.to_blob(Gio.DBusCapabilityFlags.NONE)
            peer.send(content.replace(b"Local2", b"Local\0").replace(b"Loca1", b"Local"))
            peer.socket.shutdown(socket.SHUT_WR)
            self.assertDropped(peer)

    def test_messages_with_a_bit_or_byte_changed(self):
        noise = random.Random(2)
        whole = message("PerformPrivilegedOperation", request_body(
            NOP, bytes(32), ["text", b"data", GLib.Variant("a{sv}", {"key": GLib.Variant("i", 1)}),
                             GLib.Variant("as", ["a", "b"]),
                             GLib.Variant("(sxa{sv})", ("d", 1, {}))]))
        for _ in range(400):
            changed = bytearray(whole)
            for _ in range(noise.choice((1, 1, 1, 2, 5))):
                changed[noise.randrange(len(changed))] = noise.randrange(256)
            peer = self.talking_peer()
            with contextlib.suppress(OSError):
                peer.send(changed)
                peer.socket.shutdown(socket.SHUT_WR)
            self.assertTrue(peer.is_dropped())
            peer.close()
        self.assertInnocentAreServed()


class ResourcesTest(HostilePeersTest):
    """What one user can make the daemon hold."""

    def setUp(self):
        super().setUp()
        self.memory_before = self.daemon.memory()
        self.holdings_before = self.daemon.holdings()

    def assertMemoryGrewBy(self, less_than):
        """Sanitizers keep what was given back, and their own records of it."""
        if not self.daemon.is_sanitized():
            self.assertLess((self.daemon.memory("VmHWM") - self.memory_before) << 10, less_than)

    def test_a_peer_that_never_reads_its_replies(self):
        calls = b"".join(message("GetVersionString", None, serial) for serial in range(1, 20000))
        for _ in range(10):
            self.assertLess(self.send_as_much_as_fits(self.talking_peer(), calls), 2 * MIB)
        self.assertInnocentAreServed()
        self.assertMemoryGrewBy(8 * MIB)

    def test_connections_up_to_the_limit_of_a_user(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        peers = [self.peer() for _ in range(2000)]
        served = 0
        for peer in peers:
            with contextlib.suppress(AssertionError, OSError):
                peer.handshake()
                served += 1
        self.assertEqual(served, CONNECTION_LIMIT)
        self.assertInnocentAreServed()
        for peer in peers:
            peer.close()
        self.daemon.wait_for_holdings(self.holdings_before)
        self.talking_peer()

    def test_connections_by_endpoint_count_as_others(self):
        client = Client(self.hostile.connect(self.daemon.socket_path))
        served = []
        for _ in range(2 * CONNECTION_LIMIT):
            peer = RawPeer(client.endpoint())
            with contextlib.suppress(AssertionError, OSError):
                served.append(peer.handshake())
        # One of the connections is the one that asked for them.
        self.assertEqual(len(served), CONNECTION_LIMIT - 1)
        self.assertInnocentAreServed()
        self.assertEqual(client.version(), "1.3")

    def test_connections_that_come_and_go(self):
        for number in range(3000):
            peer = self.peer()
            peer.send(HANDSHAKE[:number % len(HANDSHAKE)])
            peer.close()
        self.daemon.wait_for_holdings(self.holdings_before)
        self.assertInnocentAreServed()
        self.assertMemoryGrewBy(16 * MIB)

    def test_messages_on_their_way_up_to_the_limit_of_a_user(self):
        begun = header(MESSAGE_LIMIT - 4096, 24)
        for _ in range(CONNECTION_LIMIT):
            peer = self.talking_peer()
            self.send_as_much_as_fits(peer, begun + bytes(MESSAGE_LIMIT - 8192))
        self.assertInnocentAreServed()
        self.assertMemoryGrewBy(96 * MIB)

    def test_small_messages_on_their_way_on_every_connection(self):
        begun = header(60000, 24)
        for _ in range(CONNECTION_LIMIT):
            self.talking_peer().send(begun + bytes(60000))
        self.assertInnocentAreServed()
        self.assertMemoryGrewBy(32 * MIB)

    def test_messages_that_grow_when_they_are_read(self):
        """Little to send, much to keep."""
        zeros = GLib.Bytes.new(bytes(self.large(15 * MIB)))
        count = 20_000
        many = {"numbers": GLib.Variant.new_from_bytes(GLib.VariantType("an"), zeros, True),
                "booleans": GLib.Variant("ab", [True] * count),
                "empty arrays": GLib.Variant("aai", [[]] * count),
                "empty data": GLib.Variant("aay", [[]] * count),
                "empty dictionaries": GLib.Variant("aa{sv}", [{}] * count),
                "short strings": GLib.Variant("as", [""] * count),
                "variants": GLib.Variant("av", [GLib.Variant("y", 1)] * count),
                "entries": dictionary(**{str(n): GLib.Variant("y", 1) for n in range(count)}),
                "errors": GLib.Variant("a(sxa{sv})", [("", 0, {})] * count)}
        for name, value in many.items():
            with self.subTest(name=name):
                content = message("PerformPrivilegedOperation",
                                  request_body(NOP, bytes(32), [MARKER, dictionary(), value]))
                peers = [self.talking_peer() for _ in range(2)]
                for peer in peers:
                    peer.send(content)
                for peer in peers:
                    self.assertEqual(peer.receive().get_error_name(), LIMITS_EXCEEDED)
        self.assertInnocentAreServed()
        self.assertMemoryGrewBy(96 * MIB)

    def silence_authority(self):
        """From now on nobody answers who is asked for a right."""
        if INSTALLED:
            self.addCleanup(systemctl, "kill", "--signal=CONT", "polkit")
            systemctl("kill", "--signal=STOP", "polkit")
        else:
            self.addCleanup(listening_socket(f"{self.folder}/bus").close)

    def test_lists_of_many_users_that_are_kept_at_once(self):
        """Each request waits for an authority that does not answer, with what it has sent."""
        users = [self.user(uid) for uid in range(70001, 70009)]
        forms = [self.form(user) for user in users]
        self.silence_authority()
        texts = ["9 letters"] * self.large(100_000)
        for user, form in zip(users, forms):
            content = message("PerformPrivilegedOperation", request_body(
                NOP, form, [MARKER, dictionary(), GLib.Variant("as", texts)]))
            for _ in range(40):
                peer = RawPeer(user.connect(self.daemon.socket_path))
                self.addCleanup(peer.close)
                peer.handshake().send(content)
        late = Client(self.user(70010).connect(self.daemon.socket_path))
        self.assertEqual(late.version(), "1.3")
        self.assertEqual(self.innocent[0].version(), "1.3")
        # Half of what the service may have.
        self.assertMemoryGrewBy(448 * MIB)

    def test_many_paths_are_no_attack(self):
        client = self.innocent[0]
        arguments = ["0", "1"] + [f"{self.folder}/none/{number:06}" for number in range(100_000)]
        error = client.perform(DELETE_FILEOBJECTS, self.form(), arguments)
        self.assertEqual(error[:2], (POSIX, 2))
        self.assertMemoryGrewBy(96 * MIB)


def subordinate_users():
    """A user of the machine and the first of its range, as they are when a user is added."""
    with open("/etc/subuid", encoding="ascii") as ranges:
        fields = [line.strip().split(":") for line in ranges]
    return next((SOMEBODY, int(first)) for name, first, count in fields
                if pwd.getpwnam(name).pw_uid == SOMEBODY and count == "65536")


class SubordinateUsersTest(DaemonTest):
    """Users that belong to the account of another one."""

    OWNER, FIRST = subordinate_users() if INSTALLED else (500000, 600000)

    # On the bench the daemon sees a file of the test in place of the system's own; nobody else does.
    START = """
mount -t overlay -o lowerdir="$FOLDER/etc:/etc" none /etc || exit 71
exec 3<&0 </dev/null
LISTEN_FDS=1 LISTEN_PID=$$ exec "$0"
"""

    def start(self, **options):
        if INSTALLED:
            return super().start(**options)
        os.mkdir(f"{self.folder}/etc")
        os.chmod(f"{self.folder}/etc", 0o755)
        with open(f"{self.folder}/etc/subuid", "w", encoding="ascii") as ranges:
            ranges.write(f"{self.OWNER}:{self.FIRST}:65536\n")
        os.environ["FOLDER"] = self.folder
        start = ("unshare", "-m", "/bin/sh", "-c", self.START)
        probe = subprocess.run([*start, "true"], check=False, stdin=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
        if probe.returncode != 0:
            self.skipTest("no file can be put in place")
        return super().start(start=start, **options)

    def test_they_have_its_connections_together(self):
        users = [self.user(uid) for uid in (self.OWNER, self.FIRST, self.FIRST + 65535)]
        peers = []
        for number in range(CONNECTION_LIMIT + 10):
            peer = RawPeer(users[number % len(users)].connect(self.daemon.socket_path))
            self.addCleanup(peer.close)
            with contextlib.suppress(AssertionError, OSError):
                peers.append(peer.handshake())
        self.assertEqual(len(peers), CONNECTION_LIMIT)
        stranger = Client(self.user(self.FIRST + 65536).connect(self.daemon.socket_path))
        self.assertEqual(stranger.version(), "1.3")
        peers[0].close()
        wait_until(lambda: self.is_served(users[-1]), "there is room for another connection")

    def is_served(self, user):
        peer = RawPeer(user.connect(self.daemon.socket_path))
        self.addCleanup(peer.close)
        with contextlib.suppress(AssertionError, OSError):
            return peer.handshake() is not None
        return False

    def test_they_have_its_registrations_together(self):
        one, other = (Client(self.user(uid).connect(self.daemon.socket_path))
                      for uid in (self.OWNER, self.FIRST))
        for pid in range(1000, 1100):
            one.register(pid)
        for pid in range(2000, 2100):
            other.register(pid)
        mark = self.log.mark()
        one.unregister(-1)
        self.assertLogged(mark, (DEBUG, "Finishing work for client -1."),
                          (DEBUG, "128 clients remaining."))


@bench_only("it takes descriptors away from the daemon")
class DescriptorsTest(FolderTest):
    def test_a_daemon_without_descriptors_left_goes_on_when_it_has_some_again(self):
        daemon = self.start(start=("prlimit", "--nofile=64:64", *BenchDaemon.START))
        innocent = Client(daemon.connect())
        innocent.version()
        if daemon.is_sanitized():
            self.skipTest("sanitizers need descriptors to look at an exception")
        self.assertEqual(innocent.version(), "1.3")
        crowd = [daemon.connect() for _ in range(100)]
        for connected in crowd:
            with contextlib.suppress(OSError):
                connected.sendall(HANDSHAKE)
        for _ in range(20):
            self.assertEqual(innocent.version(), "1.3")
            with contextlib.suppress(GLib.Error):
                crowd.append(innocent.endpoint())
            if innocent.connection.is_closed():
                break
        for connected in crowd:
            connected.close()
        self.assertEqual(Client(daemon.connect()).version(), "1.3")
        self.assertIsNone(daemon.process.poll())


if __name__ == "__main__":
    main()
