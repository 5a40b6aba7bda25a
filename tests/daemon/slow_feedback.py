"""A feedback server that reads only when the test wants it to."""

import socket

from gi.repository import Gio

from bus import DELETE_FILEOBJECTS, RawPeer, message, request_body


class SlowFeedback:
    """Holds up a deletion: it cannot end before its feedback messages are read, because there are
    more of them than fit between it and here."""

    ANSWERS = ((b"AUTH EXTERNAL", b"DATA\r\n"), (b"DATA", b"OK 0123456789abcdef0123456789abcdef\r\n"),
               (b"NEGOTIATE_UNIX_FD", b"AGREE_UNIX_FD\r\n"))
    # How many are too many, and their size: far more than the daemon has the kernel keep.
    COUNT = 2000
    LEAST_SIZE = 256 << 10

    def __init__(self):
        ours, self.endpoint = socket.socketpair()
        self.peer = RawPeer(ours)
        self.bodies = []
        self.size = 0

    def request(self, client, form, arguments, serial=1):
        """Sends the request of a deletion and lets go of the endpoint."""
        body = request_body(DELETE_FILEOBJECTS, form, arguments, 1)
        client.send(message("PerformPrivilegedOperation", body, serial, descriptors=1),
                    [self.endpoint.fileno()])
        self.endpoint.close()

    def handshake(self):
        received = b""
        while b"BEGIN\r\n" not in received:
            # No further than the handshake: not a byte of the messages is taken.
            part = self.peer.socket.recv(4096, socket.MSG_PEEK)
            assert part, "the daemon closed the connection"
            end = part.find(b"BEGIN\r\n")
            part = self.peer.socket.recv(len(part) if end < 0 else end + 7)
            received += part
            for line in part.lstrip(b"\0").split(b"\r\n"):
                for question, answer in self.ANSWERS:
                    if line == question:
                        self.peer.send(answer)

    def wait_for_opening(self):
        """Completes the handshake and takes the first message."""
        self.handshake()
        self.take()

    def take(self):
        """Takes one message."""
        taken = self.peer.receive()
        self.bodies.append(taken.get_body().unpack()[0])
        self.size += len(taken.to_blob(Gio.DBusCapabilityFlags.NONE))
        return self.bodies[-1]

    def drain(self):
        """Takes all messages up to the final one."""
        while "FinalFeedbackMessage" not in self.take():
            pass
