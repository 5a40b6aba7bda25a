"""A whole system in a container: its root, made once and kept, and a machine booted from a copy."""

import contextlib
import fcntl
import hashlib
import os
import pty
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, f"{os.path.dirname(os.path.abspath(__file__))}/../support")

from terminal import PATIENCE, Terminal  # noqa: E402

PACKAGES = ["systemd", "systemd-sysv", "libpam-systemd", "dbus", "polkitd", "e2fsprogs", "attr",
            "procps", "libexpat1", "libsodium23", "python3", "python3-gi", "python3-systemd"]

# The administrator is who polkit asks for a password.
PREPARATION = """
for user in alice bob carol trusted; do useradd -m -s /bin/sh "$user"; done
useradd -m -s /bin/sh -G sudo admin
echo admin:admins-password | chpasswd
systemctl mask apt-daily.timer apt-daily-upgrade.timer e2scrub_all.timer getty@.service
echo machine > /etc/hostname
"""


class CannotBoot(Exception):
    """This machine cannot run another; the reason why."""


def check_tools():
    if os.geteuid() != 0:
        raise CannotBoot("only root can boot a machine")
    for tool in ("systemd-nspawn", "debootstrap", "nsenter"):
        if shutil.which(tool) is None:
            raise CannotBoot(f"{tool} is missing")


def codename():
    with open("/etc/os-release", encoding="utf-8") as release:
        found = re.search(r"^VERSION_CODENAME=(\w+)", release.read(), re.MULTILINE)
    if not found or shutil.which("dpkg") is None:
        raise CannotBoot("this system is no Debian, so the package is not for what it could boot")
    return found[1]


def prepared_root():
    """The folder of a root with the system that the package is for, made if it is not there."""
    suite = codename()
    recipe = hashlib.sha256(repr((suite, PACKAGES, PREPARATION)).encode()).hexdigest()[:12]
    cache = os.path.join(os.environ.get("XDG_CACHE_HOME", "/var/cache"), "corvane-system-test")
    os.makedirs(cache, exist_ok=True)
    root = os.path.join(cache, f"{suite}-{recipe}")
    with open(os.path.join(cache, "lock"), "w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if os.path.isdir(root):
            return root
        print(f"Making a root in {cache}. This takes some minutes, once.", flush=True)
        for old in os.listdir(cache):
            if old != "lock":
                shutil.rmtree(os.path.join(cache, old))
        making = tempfile.mkdtemp(prefix="making.", dir=cache)
        result = subprocess.run(
            ["debootstrap", "--variant=minbase", f"--include={','.join(PACKAGES)}", suite, making],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if result.returncode != 0:
            tail = "\n".join(result.stdout.splitlines()[-5:])
            raise CannotBoot(f"debootstrap made no root:\n{tail}")
        subprocess.run(["chroot", making, "/bin/sh", "-e"], input=PREPARATION, text=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        os.chmod(making, 0o755)
        os.rename(making, root)
    return root


class Machine:
    """A running machine. What it changes is gone when it is."""

    def __init__(self):
        root = prepared_root()
        self._folder = tempfile.mkdtemp(prefix="corvane-machine.", dir="/var/tmp")
        self.root = f"{self._folder}/root"
        subprocess.run(["cp", "-a", "--reflink=auto", root, self.root], check=True)
        self.console = b""
        self._pid = 0
        self._leader = None

    def boot(self):
        argv = ["systemd-nspawn", "--quiet", "--boot", "--private-network", "--console=interactive",
                f"--machine=corvane-{os.getpid()}", f"--directory={self.root}"]
        if not os.path.isdir("/run/systemd/system"):
            argv += ["--register=no", "--keep-unit"]
        self._pid, console = pty.fork()
        if self._pid == 0:
            os.execvp(argv[0], argv)
        threading.Thread(target=self._keep_console, args=(console,), daemon=True).start()
        deadline = time.monotonic() + PATIENCE
        while not self._is_up():
            if time.monotonic() > deadline or os.waitpid(self._pid, os.WNOHANG)[0] != 0:
                tail = self.console.decode(errors="replace")[-1000:]
                raise CannotBoot(f"the machine does not come up:\n{tail}")
            time.sleep(0.1)

    def _keep_console(self, console):
        with contextlib.suppress(OSError):
            while data := os.read(console, 65536):
                self.console += data

    def _is_up(self):
        with contextlib.suppress(OSError, IndexError):
            with open(f"/proc/{self._pid}/task/{self._pid}/children", encoding="ascii") as children:
                self._leader = children.read().split()[0]
            with open(f"/proc/{self._leader}/comm", encoding="ascii") as name:
                if name.read() != "systemd\n":
                    return False
            up = self.run("systemctl is-system-running", check=False).stdout.strip()
            return up in ("running", "degraded")
        return False

    def _inside(self, user, command):
        enter = ["nsenter", "-t", self._leader, "-m", "-p", "-u", "-i", "-n", "-r", "-w", "env",
                 "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "TERM=dumb", "LANG=C.UTF-8"]
        if user != "root":
            enter += ["setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups",
                      "--reset-env"]
        return [*enter, "/bin/sh", "-c", command]

    def run(self, command, user="root", check=True):
        """Runs a command of the shell without a terminal."""
        result = subprocess.run(self._inside(user, command), stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                timeout=PATIENCE, check=False, start_new_session=True)
        if check:
            assert result.returncode == 0, \
                f"{command}: status {result.returncode}\n{result.stdout}{result.stderr}"
        return result

    def show(self, command):
        """Runs a command of the shell, which writes where this process does; its exit status."""
        return subprocess.run(self._inside("root", command), stdin=subprocess.DEVNULL, check=False,
                              start_new_session=True).returncode

    def terminal(self, command, user, is_login=True):
        """Runs a command of the shell on a terminal, in a session of the user or outside of any. Of a
        session the last lines may be missing."""
        if not is_login:
            return Terminal(self._inside(user, command))
        login = ["systemd-run", "--quiet", "--pty", "--wait", "--collect", f"--uid={user}",
                 "--property=PAMName=login", "--setenv=TERM=dumb", "sh", "-c", command]
        return Terminal(self._inside("root", shlex.join(login)))

    def wait_until(self, command, what):
        deadline = time.monotonic() + PATIENCE
        while self.run(command, check=False).returncode != 0:
            assert time.monotonic() < deadline, f"waited in vain until {what}"
            time.sleep(0.1)

    def path(self, path):
        """Where a file of the machine is found from here."""
        return self.root + path

    def running_path(self, path):
        """The same for what is there only while it runs, as what is in /run."""
        return f"/proc/{self._leader}/root{path}"

    def end(self):
        if self._pid != 0:
            with contextlib.suppress(OSError):
                os.kill(self._pid, signal.SIGTERM)
                deadline = time.monotonic() + PATIENCE
                while os.waitpid(self._pid, os.WNOHANG)[0] == 0:
                    if time.monotonic() > deadline:
                        os.kill(self._pid, signal.SIGKILL)
                    time.sleep(0.1)
        subprocess.run(["chattr", "-R", "-f", "-i", "-a", self._folder], check=False,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        shutil.rmtree(self._folder)
