"""tools/serve, and the examples of README.md and docs/PROTOCOL.md against what it serves."""

import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

SOURCES = os.environ["CORVANE_SOURCES"]
sys.path.insert(0, f"{SOURCES}/tests/daemon")
from support import PATIENCE, PROGRAMS, main, wait_until

NOBODY = 65534


def command_lines():
    lines = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/cmdline", encoding="utf-8", errors="replace") as file:
                lines.append(file.read().replace("\0", " "))
        except (FileNotFoundError, ProcessLookupError):
            pass
    return lines


class ServedTest(unittest.TestCase):
    """A test of what tools/serve serves."""

    def setUp(self):
        if os.geteuid() != 0 or shutil.which("systemd-socket-activate") is None:
            self.skipTest("the daemon is served by root, with systemd-socket-activate")
        self.folder = tempfile.mkdtemp(prefix="corvane-serve-test.")
        self.addCleanup(shutil.rmtree, self.folder)
        os.chmod(self.folder, 0o755)
        self.server = subprocess.Popen([f"{SOURCES}/tools/serve", PROGRAMS, self.folder],
                                       stderr=subprocess.DEVNULL)
        self.addCleanup(self.end)
        wait_until(lambda: os.path.exists(f"{self.folder}/ready"), "it serves")

    def end(self, number=signal.SIGTERM):
        self.server.send_signal(number)
        self.server.wait(PATIENCE)

    def left(self):
        return [line for line in command_lines() if self.folder in line]

    def client(self, *arguments, program=f"{PROGRAMS}/privilegerequestor-vnt", **options):
        return subprocess.run(
            [program, "--socket", f"{self.folder}/helper.socket",
             "--authorization-socket", f"{self.folder}/authorization.socket", *arguments],
            timeout=PATIENCE, check=False, **options)


class ServeTest(ServedTest):
    def test_serves_one_client_after_another(self):
        for _ in range(3):
            self.assertEqual(self.client("nop").returncode, 0)

    def test_ends_all_that_it_started_before_a_client_came(self):
        self.end()
        wait_until(lambda: not self.left(), "its processes have ended")

    def test_ends_all_that_it_started_for_a_client(self):
        self.client("nop")
        self.end(signal.SIGINT)
        wait_until(lambda: not self.left(), "its processes have ended")
        self.assertEqual(os.listdir(self.folder), ["root"])


class ReadmeExampleTest(ServedTest):
    """A command of the document prints what the document says."""

    def setUp(self):
        super().setUp()
        # Where every user finds it.
        self.program = shutil.copy(f"{PROGRAMS}/privilegerequestor-vnt", f"{self.folder}/client")

    def assertPrints(self, command, user=None):
        """`command` is a line that the document shows after "$ ./run "."""
        with open(f"{SOURCES}/README.md", encoding="utf-8") as file:
            shown = re.search(rf"^\$ \./run {re.escape(command)}\n(.*?)\n(?=\n|```$)", file.read(),
                              re.DOTALL | re.MULTILINE)
        self.assertIsNotNone(shown, command)
        printed = self.client(*shlex.split(command, comments=True), program=self.program, user=user,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True,
                              env={"CORVANE_AUTHORIZATION_DIRECTORY": f"{self.folder}/root"}).stdout
        self.assertEqual(printed.splitlines(), shown[1].splitlines())

    def test_the_doctor_finds_nothing_wrong(self):
        if os.path.exists("/usr/libexec/com.corvane.system.privilegedhelper-vnt"):
            self.skipTest("a helper is installed here, of which the doctor would tell")
        self.assertPrints("doctor")

    def test_an_error_as_json(self):
        self.assertPrints("--json delete /nonexistent")

    def test_a_refusal(self):
        self.assertPrints("delete /etc/hostname                       # as an ordinary user",
                          user=NOBODY)


class ProtocolExampleTest(ServedTest):
    """The document's program prints what the document says."""

    def setUp(self):
        super().setUp()
        with open(f"{SOURCES}/docs/PROTOCOL.md", encoding="utf-8") as file:
            blocks = re.findall(r"^```(\w*)\n(.*?)^```$", file.read(), re.DOTALL | re.MULTILINE)
        program = [text for language, text in blocks if language == "python"]
        self.assertEqual(len(program), 1)
        self.granted, self.refused = [text for language, text in blocks if not language]
        self.program = f"{self.folder}/client.py"
        with open(self.program, "w", encoding="utf-8") as file:
            file.write(program[0])

    def run_example(self, *paths, user=None):
        return subprocess.run(["/usr/bin/python3", self.program, self.folder, *paths], user=user,
                              stdout=subprocess.PIPE, text=True, timeout=PATIENCE,
                              check=True).stdout

    def test_deletes_a_folder_and_a_file(self):
        paths = [f"{self.folder}/tree", f"{self.folder}/file"]
        os.mkdir(paths[0])
        for path in (f"{paths[0]}/inside", paths[1]):
            with open(path, "w", encoding="utf-8"):
                pass
        self.assertEqual(self.run_example(*paths), self.granted)
        self.assertFalse(os.path.exists(paths[0]) or os.path.exists(paths[1]))

    def test_is_refused_to_an_ordinary_user(self):
        self.assertEqual(self.run_example("/nonexistent", user=NOBODY), self.refused)


if __name__ == "__main__":
    main()
