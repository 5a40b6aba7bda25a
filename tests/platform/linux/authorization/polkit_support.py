"""A polkit of a test's own, with users of its own, and people at terminals."""

import crypt
import os
import pwd
import shutil
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
TESTS = f"{os.environ['CORVANE_SOURCES']}/tests"
sys.path[:0] = [f"{TESTS}/daemon", f"{TESTS}/support"]

from bus import Client  # noqa: E402
from support import PATIENCE, PROGRAMS, DaemonTest, environment_for, wait_until  # noqa: E402
from terminal import Terminal  # noqa: E402

USER, ADMINISTRATOR = 60001, 60002
PASSWORD = "correct horse"

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

    def run_client(self, *arguments, **environment):
        """The client program on a terminal of an ordinary user."""
        program = f"{self.folder}/privilegerequestor-vnt"
        if not os.path.exists(program):
            # Where every user may run it.
            shutil.copy2(f"{PROGRAMS}/privilegerequestor-vnt", program)
        # Where polkit and its agent find the test's own users.
        enter = ["nsenter", f"--target={self.polkit.pid}", "--mount", "--root", "--wd",
                 "setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups"]
        return Terminal([*enter, program, "--socket", f"{self.folder}/helper.socket",
                         "--authorization-socket", f"{self.folder}/authorization.socket",
                         *arguments],
                        {"PATH": os.environ["PATH"], "LANG": "C.UTF-8",
                         **environment_for(self.folder), **environment})

    @staticmethod
    def expect_password_prompt(terminal):
        """The agent shows its prompt, then drops what has been typed and no longer echoes."""
        terminal.expect("Password: ")
        wait_until(lambda: not terminal.echoes(), "what is typed is unseen")
