"""The helper as its users meet it, served without being installed: wanderer_test.py PROGRAMS SERVE"""

import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAMS, SERVE = sys.argv.pop(1), sys.argv.pop(1)

# Serves in a copy of /etc, which nobody else sees.
SERVE_IN_COPY = """
set -e
cp -a /etc "$0/etc"
mount --bind "$0/etc" /etc
exec "$1" "$2" "$0" wanderer
"""


class WandererTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if os.geteuid() != 0:
            raise unittest.SkipTest("the helper runs as root")
        temporary = tempfile.TemporaryDirectory(prefix="wanderer.")
        cls.addClassCleanup(temporary.cleanup)
        cls.folder = temporary.name
        os.chmod(cls.folder, 0o755)
        cls.server = subprocess.Popen(["unshare", "--mount", "sh", "-c", SERVE_IN_COPY, cls.folder,
                                       SERVE, PROGRAMS])
        cls.addClassCleanup(cls.end)
        while not os.path.exists(f"{cls.folder}/ready"):
            if cls.server.poll() is not None:
                raise AssertionError("the helper is not served")
            time.sleep(0.02)

    @classmethod
    def end(cls):
        cls.server.send_signal(signal.SIGTERM)
        cls.server.wait()

    def ask(self, *words, status=0, language="en_GB.UTF-8", user=None):
        run = subprocess.run([f"{PROGRAMS}/privilegerequestor-wanderer", "--socket",
                              f"{self.folder}/helper.socket", "--authorization-socket",
                              f"{self.folder}/authorization.socket", *words], capture_output=True,
                             text=True, check=False, user=user, cwd="/",
                             env={**os.environ, "LC_ALL": language})
        self.assertEqual(run.returncode, status, run.stdout + run.stderr)
        return run

    def application(self, zone):
        return subprocess.run([f"{PROGRAMS}/wanderer", zone, f"{self.folder}/helper.socket",
                               f"{self.folder}/authorization.socket"], capture_output=True,
                              text=True, check=False)

    def hosts(self):
        with open(f"{self.folder}/etc/hosts", encoding="utf-8") as file:
            return file.read()

    def test_the_time_zone_is_set(self):
        self.ask("set-time-zone", "Europe/Berlin")
        self.assertEqual(os.readlink(f"{self.folder}/etc/localtime"),
                         "/usr/share/zoneinfo/Europe/Berlin")

    def test_the_application_sets_it_too(self):
        self.assertEqual(self.application("Asia/Tokyo").returncode, 0)
        self.assertEqual(os.readlink(f"{self.folder}/etc/localtime"),
                         "/usr/share/zoneinfo/Asia/Tokyo")
        refused = self.application("Nowhere")
        self.assertEqual((refused.returncode, refused.stderr), (1, "There is no such time zone.\n"))

    def test_a_zone_cannot_lead_elsewhere(self):
        before = os.readlink(f"{self.folder}/etc/localtime")
        for zone in ("../../../etc/passwd", "/etc/passwd", "Nowhere", ""):
            told = self.ask("set-time-zone", "--", zone, status=1).stderr
            self.assertIn("There is no such time zone.", told)
        self.assertEqual(os.readlink(f"{self.folder}/etc/localtime"), before)

    def test_hosts_are_added_and_looked_up(self):
        self.ask("add-hosts", "192.0.2.7 printer.example", "2001:db8::7 lamp.example")
        self.assertIn("\n192.0.2.7 printer.example\n2001:db8::7 lamp.example\n", self.hosts())
        self.assertRegex(self.ask("look-up-hosts", "printer.example").stdout,
                         r"192\.0\.2\.7 +printer\.example")

    def test_one_bad_entry_adds_none(self):
        before = self.hosts()
        told = self.ask("add-hosts", "192.0.2.9 good", "nonsense", status=1, language="de_DE.UTF-8")
        self.assertIn("Das ist kein Eintrag für einen Rechner.", told.stderr)
        self.assertIn("„nonsense“ muss eine Adresse", told.stderr)
        self.assertEqual(self.hosts(), before)

    def test_a_host_that_is_not_known_is_told(self):
        told = self.ask("look-up-hosts", "nobody.example", status=1).stderr
        self.assertIn("add those that are missing: nobody.example.", told)

    def test_somebody_who_is_no_administrator_is_not_authorized(self):
        before = self.hosts()
        self.ask("add-hosts", "192.0.2.8 other.example", status=3, user="nobody")
        self.assertEqual(self.hosts(), before)


if __name__ == "__main__":
    result = unittest.main(exit=False, verbosity=2).result
    sys.exit(1 if not result.wasSuccessful() else 77 if result.skipped else 0)
