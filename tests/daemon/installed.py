"""The service as it is installed: the units as shipped, the system's log, key and authority."""

import contextlib
import os
import select
import signal
import socket
import subprocess
import time
import uuid

from systemd import journal

import users
from bus import NOP, Client
from common import IDENTIFIER, PATIENCE, wait_until
from observed import Observed

UNIT = f"{IDENTIFIER}.service"
ISSUER_UNIT = "com.corvane.authorization.service"
HELPER_SOCKET = f"/run/{IDENTIFIER}/socket"
ISSUER_SOCKET = "/run/com.corvane.authorization/socket"
CLIENT = "/usr/bin/privilegerequestor-vnt"


def systemctl(*arguments):
    return subprocess.run(["systemctl", *arguments], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, check=True).stdout


def properties(unit, *names):
    """Properties of a service, in the order of their names here."""
    shown = systemctl("show", unit, f"--property={','.join(names)}").splitlines()
    values = dict(line.split("=", 1) for line in shown)
    return [values[name] for name in names]


AUDIT = uuid.UUID("17e91f8b9aed42e595b17c1fb4f7d4ab")


class Log:
    """The lines of the helper in the system's journal, as it writes them to standard error where
    there is no journal. What is told of requests carries a message id."""

    def __init__(self):
        self.lines = []
        # What is told of requests for administrators.
        self.audit = []
        self._reader = journal.Reader()
        self._reader.add_match(SYSLOG_IDENTIFIER=IDENTIFIER)
        # From an entry of this test's own on: a journal that has none has no end to begin at.
        journal.send("A test begins.", SYSLOG_IDENTIFIER=IDENTIFIER, MESSAGE_ID=str(uuid.uuid4()))
        self._synchronize()
        self._reader.seek_tail()
        self._reader.get_previous()

    @staticmethod
    def _synchronize():
        """What has been logged so far is in the journal when it returns."""
        with socket.socket(socket.AF_UNIX) as service:
            service.connect("/run/systemd/journal/io.systemd.journal")
            service.sendall(b'{"method": "io.systemd.Journal.Synchronize"}\0')
            answer = b""
            while not answer.endswith(b"\0"):
                part = service.recv(4096)
                assert part, "the journal does not answer"
                answer += part
            assert b'"error"' not in answer, answer

    def _take(self):
        self._synchronize()
        # It looks for what has been added, and for new files.
        self._reader.process()
        while entry := self._reader.get_next():
            if "MESSAGE_ID" not in entry:
                self.lines.append(self._line(entry))
            elif entry["MESSAGE_ID"] == AUDIT:
                self.audit.append(entry["MESSAGE"])

    @staticmethod
    def _line(entry):
        text = entry["MESSAGE"]
        if isinstance(text, bytes):
            text = text.decode(errors="replace")
        if entry["_TRANSPORT"] == "stdout":
            return text
        return f"<{entry['PRIORITY']}> {IDENTIFIER}: {text}"

    def forget(self):
        self._take()
        self.lines.clear()

    def mark(self):
        return len(self.after(0))

    def after(self, mark):
        self._take()
        return self.lines[mark:]

    def wait_for(self, predicate, mark):
        deadline = time.monotonic() + PATIENCE
        looked_at = mark
        while True:
            for line in self.after(looked_at):
                if predicate(line):
                    return line
            looked_at = len(self.lines)
            if time.monotonic() > deadline:
                raise AssertionError("no such line in the log:\n" + "\n".join(self.lines[mark:]))
            time.sleep(0.02)

    def join(self):
        """The journal has no end."""


class Process:
    """The main process of a service: not a child of this one, but as if it were."""

    def __init__(self, unit):
        self._unit = unit
        wait_until(lambda: properties(unit, "MainPID") != ["0"], f"{unit} runs")
        self.pid = int(properties(unit, "MainPID")[0])
        self._descriptor = os.pidfd_open(self.pid)
        self._status = None

    def _has_ended(self, patience):
        return bool(select.select([self._descriptor], [], [], patience)[0])

    def poll(self):
        return self.wait() if self._has_ended(0) else None

    def send_signal(self, number):
        signal.pidfd_send_signal(self._descriptor, number)

    def wait(self, patience=PATIENCE):
        """The exit status, negative for a signal. Asked for before it is started again."""
        if self._status is not None:
            return self._status
        if not self._has_ended(patience):
            raise AssertionError("the service does not end")
        wait_until(lambda: int(properties(self._unit, "MainPID")[0]) != self.pid,
                   "systemd knows of the end")
        pid, code, status = properties(self._unit, "ExecMainPID", "ExecMainCode", "ExecMainStatus")
        assert int(pid) == self.pid, "the service has been started again"
        self._status = int(status) if int(code) == os.CLD_EXITED else -int(status)
        return self._status


class Daemon(Observed):
    """The service, started anew by its socket."""

    socket_path = HELPER_SOCKET

    def __init__(self, folder):
        self.stop()
        self.log = Log()
        # What it keeps from its first request on, such as its connection to the authority, it has.
        client = Client(self.connect())
        assert client.perform(NOP, Issuer(folder).form()) is None
        client.close()
        self.process = Process(UNIT)

    @staticmethod
    def stop():
        # Whoever is between two connections starts it again.
        systemctl("stop", UNIT)
        with contextlib.suppress(subprocess.CalledProcessError):
            systemctl("reset-failed", UNIT)

    def show_debug_lines(self):
        """The unit's own level of the log hides them unless debug mode raises them."""
        client = Client(self.connect())
        client.debug(True)
        client.close()
        self.log.forget()

    def connect(self):
        return users.connect(self.socket_path)

    def wait(self):
        return self.process.wait()

    def end(self):
        ran = self.process.poll() is None
        self.stop()
        return ran


class Issuer:
    """Where a process asks for its external form: the service that is installed."""

    socket_path = ISSUER_SOCKET

    def __init__(self, _folder):
        pass

    @property
    def process(self):
        """Its process, once somebody has asked for a form."""
        return Process(ISSUER_UNIT)

    def form(self, user=None):
        with (user.connect if user else users.connect)(self.socket_path) as asking:
            asking.settimeout(PATIENCE)
            form = b""
            while part := asking.recv(64):
                form += part
            return form

    def close(self):
        """It is not the test's to end."""


class Succession:
    """The service, which its socket starts anew for the first client after its end."""

    socket_path = HELPER_SOCKET
    issuer_socket_path = ISSUER_SOCKET

    def __init__(self, _folder):
        Daemon.stop()

    def wait_for_ends(self, _count):
        """Waits until the service has ended: with the last of the clients that there are."""
        wait_until(lambda: properties(UNIT, "ActiveState") == ["inactive"], "the service has ended")

    def end(self):
        assert properties(UNIT, "Result") == ["success"]
        Daemon.stop()
