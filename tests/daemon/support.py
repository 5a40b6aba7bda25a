"""The daemon as a real process on its real socket, and what its tests need around it."""

import contextlib
import os
import re
import select
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import users
from common import (DEBUG, ERROR, IDENTIFIER, INFORMATIONAL, INSTALLED, NOTICE, PATIENCE, bench_only,
                    installed_only, root_only, wait_until)
from observed import Observed
from users import ANOTHER, SOMEBODY, SOMEBODY_ELSE, User, as_caller

PROGRAMS = os.environ["CORVANE_PROGRAMS"]
TEST_PROGRAMS = os.environ["CORVANE_TEST_PROGRAMS"]
SOURCES = os.environ["CORVANE_SOURCES"]
DAEMON = f"{PROGRAMS}/{IDENTIFIER}"

SANITIZER_REPORT = re.compile(r"(Address|Thread|Leak)Sanitizer|runtime error:")


class Log:
    """The lines that a process writes to a pipe, in their order. A thread takes them as they come,
    so that the pipe never fills; who looks at them takes what is there first."""

    def __init__(self, stream):
        self.lines = []
        # What the daemon logs of requests for administrators, without what such a line begins with.
        self.audit = []
        self._pipe = stream
        os.set_blocking(self._pipe.fileno(), False)
        self._rest = b""
        self._has_ended = False
        self._changed = threading.Condition()
        self._thread = threading.Thread(target=self._collect, daemon=True)
        self._thread.start()

    def _collect(self):
        while not self._has_ended:
            select.select([self._pipe], [], [])
            with self._changed:
                self._take()
        self._pipe.close()

    def _take(self):
        with contextlib.suppress(BlockingIOError):
            while not self._has_ended:
                part = os.read(self._pipe.fileno(), 1 << 16)
                self._has_ended = not part
                *lines, self._rest = (self._rest + part).split(b"\n")
                if self._has_ended and self._rest:
                    lines.append(self._rest)
                for line in (line.decode(errors="replace") for line in lines):
                    if line.startswith(AUDIT):
                        self.audit.append(line.removeprefix(AUDIT))
                    else:
                        self.lines.append(line)
                self._changed.notify_all()

    def mark(self):
        """A position: what is written from now on comes after it, what was written before does
        not."""
        return len(self.after(0))

    def after(self, mark):
        with self._changed:
            self._take()
            return self.lines[mark:]

    def wait_for(self, predicate, mark):
        """The first line after `mark` that `predicate` holds for."""
        deadline = time.monotonic() + PATIENCE
        with self._changed:
            looked_at = mark
            while True:
                for line in self.lines[looked_at:]:
                    if predicate(line):
                        return line
                looked_at = len(self.lines)
                left = deadline - time.monotonic()
                if self._has_ended or left <= 0:
                    raise AssertionError("no such line in the log:\n" + "\n".join(self.lines[mark:]))
                self._changed.wait(left)

    def join(self):
        self._thread.join(PATIENCE)


AUDIT = f"<{NOTICE}> {IDENTIFIER} audit: "


def logged(priority, text):
    """A message of the daemon as the log shows it. Of an installed one the debug lines are seen in
    debug mode only, which raises them."""
    if INSTALLED and priority == DEBUG:
        priority = NOTICE
    return f"<{priority}> {IDENTIFIER}: {text}"


def comparable(lines):
    """`lines` in an order that can be compared: between what is logged and what is written to
    standard error the journal keeps none."""
    return sorted(lines, key=lambda line: line.startswith("<")) if INSTALLED else lines


def environment_for(folder):
    """Keys and rights in a folder of the test's own, decided on without asking anybody unless the
    test serves a bus there. What is installed has its own places."""
    if INSTALLED:
        return {}
    return {"CORVANE_AUTHORIZATION_DIRECTORY": f"{folder}/root",
            "CORVANE_POLKIT_ACTIONS_DIRECTORY": f"{folder}/actions",
            "CORVANE_PREFERENCES_ROOT": preferences_root(folder),
            "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={folder}/bus"}


def preferences_root(folder):
    """What stands for the root of the file system where preferences are kept."""
    return "" if INSTALLED else f"{folder}/preferences"


def listening_socket(path):
    """A socket at `path` that every user may connect to."""
    with contextlib.suppress(FileNotFoundError):
        os.unlink(path)
    listening = socket.socket(socket.AF_UNIX)
    listening.bind(path)
    os.chmod(path, 0o666)
    listening.listen(4096)
    return listening


class BenchDaemon(Observed):
    """The daemon of the build, started as a service manager starts it: with a listening socket."""

    # The process that gets the socket must be the one that LISTEN_PID names.
    START = ("/bin/sh", "-c", 'exec 3<&0 </dev/null; LISTEN_FDS=1 LISTEN_PID=$$ exec "$0"')

    def __init__(self, folder, program=DAEMON, start=START, listening=None):
        self.socket_path = f"{folder}/helper.socket"
        with listening_socket(self.socket_path) if listening is None else listening.dup() as kept:
            self.process = subprocess.Popen([*start, program], stdin=kept, stderr=subprocess.PIPE,
                                            env={**os.environ, **environment_for(folder)})
        self.log = Log(self.process.stderr)

    def show_debug_lines(self):
        """Standard error shows all."""

    def connect(self):
        """A connected socket of the caller's."""
        return users.connect(self.socket_path)

    def wait(self):
        """Waits until the daemon ends by itself; its exit status."""
        status = self.process.wait(PATIENCE)
        self.log.join()
        return status

    def end(self):
        """Ends it from outside, if it still runs; whether it did."""
        ran = self.process.poll() is None
        if ran:
            self.process.terminate()
        self.wait()
        return ran


class BenchIssuer:
    """Where a process asks for its external form."""

    def __init__(self, folder):
        self.socket_path = f"{folder}/authorization.socket"
        with listening_socket(self.socket_path) as listening:
            self.process = subprocess.Popen([f"{PROGRAMS}/com.corvane.authorization"],
                                            stdin=listening,
                                            env={**os.environ, **environment_for(folder)})

    def form(self, user=None):
        """The external form of `user`, or of the caller."""
        with (user.connect if user else users.connect)(self.socket_path) as asking:
            asking.settimeout(PATIENCE)
            return asking.recv(64)

    def close(self):
        self.process.terminate()
        self.process.wait(PATIENCE)


class BenchSuccession:
    """Daemons of the build, each started for the first client after the one before has ended."""

    def __init__(self, folder):
        self.socket_path = f"{folder}/helper.socket"
        self.issuer_socket_path = f"{folder}/authorization.socket"
        self._server = subprocess.Popen([f"{SOURCES}/tools/serve", PROGRAMS, folder],
                                        stderr=subprocess.PIPE)
        self._log = Log(self._server.stderr)
        wait_until(lambda: os.path.exists(f"{folder}/ready"), "the server is ready")

    def wait_for_ends(self, count):
        """Waits until `count` daemons have ended."""
        wait_until(lambda: sum("Terminating privileged helper." in line
                               for line in self._log.after(0)) >= count,
                   f"{count} daemons have ended")

    def end(self):
        self._server.terminate()
        self._server.wait(PATIENCE)
        self._log.join()
        reports = [line for line in self._log.after(0) if SANITIZER_REPORT.search(line)]
        assert not reports, reports


# What the tests use: of the build, or as installed.
if INSTALLED:
    from installed import CLIENT, Daemon, Issuer, Succession
else:
    CLIENT = f"{PROGRAMS}/privilegerequestor-vnt"
    Daemon, Issuer, Succession = BenchDaemon, BenchIssuer, BenchSuccession


def change_rights(folder, command):
    """Registers or removes the rights of the catalogue."""
    subprocess.run([f"{PROGRAMS}/com.corvane.rights-vnt", command], check=True,
                   env={**os.environ, **environment_for(folder)})


def make_application(folder, utility):
    """A bundle below `folder`, whose own utility is the script `utility`; its path."""
    programs = f"{folder}/Test.app/Contents/MacOS"
    os.makedirs(programs)
    with open(f"{programs}/../Info.plist", "w", encoding="utf-8") as info:
        info.write('<plist version="1.0"><dict><key>CFBundleExecutable</key>'
                   "<string>lipo</string></dict></plist>")
    with open(f"{programs}/lipo", "w", encoding="utf-8") as file:
        file.write(utility)
    os.chmod(f"{programs}/lipo", 0o755)
    return f"{folder}/Test.app"


class FolderTest(unittest.TestCase):
    """A test with a private folder."""

    def setUp(self):
        if os.geteuid() != 0:
            self.skipTest("the daemon runs as root only")
        # Other users find what is in it, and see nothing else.
        self.folder = tempfile.mkdtemp(prefix="corvane-test.")
        self.addCleanup(shutil.rmtree, self.folder)
        os.chmod(self.folder, 0o711)
        os.mkdir(f"{self.folder}/root", 0o700)

    # Whether what the daemon tells as debug lines is to be seen. It is always, on the bench.
    DEBUG_LINES = True

    def start(self, program=DAEMON, **options):
        """A daemon that must neither end by itself nor be reported by a sanitizer."""
        if not INSTALLED:
            options["program"] = program
        elif program != DAEMON or options:
            self.skipTest("bench only: it starts a daemon of its own")
        daemon = Daemon(self.folder, **options)
        self.addCleanup(self._end, daemon)
        if self.DEBUG_LINES:
            daemon.show_debug_lines()
        return daemon

    def shown(self, *messages):
        """`messages`, (priority, text) each, as the daemon's log shows them."""
        return [logged(*message) for message in messages
                if not INSTALLED or self.DEBUG_LINES or message[0] < DEBUG]

    def _end(self, daemon):
        daemon.end()
        reports = [line for line in daemon.log.after(0) if SANITIZER_REPORT.search(line)]
        self.assertEqual(reports, [], "\n".join(daemon.log.after(0)))


class DaemonTest(FolderTest):
    """A test of one running daemon, with the rights of the catalogue registered."""

    PROGRAM = DAEMON

    def prepare(self):
        """What must be there before the rights are registered and the daemon is started."""

    def setUp(self):
        super().setUp()
        self.prepare()
        if not INSTALLED:
            change_rights(self.folder, "register")
        self.daemon = self.start(program=self.PROGRAM)
        self.issuer = Issuer(self.folder)
        self.addCleanup(self.issuer.close)
        self.log = self.daemon.log
        self.expects_end = False
        self.addCleanup(self._check_that_it_ran)

    def _check_that_it_ran(self):
        if not self.expects_end:
            self.assertIsNone(self.daemon.process.poll(),
                              "the daemon ended:\n" + "\n".join(self.log.after(0)))

    def user(self, uid=SOMEBODY):
        user = User(uid)
        self.addCleanup(user.end)
        return user

    def form(self, user=None):
        return self.issuer.form(user)

    def client_command(self, *arguments):
        """The client's command line. It is run with `client_options`."""
        if INSTALLED:
            return [CLIENT, *arguments]
        return [CLIENT, "--socket", self.daemon.socket_path,
                "--authorization-socket", self.issuer.socket_path, *arguments]

    def client_options(self):
        return {"env": {**os.environ, **environment_for(self.folder), "LC_ALL": "C"}, **as_caller()}

    def assertLogged(self, mark, *messages):
        """The daemon has logged exactly `messages`, (priority, text) each, since `mark`."""
        expected = self.shown(*messages)
        if expected:
            self.log.wait_for(lambda line: line == expected[-1], mark)
        self.assertEqual(self.log.after(mark), expected)

    def assertLoggedWithAddress(self, mark, *messages):
        """The same for messages in which %p stands for an address."""
        patterns = [re.escape(logged(*message)).replace("%p", "0x[0-9a-f]+") for message in messages]
        self.log.wait_for(re.compile(patterns[-1]).fullmatch, mark)
        self.assertRegex("\n".join(self.log.after(mark)), "^" + "\n".join(patterns) + "$")

    def assertEndsWith(self, status):
        self.expects_end = True
        self.assertEqual(self.daemon.wait(), status)


def main():
    """Runs the tests that the command line names. Exit status 77: they were skipped."""
    # Without warnings: what a test leaves open ends with its process.
    result = unittest.main(exit=False, verbosity=2, warnings="ignore").result
    if not result.wasSuccessful() or result.testsRun == 0:
        sys.exit(1)
    sys.exit(77 if result.skipped else 0)
