"""The examples with event loops, which find the helper where it is installed."""

import os
import subprocess
import sys
import tempfile
import unittest

PROGRAMS = os.environ["CORVANE_PROGRAMS"]
BUILD = os.path.dirname(PROGRAMS)
SOURCES = os.environ["CORVANE_SOURCES"]
EXAMPLE = f"{SOURCES}/examples/desktop"

# Runs a command where the sockets of an installed helper are, which nobody else sees:
# FOLDER SERVE PROGRAMS COMMAND...
INSTALLED = """
mount -t tmpfs tmpfs /run || exit 78
for socket in helper:com.corvane.system.privilegedhelper-vnt authorization:com.corvane.authorization
do
  mkdir "/run/${socket#*:}"
  ln -s "$0/${socket%:*}.socket" "/run/${socket#*:}/socket"
done
"$1" "$2" "$0" &
server=$!
until [ -e "$0/ready" ] || ! kill -0 $server; do sleep 0.02; done
shift 2
"$@"
status=$?
kill $server
wait $server
exit $status
"""


class DesktopTest(unittest.TestCase):
    def setUp(self):
        if os.geteuid() != 0:
            self.skipTest("the helper runs as root")
        temporary = tempfile.TemporaryDirectory(prefix="desktop.")
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name
        os.chmod(self.folder, 0o755)

    def tool(self, *command):
        run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                             check=False)
        self.assertEqual(run.returncode, 0, run.stdout)

    def built(self, name):
        prefix, build = f"{self.folder}/prefix", f"{self.folder}/build"
        self.tool("cmake", "--install", BUILD, "--prefix", prefix)
        self.tool("cmake", "-S", EXAMPLE, "-B", build, f"-DCMAKE_PREFIX_PATH={prefix}")
        self.tool("cmake", "--build", build, "--target", name)
        return [f"{build}/{name}"]

    def run_example(self, command, *paths):
        served = f"{self.folder}/served"
        os.makedirs(served, exist_ok=True)
        run = subprocess.run(["unshare", "--mount", "sh", "-c", INSTALLED, served,
                              f"{SOURCES}/tools/serve", PROGRAMS, *command, *paths],
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        if run.returncode == 78:
            self.skipTest("no private mount namespaces here")
        return run

    def check(self, command):
        paths = [f"{self.folder}/tree{number}" for number in range(4)]
        for path in paths:
            os.makedirs(f"{path}/inside")
            with open(f"{path}/inside/file", "wb"):
                pass
        run = self.run_example(command, *paths)
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertEqual([path for path in paths if os.path.exists(path)], [])
        parts = [int(line.removesuffix(" %")) for line in run.stdout.splitlines()]
        self.assertEqual(parts, sorted(parts))
        self.assertEqual(parts[-1], 100)
        # Somebody whom nobody can ask for a password here.
        refused = self.run_example(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                    *command], "/nonexistent")
        self.assertEqual(refused.returncode, 1, refused.stderr)
        return refused.stderr

    def test_the_one_for_glib(self):
        self.assertIn("60007", self.check(self.built("delete-with-glib")))

    def test_the_one_for_sd_event(self):
        self.assertIn("60007", self.check(self.built("delete-with-sd-event")))

    def test_the_one_in_python(self):
        self.assertIn("NSOSStatusErrorDomain -60007\n",
                      self.check(["/usr/bin/python3", f"{EXAMPLE}/delete.py"]))


if __name__ == "__main__":
    result = unittest.main(exit=False, verbosity=2).result
    sys.exit(1 if not result.wasSuccessful() else 77 if result.skipped else 0)
