"""A file system whose one file cannot be closed: it never answers what the kernel asks it then.

    silent_files.py serve FOLDER

mounts it at FOLDER until it is ended, and says `ready` on standard output, or why it cannot be done.
Its end lets go everybody who waits.

    silent_files.py send FILE

opens the file, and sends it with whatever it is asked to send.
"""

import contextlib
import ctypes
import os
import signal
import socket
import stat
import struct
import subprocess
import sys
import unittest

LOOKUP, FORGET, GETATTR, OPEN, FLUSH, INIT, BATCH_FORGET = 1, 2, 3, 14, 25, 26, 42
ROOT = 1
FILE = 2
NAME = "file"

# Should nobody end it.
LONGEST_LIFE = 280


class SilentFiles:
    """The file system at `folder`, and a process that has its file open and sends it; both end with
    the test. No other process may have such a descriptor: it could not start a program any more."""

    def __init__(self, folder):
        os.mkdir(folder)
        self._folder = folder
        self._server = self._start(["serve", folder], stdout=subprocess.PIPE)
        with self._server.stdout as output:
            answer = output.readline().decode().strip()
        self._sender = None
        if answer != "ready":
            self.end()
            raise unittest.SkipTest(f"no file system can be made here: {answer}")
        self._requests, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with theirs:
            self._sender = self._start(["send", f"{folder}/{NAME}"], stdin=theirs)

    @staticmethod
    def _start(arguments, **options):
        return subprocess.Popen(["/usr/bin/python3", "-I", __file__, *arguments], **options)

    def send(self, connected, content):
        """Sends `content`, and a descriptor of the file with it, over a socket of the test's."""
        socket.send_fds(self._requests, [content], [connected.fileno()])
        assert self._requests.recv(1), "the file could not be sent"

    def end(self):
        self._server.kill()
        self._server.wait()
        ctypes.CDLL(None).umount2(self._folder.encode(), 2)
        if self._sender is not None:
            self._sender.kill()
            self._sender.wait()
            self._requests.close()


def send(path):
    file = os.open(path, os.O_RDWR)
    with socket.socket(fileno=0) as requests:
        while True:
            content, descriptors, _, _ = socket.recv_fds(requests, 1 << 16, 1)
            if not content:
                return
            with socket.socket(fileno=descriptors[0]) as connected, contextlib.suppress(OSError):
                socket.send_fds(connected, [content], [file])
            requests.send(b"x")


def device(folder):
    """The kernel's device for file systems; a test may run where nobody has made its node."""
    with contextlib.suppress(FileNotFoundError):
        return os.open("/dev/fuse", os.O_RDWR)
    node = f"{folder}/fuse"
    os.mknod(node, stat.S_IFCHR | 0o600, os.makedev(10, 229))
    try:
        return os.open(node, os.O_RDWR)
    finally:
        os.unlink(node)


def attributes(node, mode):
    return struct.pack("<6Q10I", node, 0, 0, 0, 0, 0, 0, 0, 0, mode, 1, 0, 0, 0, 4096, 0)


WELCOME = struct.pack("<4I2H2I2H8I", 7, 31, 4096, 0, 16, 12, 4096, 1, 1, 0, *[0] * 8)


def found(node, mode):
    return struct.pack("<4Q2I", node, 0, 60, 60, 0, 0) + attributes(node, mode)


def status(node, mode):
    return struct.pack("<Q2I", 60, 0, 0) + attributes(node, mode)


def answer_silently(operation, node, request):
    """What is answered: bytes, a number of an error, or nothing at all."""
    if operation == INIT:
        return WELCOME
    if operation == LOOKUP:
        if request.rstrip(b"\0") != NAME.encode():
            return -2
        return found(FILE, stat.S_IFREG | 0o666)
    if operation == GETATTR:
        return status(node, stat.S_IFDIR | 0o755 if node == ROOT else stat.S_IFREG | 0o666)
    if operation == OPEN:
        return struct.pack("<Q2I", 1, 0, 0)
    if operation in (FLUSH, FORGET, BATCH_FORGET):
        return None
    return -38


def answer(kernel, answer_to):
    while True:
        request = os.read(kernel, 1 << 17)
        size, operation, unique, node = struct.unpack_from("<IIQQ", request)
        result = answer_to(operation, node, request[40:size])
        if result is None:
            continue
        error, content = (result, b"") if isinstance(result, int) else (0, result)
        # A request may have been taken back meanwhile.
        with contextlib.suppress(FileNotFoundError):
            os.write(kernel, struct.pack("<IiQ", 16 + len(content), error, unique) + content)


def serve(folder, answer_to=answer_silently):
    signal.alarm(LONGEST_LIFE)
    libc = ctypes.CDLL(None, use_errno=True)
    try:
        kernel = device(folder)
    except OSError as error:
        print(error, flush=True)
        return
    options = f"fd={kernel},rootmode=40000,user_id=0,group_id=0,allow_other"
    if libc.mount(b"silent", folder.encode(), b"fuse.silent", 0, options.encode()) != 0:
        print(os.strerror(ctypes.get_errno()), flush=True)
        return
    print("ready", flush=True)
    answer(kernel, answer_to)


if __name__ == "__main__":
    {"serve": serve, "send": send}[sys.argv[1]](sys.argv[2])
