"""A polkit of a test's own, with users of its own, and people at terminals."""

import contextlib
import crypt
import os
import pty
import pwd
import select
import shutil
import subprocess
import sys
import termios
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, f"{HERE}/../daemon")

from bus import Client  # noqa: E402
from support import PATIENCE, PROGRAMS, DaemonTest, environment_for, wait_until  # noqa: E402

USER, ADMINISTRATOR = 60001, 60002
PASSWORD = "correct horse"
LOCAL_MODES = 3  # their place in what tcgetattr gives

PASSWD = f"""root:x:0:0::/:/bin/sh
polkitd:x:{{polkitd}}:{{polkitd}}::/:/bin/sh
messagebus:x:100:100::/:/bin/sh
somebody:x:{USER}:{USER}::/:/bin/sh
operator:x:{ADMINISTRATOR}:{ADMINISTRATOR}::/:/bin/sh
nobody:x:65534:65534::/:/bin/sh
"""
RULES = "polkit.addAdminRule(function(action, subject) { return ['unix-user:operator']; });\n"


def write(path, text, permissions=0o644):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, permissions)


def identity(pid):
    """The process and its start time, as polkit wants to know them."""
    with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as stat:
        return str(pid), stat.read().rpartition(") ")[2].split()[19]


class Agent:
    """Answers the dialogs of one process in one manner, as root and without a password."""

    def __init__(self, folder, pid, manner):
        self.process = subprocess.Popen(
            ["/usr/bin/python3", f"{HERE}/polkit/agent.py", f"unix:path={folder}/bus",
             *identity(pid), manner], stdout=subprocess.PIPE)
        assert self.process.stdout.readline() == b"ready\n"

    def end(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()


class Terminal:
    """A program that an ordinary user runs on a terminal, and what a person sees and types there."""

    def __init__(self, command, environment, files_of, uid=USER):
        self.seen = ""
        self.pid, self._terminal = pty.fork()
        if self.pid == 0:
            with contextlib.suppress(Exception):
                os.execvpe("nsenter",
                           ["nsenter", f"--target={files_of}", "--mount", "--root", "--wd",
                            "setpriv", f"--reuid={uid}", f"--regid={uid}", "--clear-groups",
                            *command], environment)
            os._exit(127)

    def _read(self, deadline):
        """What comes next; nothing at the end."""
        if not select.select([self._terminal], [], [], max(0, deadline - time.monotonic()))[0]:
            raise AssertionError(f"nothing more is shown after:\n{self.seen}")
        try:
            return os.read(self._terminal, 4096).decode(errors="replace")
        except OSError:
            return ""

    def wait_for(self, text):
        deadline = time.monotonic() + PATIENCE
        while text not in self.seen:
            shown = self._read(deadline)
            if not shown:
                raise AssertionError(f"'{text}' is not shown in:\n{self.seen}")
            self.seen += shown

    def wait_for_password_prompt(self):
        """The agent shows its prompt, then drops what has been typed and no longer echoes."""
        self.wait_for("Password: ")
        wait_until(lambda: not termios.tcgetattr(self._terminal)[LOCAL_MODES] & termios.ECHO,
                   "what is typed is unseen")

    def type(self, text):
        os.write(self._terminal, text.encode())

    def wait(self):
        """The exit status, with all that was shown in `seen`."""
        deadline = time.monotonic() + PATIENCE
        while shown := self._read(deadline):
            self.seen += shown
        os.close(self._terminal)
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])


class PolkitTest(DaemonTest):
    """A test of a daemon on a machine with polkit, an ordinary user and an administrator."""

    RULES = ""

    def prepare(self):
        for name in ("actions", "rules", "etc"):
            os.mkdir(f"{self.folder}/{name}")
        try:
            polkitd = pwd.getpwnam("polkitd").pw_uid
        except KeyError:
            self.skipTest("polkit is not installed")
        write(f"{self.folder}/etc/passwd", PASSWD.format(polkitd=polkitd))
        write(f"{self.folder}/etc/shadow",
              f"operator:{crypt.crypt(PASSWORD, crypt.METHOD_SHA512)}:19000:0:99999:7:::\n", 0o640)
        write(f"{self.folder}/rules/1.rules", RULES + self.RULES)

    def setUp(self):
        super().setUp()
        self.start_polkit()

    def start_polkit(self, authority="polkit"):
        self.polkit = subprocess.Popen(
            [f"{HERE}/polkit/serve-polkit", self.folder, authority],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(self._end_polkit)
        if self.polkit.stdout.readline() != b"ready\n":
            self.skipTest("no polkit can be started here")

    def _end_polkit(self):
        with self.polkit:
            self.polkit.stdin.close()
            self.polkit.wait(PATIENCE)

    def user(self, uid=USER):
        return super().user(uid)

    def client_of(self, user):
        return Client(user.connect(self.daemon.socket_path))

    def agent(self, pid, manner):
        agent = Agent(self.folder, pid, manner)
        self.addCleanup(agent.end)
        return agent

    def run_client(self, *arguments):
        """The client program on a terminal of an ordinary user."""
        program = f"{self.folder}/privilegerequestor-vnt"
        if not os.path.exists(program):
            # Where every user may run it.
            shutil.copy2(f"{PROGRAMS}/privilegerequestor-vnt", program)
        return Terminal([program, "--socket", f"{self.folder}/helper.socket",
                         "--authorization-socket", f"{self.folder}/authorization.socket",
                         *arguments],
                        {"PATH": os.environ["PATH"], "LANG": "C.UTF-8",
                         **environment_for(self.folder)}, self.polkit.pid)
