"""Descriptors that peers send: the daemon keeps none of those it must not have, and can close those
it has."""

import contextlib
import itertools
import os
import resource
import select
import socket
import struct

from bus import (DELETE_FILEOBJECTS, HANDSHAKE, HELPER_INTERFACE, HELPER_PATH, POSIX, Client,
                 RawPeer, message, request_body)
from common import bench_only
from hostile_peers_test import HostilePeersTest
from silent_files import SilentFiles
from support import DaemonTest, main, wait_until

CALL, REPLY, ERROR, SIGNAL = 1, 2, 3, 4
PATH, INTERFACE, MEMBER, ERROR_NAME, REPLY_SERIAL, DESTINATION, SENDER, SIGNATURE, UNIX_FDS = \
    range(1, 10)
SIGNATURE_OF_REQUEST = "tayahaav"


def field(code, kind, value, order="<"):
    """A header field without its filling."""
    start = struct.pack("<BB1sB", code, 1, kind.encode(), 0)
    if kind == "u":
        return start + struct.pack(order + "I", value)
    text = value.encode() + b"\0"
    if kind == "g":
        return start + struct.pack("B", len(value)) + text
    return start + struct.pack(order + "I", len(value)) + text


def request_fields(announced, order="<"):
    return {PATH: field(PATH, "o", HELPER_PATH, order),
            INTERFACE: field(INTERFACE, "s", HELPER_INTERFACE, order),
            MEMBER: field(MEMBER, "s", "PerformPrivilegedOperation", order),
            SIGNATURE: field(SIGNATURE, "g", SIGNATURE_OF_REQUEST, order),
            UNIX_FDS: field(UNIX_FDS, "u", announced, order)}


def body_with(endpoints):
    """The body of a request that nobody is asked for anything about."""
    body = request_body(9999, b"", [], endpoints)
    whole = message("PerformPrivilegedOperation", body, descriptors=max(endpoints, 1))
    return whole[len(whole) - struct.unpack_from("<I", whole, 4)[0]:]


def filled(content):
    return content.ljust((len(content) + 7) // 8 * 8, b"\0")


def request(announced, fields=None, kind=CALL, version=1, serial=1, order="l", body=None):
    """A request with descriptors, in one respect as the test says."""
    listed = request_fields(announced) if fields is None else fields
    parts = list(listed.values()) if isinstance(listed, dict) else listed
    content = b"".join([filled(part) for part in parts[:-1]] + parts[-1:])
    rest = body_with(announced) if body is None else body
    start = struct.pack("<cBBBIII", order.encode(), kind, 0, version, len(rest), serial,
                        len(content))
    return filled(start + content) + rest


def with_field(code, *arguments):
    """The fields of a request with two descriptors, one of them another, or none."""
    fields = request_fields(2)
    if arguments:
        fields[code] = field(code, *arguments)
    else:
        del fields[code]
    return fields


def with_more(*more):
    return list(request_fields(2).values()) + list(more)


# What a message may be refused for, each with two descriptors: those that come with it, and by which
# it is announced.
REFUSED = {
    "announces four, brings two": request(4),
    "announces none, brings two": request(2, with_field(UNIX_FDS)),
    "announces none by number": request(0, request_fields(0)),
    "announces one, brings two": request(1),
    "announces more than there can be": request(2, with_field(UNIX_FDS, "u", 0xffffffff)),
    "announces by a text": request(2, with_field(UNIX_FDS, "s", "2")),
    "no kind": request(2, kind=0),
    "a kind that is none": request(2, kind=5),
    "the last kind": request(2, kind=255),
    "a reply": request(2, with_more(field(REPLY_SERIAL, "u", 1)), kind=REPLY),
    "an error": request(2, with_more(field(REPLY_SERIAL, "u", 1), field(ERROR_NAME, "s", "a.b")),
                        kind=ERROR),
    "a signal": request(2, kind=SIGNAL),
    "the serial 0": request(2, serial=0),
    "version 0": request(2, version=0),
    "version 2": request(2, version=2),
    "no byte order": request(2, order="x"),
    "the other byte order": request(2, order="B"),
    "a path that is none": request(2, with_field(PATH, "o", "com/corvane")),
    "a path with an empty name": request(2, with_field(PATH, "o", "//")),
    "another path": request(2, with_field(PATH, "o", "/")),
    "a local path": request(2, with_field(PATH, "o", "/org/freedesktop/DBus/Local")),
    "a path of another type": request(2, with_field(PATH, "s", HELPER_PATH)),
    "no path": request(2, with_field(PATH)),
    "no member": request(2, with_field(MEMBER)),
    "a member that is none": request(2, with_field(MEMBER, "s", "1")),
    "another member": request(2, with_field(MEMBER, "s", "GetVersionString")),
    "no interface": request(2, with_field(INTERFACE)),
    "an interface that is none": request(2, with_field(INTERFACE, "s", "x")),
    "another interface": request(2, with_field(INTERFACE, "s", "a.b")),
    "no signature": request(2, with_field(SIGNATURE)),
    "a signature that is none": request(2, with_field(SIGNATURE, "g", "tayahaa")),
    "another signature": request(2, with_field(SIGNATURE, "g", "ah")),
    "a signature of another type": request(2, with_field(SIGNATURE, "s", SIGNATURE_OF_REQUEST)),
    "a field twice": request(2, with_more(field(MEMBER, "s", "PerformPrivilegedOperation"))),
    "the number twice": request(2, with_more(field(UNIX_FDS, "u", 2))),
    "the field 0": request(2, with_more(field(0, "s", "x"))),
    "a field that nobody knows": request(2, with_more(field(10, "s", "x"))),
    "a destination that is none": request(2, with_more(field(DESTINATION, "s", ".."))),
    "a sender that is none": request(2, with_more(field(SENDER, "s", ".."))),
    "a reply's serial that is 0": request(2, with_more(field(REPLY_SERIAL, "u", 0))),
    "a field that ends too early": request(2, with_more(field(MEMBER, "s", "x")[:5])),
    "a field longer than there is": request(2, with_more(
        struct.pack("<BB1sBI", 7, 1, b"s", 0, 5000))),
    "a text with a zero in it": request(2, with_field(MEMBER, "s", "Perform\0")),
    "a text without its zero": request(2, with_field(MEMBER, "s", "PerformPrivilegedOperation"))
        .replace(b"Operation\0", b"Operationx"),
    "filling that is not zeros": request(2).replace(b"Operation\0\0", b"Operation\0x"),
    "more than a header takes": request(2, with_more(field(10, "s", "x" * 4096))),
    "no fields": struct.pack("<cBBBIII", b"l", 1, 0, 1, 0, 1, 0),
    "garbage": b"l" + b"\xff" * 63,
    "another call": message("GetVersionString"),
    "another call that announces them": message("GetVersionString", descriptors=2),
    "a call for a connection": message("ConnectWithEndpoint", descriptors=2),
}


class RefusedDescriptorsTest(HostilePeersTest):
    """What is not exactly a request with descriptors brings none, and ends its connection."""

    # Many enough to tell from what a connection takes.
    TIMES = 20

    def setUp(self):
        super().setUp()
        self.ours, self.theirs = socket.socketpair()
        self.addCleanup(self.ours.close)
        self.addCleanup(self.theirs.close)
        self.holdings = self.daemon.holdings()

    def assertKeepsNothing(self):
        self.daemon.wait_for_holdings(self.holdings)
        self.assertInnocentAreServed()

    def send(self, content, count):
        """Sends at once what is not accepted; the peer is dropped."""
        peer = self.talking_peer()
        peer.send(content, [self.theirs.fileno()] * count)
        self.assertTrue(peer.is_dropped())
        peer.close()

    def test_a_request_as_it_must_be_is_answered(self):
        """Else nothing would be said by the others."""
        for count in (1, 2, 3, 4):
            peer = self.talking_peer()
            for _ in range(3):
                peer.send(request(count, body=body_with(1)), [self.theirs.fileno()] * count)
                self.assertEqual(peer.receive().get_body().unpack()[0][0][1], 22)
            peer.close()
        self.assertKeepsNothing()

    def test_messages_that_are_refused(self):
        for reason, content in REFUSED.items():
            with self.subTest(reason=reason):
                for _ in range(self.TIMES):
                    self.send(content, 2)
                self.assertKeepsNothing()

    def test_more_descriptors_than_there_may_be(self):
        for count in (5, 253):
            with self.subTest(count=count):
                for _ in range(self.TIMES):
                    self.send(request(count, body=b""), count)
                self.assertKeepsNothing()

    def test_messages_that_are_cut_off(self):
        whole = request(2)
        for size in range(1, len(whole), 5):
            peer = self.talking_peer()
            peer.send(whole[:size], [self.theirs.fileno()] * 2)
            peer.socket.shutdown(socket.SHUT_WR)
            self.assertTrue(peer.is_dropped())
            peer.close()
        self.assertKeepsNothing()

    def test_descriptors_that_come_later_than_their_message_begins(self):
        whole = request(2)
        for size in (1, 15, 16, 17, 100, len(whole) - 1):
            with self.subTest(size=size):
                for _ in range(self.TIMES):
                    peer = self.talking_peer()
                    peer.send(whole[:size])
                    peer.send(whole[size:], [self.theirs.fileno()] * 2)
                    self.assertTrue(peer.is_dropped())
                    peer.close()
                self.assertKeepsNothing()

    def test_descriptors_that_come_in_parts(self):
        whole = request(2)
        for _ in range(self.TIMES):
            peer = self.talking_peer()
            for byte in whole:
                peer.send(bytes([byte]), [self.theirs.fileno()])
            self.assertTrue(peer.is_dropped())
            peer.close()
        self.assertKeepsNothing()

    def test_descriptors_of_refused_bodies(self):
        """The header is as it must be; what is wrong shows when the body is read."""
        for body in (b"", b"\xff" * 40, bytes(7), body_with(2)[:-1], body_with(2) + b"x"):
            with self.subTest(body=body):
                for _ in range(self.TIMES):
                    peer = self.talking_peer()
                    peer.send(request(2, body=body), [self.theirs.fileno()] * 2)
                    peer.socket.shutdown(socket.SHUT_WR)
                    self.assertTrue(peer.is_dropped())
                    peer.close()
                self.assertKeepsNothing()


class SilentFilesTest(HostilePeersTest):
    """A descriptor that cannot be closed, in whatever it comes."""

    def setUp(self):
        super().setUp()
        self.files = SilentFiles(f"{self.folder}/silent")
        self.addCleanup(self.files.end)

    def assertCanEnd(self):
        """Others are served, and the last client takes the daemon with it."""
        self.assertInnocentAreServed()
        first, *others = self.innocent
        first.register(1)
        first.unregister(1)
        self.assertEndsWith(0)
        for client in others:
            wait_until(client.connection.is_closed, "everybody has seen the end")

    def test_with_a_call_that_takes_none(self):
        peer = self.talking_peer()
        self.files.send(peer.socket, message("GetVersionString"))
        self.assertDropped(peer)
        self.assertCanEnd()

    def test_with_a_request(self):
        peer = self.talking_peer()
        self.files.send(peer.socket, request(1))
        self.assertDropped(peer)
        self.assertCanEnd()

    def test_with_a_request_that_is_refused(self):
        peer = self.talking_peer()
        self.files.send(peer.socket, request(2))
        self.assertDropped(peer)
        self.assertCanEnd()

    def test_with_the_handshake(self):
        peer = self.peer()
        self.files.send(peer.socket, HANDSHAKE)
        answers = b""
        while b"AGREE_UNIX_FD\r\n" not in answers:
            answers += peer.socket.recv(4096)
        peer.send(message("GetVersionString"))
        self.assertEqual(peer.receive().get_body().unpack(), ("1.3",))
        self.assertCanEnd()

    def test_with_the_last_part_of_a_message(self):
        peer = self.talking_peer()
        whole = request(1)
        peer.send(whole[:100])
        self.files.send(peer.socket, whole[100:])
        self.assertDropped(peer)
        self.assertCanEnd()

    def test_in_a_socket_that_is_an_endpoint(self):
        ours, theirs = socket.socketpair()
        with ours, theirs:
            self.files.send(ours, b"x")
            peer = self.talking_peer()
            peer.send(request(1), [theirs.fileno()])
            self.assertEqual(peer.receive().get_body().unpack()[0][0][1], 22)
        self.assertCanEnd()

    def test_from_who_serves_feedback(self):
        answers = b"DATA\r\nOK " + b"0" * 32 + b"\r\nAGREE_UNIX_FD\r\n"
        for begins_with_it in (True, False):
            ours, theirs = socket.socketpair()
            with ours, theirs:
                if not begins_with_it:
                    ours.sendall(answers)
                self.files.send(ours, answers)
                error = self.innocent[0].perform(DELETE_FILEOBJECTS, self.form(),
                                                 ["0", "0", f"{self.folder}/none"], theirs)
            self.assertEqual(error[0], POSIX)
        self.assertCanEnd()

    def send_as_many_as_one_may(self):
        for _ in range(4):
            peer = self.talking_peer()
            self.files.send(peer.socket, request(1))
            self.assertTrue(peer.is_dropped())

    def test_nobody_takes_more_than_some(self):
        """Who has sent some may send none any more, and others still may."""
        self.send_as_many_as_one_may()
        ours, theirs = socket.socketpair()
        with ours, theirs:
            peer = self.talking_peer()
            peer.send(request(1), [theirs.fileno()])
            self.assertDropped(peer)
            for client in self.innocent:
                self.assertEqual(client.perform(9999, b"", [], theirs)[1], 22)
            # Without descriptors everything goes on.
            peer = self.talking_peer()
            peer.send(message("GetVersionString"))
            self.assertEqual(peer.receive().get_body().unpack(), ("1.3",))
        self.assertCanEnd()

    def test_who_gets_it_back_is_served_again(self):
        self.send_as_many_as_one_may()
        self.files.end()
        ours, theirs = socket.socketpair()
        with ours, theirs:
            def is_served():
                peer = self.talking_peer()
                peer.send(request(1), [theirs.fileno()])
                with contextlib.suppress(EOFError, ConnectionResetError):
                    return peer.receive().get_body().unpack()[0][0][1] == 22
                return False

            wait_until(is_served, "the children that waited have ended")


@bench_only("it starts daemons of its own and takes their descriptors away")
class NoDescriptorsTest(DaemonTest):
    """The daemon has no descriptors left."""

    def leave(self, count):
        """Lets it have so many more than it has."""
        limits = resource.prlimit(self.daemon.process.pid, resource.RLIMIT_NOFILE)
        taken = {int(name) for name in os.listdir(f"/proc/{self.daemon.process.pid}/fd")}
        free = (number for number in itertools.count() if number not in taken)
        end = next(itertools.islice(free, count, None))
        resource.prlimit(self.daemon.process.pid, resource.RLIMIT_NOFILE, (end, limits[1]))
        return lambda: resource.prlimit(self.daemon.process.pid, resource.RLIMIT_NOFILE, limits)

    def test_with_nobody_connected_it_ends_and_says_so(self):
        for count in (0, 1, 2, 3):
            with self.subTest(count=count):
                daemon = self.daemon = self.start()
                peer = RawPeer(daemon.connect()).handshake()
                idle = daemon.holdings()[1] - 1
                peer.close()
                wait_until(lambda: daemon.holdings()[1] == idle, "nobody is connected")
                self.leave(count)
                with daemon.connect():
                    self.assertEqual(daemon.wait(), 1)
                self.assertIn("no descriptor is left", "\n".join(daemon.log.after(0)))
        self.expects_end = True

    def test_with_somebody_connected_it_goes_on(self):
        client = Client(self.daemon.connect())
        self.assertEqual(client.version(), "1.3")
        give_back = self.leave(0)
        late = RawPeer(self.daemon.connect())
        self.addCleanup(late.close)
        late.send(HANDSHAKE + message("GetVersionString"))
        for _ in range(3):
            self.assertFalse(select.select([late.socket], [], [], 0.2)[0])
            self.assertEqual(client.version(), "1.3")
        give_back()
        self.assertTrue(late.socket.recv(1))
        self.assertEqual(client.version(), "1.3")


if __name__ == "__main__":
    main()
