"""What the log sinks of the machine really get: each is a datagram socket of the test's own, put
where the daemon looks for it in a mount namespace of its own."""

import os
import re
import socket
import struct
import subprocess

from bus import Client
from support import (DEBUG, IDENTIFIER, INSTALLED, NOTICE, PATIENCE, FolderTest, bench_only, main,
                     wait_until)

# No journal and no syslog but what follows.
EMPTY_RUN = "mount -t tmpfs tmpfs /run"
EMPTY_DEV = """
new=$(mktemp -d /run/dev.XXXXXX)
mount -t tmpfs tmpfs "$new"
cp -a /dev/null /dev/zero /dev/full /dev/random /dev/urandom "$new"
mount --move "$new" /dev
"""
SERVE = 'exec 3<&0 </dev/null; LISTEN_FDS=1 LISTEN_PID=$$ exec "$0"'


def journal_fields(message):
    """Names and values of a message in the journal's own format."""
    while message:
        line, _, message = message.partition(b"\n")
        name, separator, value = line.partition(b"=")
        if not separator:
            size, = struct.unpack_from("<Q", message)
            value, message = message[8:8 + size], message[9 + size:]
        yield name.decode(), value.decode()


def start_with(*mounts):
    return "unshare", "--mount", "sh", "-c", "\n".join(["set -e", EMPTY_RUN, EMPTY_DEV, *mounts,
                                                        SERVE])


class LogSinkTest(FolderTest):
    """The daemon with a socket bound at `sink_path`, where a log service of the machine would be."""

    def setUp(self):
        super().setUp()
        if subprocess.run([*start_with()[:-1], EMPTY_RUN + EMPTY_DEV], capture_output=True,
                          check=False).returncode:
            self.skipTest("no private mount namespaces here")
        self.sink = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(self.sink.close)
        self.sink.settimeout(PATIENCE)
        path = f"{self.folder}/sink"
        self.sink.bind(path)
        os.chmod(path, 0o666)
        folder = os.path.dirname(self.sink_path)
        self.daemon = self.start(start=start_with(
            f"mkdir -p {folder}", f"touch {self.sink_path}", f"mount --bind {path} {self.sink_path}"))
        self.client = Client(self.daemon.connect())

    def messages(self):
        """Brings about messages of three priorities."""
        self.client.register(100)
        self.client.debug(True)
        self.client.register(200)
        return [
            ("7", "Beginning work for client 100."),
            ("3", "Debug mode changed to enabled. Debug messages are now handled at logging "
             "priority level 5."),
            ("5", "--- This is helper version 1.3, implementing operation set 'vnt'. ---"),
            ("5", "Beginning work for client 200."),
        ]


@bench_only("it puts sockets of its own in the place of the log's")
class JournalTest(LogSinkTest):
    sink_path = "/run/systemd/journal/socket"

    def receive(self):
        """The fields of the next message."""
        fields = list(journal_fields(self.sink.recv(1 << 20)))
        self.assertEqual(len({name for name, _ in fields}), len(fields), fields)
        return dict(fields)

    def test_messages_carry_ident_facility_sender_and_priority(self):
        for priority, text in self.messages():
            self.assertEqual(self.receive(), {
                "MESSAGE": text, "PRIORITY": priority, "SYSLOG_IDENTIFIER": IDENTIFIER,
                "SYSLOG_FACILITY": "3", "SENDER": IDENTIFIER})
        self.assertEqual(self.daemon.log.after(0), [])


@bench_only("it puts sockets of its own in the place of the log's")
class SyslogTest(LogSinkTest):
    sink_path = "/dev/log"

    FACILITY_DAEMON = 3

    def test_messages_carry_ident_facility_and_priority(self):
        for priority, text in self.messages():
            code = self.FACILITY_DAEMON << 3 | int(priority)
            self.assertRegex(
                self.sink.recv(4096).decode().rstrip("\0\n"),
                rf"^<{code}>\w{{3}} [ \d]\d \d\d:\d\d:\d\d {re.escape(IDENTIFIER)}"
                rf"\[{self.daemon.process.pid}\]: {re.escape(text)}$")
        self.assertEqual(self.daemon.log.after(0), [])


class RealJournalTest(FolderTest):
    def test_the_journal_of_the_machine_has_the_messages(self):
        if not os.path.exists("/run/systemd/journal/socket"):
            self.skipTest("this machine has no journal")
        daemon = self.start()
        Client(daemon.connect()).register(daemon.process.pid)
        wanted = f"MESSAGE=Beginning work for client {daemon.process.pid}.\n"
        query = ["journalctl", "--output=export", f"_PID={daemon.process.pid}",
                 f"PRIORITY={NOTICE if INSTALLED else DEBUG}",
                 "SYSLOG_FACILITY=3", f"SYSLOG_IDENTIFIER={IDENTIFIER}", f"SENDER={IDENTIFIER}"]
        wait_until(lambda: wanted in subprocess.run(query, capture_output=True, check=False,
                                                    encoding="utf-8", errors="replace").stdout,
                   "the journal has the message")


if __name__ == "__main__":
    main()
