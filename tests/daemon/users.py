"""Who connects: this process, or one of another user."""

import functools
import pwd
import socket
import subprocess

from common import CALLER, INSTALLED, PATIENCE

# Ordinary users without any right of their own; those of the installed service's machine have
# accounts.
if INSTALLED:
    SOMEBODY, SOMEBODY_ELSE, ANOTHER = (pwd.getpwnam(name).pw_uid
                                        for name in ("alice", "bob", "carol"))
else:
    SOMEBODY, SOMEBODY_ELSE, ANOTHER = 65534, 65533, 65532


class User:
    """A process of another user, which connects sockets and hands them over: the kernel names this
    process and this user as their peer, whoever uses them."""

    SCRIPT = """
import socket, struct, sys
with socket.socket(fileno=0) as requests:
    while path := requests.recv(4096):
        with socket.socket(socket.AF_UNIX) as connected:
            patience = struct.pack("ll", int(sys.argv[1]), 0)
            connected.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, patience)
            connected.connect(path.decode())
            connected.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, bytes(len(patience)))
            socket.send_fds(requests, [b"x"], [connected.fileno()])
"""

    def __init__(self, uid):
        self.uid = uid
        self._requests, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with theirs:
            self.process = subprocess.Popen(["/usr/bin/python3", "-I", "-c", self.SCRIPT,
                                             str(PATIENCE)],
                                            stdin=theirs, user=uid, group=uid, extra_groups=[])

    def connect(self, path):
        self._requests.send(path.encode())
        data, descriptors, _, _ = socket.recv_fds(self._requests, 1, 1)
        assert data, "the other user's process has ended, or nobody took its connection"
        return socket.socket(fileno=descriptors[0])

    def end(self):
        self._requests.close()
        self.process.wait(PATIENCE)


@functools.cache
def _caller():
    return User(pwd.getpwnam(CALLER).pw_uid)


def connect(path):
    """A connected socket of the caller's."""
    if CALLER != "root":
        return _caller().connect(path)
    connected = socket.socket(socket.AF_UNIX)
    connected.connect(path)
    return connected


def as_caller():
    """What subprocess needs to start a program of the caller's."""
    if CALLER == "root":
        return {}
    uid = pwd.getpwnam(CALLER).pw_uid
    return {"user": uid, "group": uid, "extra_groups": []}
