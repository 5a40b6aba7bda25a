"""A polkit of a test's own, with users of its own, or that of the machine that the service is installed
in; and people at terminals."""

import crypt
import json
import os
import pwd
import shutil
import subprocess
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
TESTS = f"{HERE}/../../.."
sys.path[:0] = [f"{TESTS}/daemon", f"{TESTS}/support"]

from bus import Client  # noqa: E402
from support import (CLIENT, INSTALLED, PATIENCE, DaemonTest, environment_for,  # noqa: E402
                     root_only, wait_until)
from terminal import Terminal  # noqa: E402

SYSTEM_BUS = "/run/dbus/system_bus_socket"

if INSTALLED:
    USER_NAME, ADMINISTRATOR_NAME, PASSWORD = "alice", "admin", "admins-password"
    USER, ADMINISTRATOR = (pwd.getpwnam(name).pw_uid for name in (USER_NAME, ADMINISTRATOR_NAME))
else:
    USER_NAME, ADMINISTRATOR_NAME, PASSWORD = "somebody", "operator", "correct horse"
    USER, ADMINISTRATOR = 60001, 60002

PASSWD = f"""root:x:0:0::/:/bin/sh
polkitd:x:{{polkitd}}:{{polkitd}}::/:/bin/sh
messagebus:x:100:100::/:/bin/sh
{USER_NAME}:x:{USER}:{USER}::/:/bin/sh
{ADMINISTRATOR_NAME}:x:{ADMINISTRATOR}:{ADMINISTRATOR}::/:/bin/sh
nobody:x:65534:65534::/:/bin/sh
"""
RULES = ("polkit.addAdminRule(function(action, subject) "
         f"{{ return ['unix-user:{ADMINISTRATOR_NAME}']; }});\n")


def write(path, text, permissions=0o644):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, permissions)


def identity(pid):
    """The process and its start time, as polkit wants to know them."""
    with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as stat:
        return str(pid), stat.read().rpartition(") ")[2].split()[19]


class BenchPolkit:
    """A polkit of the test's own on a bus of its own."""

    def __init__(self, folder, rules):
        for name in ("actions", "rules", "etc"):
            os.mkdir(f"{folder}/{name}")
        try:
            polkitd = pwd.getpwnam("polkitd").pw_uid
        except KeyError as error:
            raise unittest.SkipTest("polkit is not installed") from error
        write(f"{folder}/etc/passwd", PASSWD.format(polkitd=polkitd))
        write(f"{folder}/etc/shadow", f"{ADMINISTRATOR_NAME}:"
              f"{crypt.crypt(PASSWORD, crypt.METHOD_SHA512)}:19000:0:99999:7:::\n", 0o640)
        write(f"{folder}/rules/1.rules", RULES + rules)
        self.bus = f"{folder}/bus"
        self._folder = folder
        self._server = None

    def start(self):
        """Once the rights are registered."""
        self._server = subprocess.Popen([f"{HERE}/polkit/serve-polkit", self._folder, "polkit"],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        if self._server.stdout.readline() != b"ready\n":
            raise unittest.SkipTest("no polkit can be started here")

    def end(self):
        if self._server:
            with self._server:
                self._server.stdin.close()
                self._server.wait(PATIENCE)

    def enter(self):
        """What runs a program where polkit and its agent find the test's users."""
        return ["nsenter", f"--target={self._server.pid}", "--mount", "--root", "--wd"]


class InstalledPolkit:
    """That of the machine, with rules of the test's own."""

    RULES = "/etc/polkit-1/rules.d/05-test.rules"

    bus = SYSTEM_BUS

    def __init__(self, _folder, rules):
        self._rules = rules
        if rules:
            write(self.RULES, rules)
            self._restart()

    @staticmethod
    def _restart():
        """It has read its rules when it is there again, which may be as often as there are tests."""
        subprocess.run(["systemctl", "reset-failed", "polkit"], check=True)
        subprocess.run(["systemctl", "restart", "polkit"], check=True)

    def start(self):
        """It runs."""

    def end(self):
        if self._rules:
            os.unlink(self.RULES)
            self._restart()

    def enter(self):
        return []


class Agent:
    """Answers the dialogs of one process in one manner, as root and without a password."""

    def __init__(self, bus, pid, manner):
        self.process = subprocess.Popen(
            ["/usr/bin/python3", f"{HERE}/polkit/agent.py", f"unix:path={bus}", *identity(pid),
             manner], stdout=subprocess.PIPE)
        assert self.process.stdout.readline() == b"ready\n"

    def next_event(self):
        return json.loads(self.process.stdout.readline())

    def end(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()


@root_only("its clients are other users'")
class PolkitTest(DaemonTest):
    """A test of a daemon on a machine with polkit, an ordinary user and an administrator."""

    RULES = ""

    def prepare(self):
        self.polkit = (InstalledPolkit if INSTALLED else BenchPolkit)(self.folder, self.RULES)
        self.addCleanup(self.polkit.end)

    def setUp(self):
        super().setUp()
        self.polkit.start()

    def user(self, uid=USER):
        return super().user(uid)

    def client_of(self, user):
        return Client(user.connect(self.daemon.socket_path))

    def agent(self, pid, manner):
        agent = Agent(self.polkit.bus, pid, manner)
        self.addCleanup(agent.end)
        return agent

    def run_client(self, *arguments, script=None, **environment):
        """The client program on a terminal of an ordinary user, started by a shell's script as
        "$@" if there is one."""
        command = self.client_command(*arguments)
        if not INSTALLED:
            # Where every user may run it.
            command[0] = f"{self.folder}/privilegerequestor-vnt"
            if not os.path.exists(command[0]):
                shutil.copy2(CLIENT, command[0])
        if script is not None:
            command = ["sh", "-c", script, "sh", *command]
        return Terminal([*self.polkit.enter(), "setpriv", f"--reuid={USER}", f"--regid={USER}",
                         "--clear-groups", *command],
                        {"PATH": os.environ["PATH"], "LANG": "C.UTF-8",
                         **environment_for(self.folder), **environment})

    @staticmethod
    def expect_password_prompt(terminal):
        """The agent shows its prompt, then drops what has been typed and no longer echoes."""
        terminal.expect("Password: ")
        wait_until(lambda: not terminal.echoes(), "what is typed is unseen")
