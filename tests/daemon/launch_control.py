"""A launch control of the test's own, where the daemon runs the system's."""

import os
import subprocess

from support import CLIENT, INSTALLED, DaemonTest, wait_until

LAUNCH_CONTROL = "/bin/launchctl"
ACTIONS = "/usr/share/polkit-1/actions"

# The daemon sees one more program in /usr/bin; nobody else does.
START = """
mount -t overlay -o lowerdir="$FOLDER/bin:/usr/bin" none /usr/bin || exit 71
exec 3<&0 </dev/null
LISTEN_FDS=1 LISTEN_PID=$$ exec "$0"
"""


def reinstall():
    """Puts back what an uninstallation has removed of the service."""
    subprocess.run([CLIENT, "--quiet", "install"], check=True)
    wait_until(lambda: subprocess.run(["pkaction", "--action-id", "com.corvane.vnt.nop"],
                                      check=False, stdout=subprocess.DEVNULL,
                                      stderr=subprocess.DEVNULL).returncode == 0,
               "polkit knows the rights again")


class LaunchControlTest(DaemonTest):
    MODE = 0o755  # None: there is no launch control
    SCRIPT = "exit 0"

    def start(self, **options):
        os.mkdir(f"{self.folder}/bin", 0o755)
        os.chmod(f"{self.folder}/bin", 0o755)
        self.launch_control = f"{self.folder}/bin/launchctl"
        if self.MODE is not None:
            with open(self.launch_control, "w", encoding="utf-8") as script:
                script.write(f"#!/bin/sh\nfolder='{self.folder}'\n{self.SCRIPT}\n")
            os.chmod(self.launch_control, self.MODE)
        if INSTALLED:
            self._replace_installed()
            return super().start(**options)
        probe = subprocess.run(["unshare", "-m", "/bin/sh", "-c", START, "true"],
                               env={**os.environ, "FOLDER": self.folder}, check=False,
                               stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if probe.returncode != 0:
            self.skipTest("no launch control can be put in place")
        os.environ["FOLDER"] = self.folder
        return super().start(start=("unshare", "-m", "/bin/sh", "-c", START), **options)

    def _replace_installed(self):
        self.addCleanup(reinstall)
        if self.MODE is None:
            os.rename(LAUNCH_CONTROL, f"{LAUNCH_CONTROL}.kept")
            self.addCleanup(os.rename, f"{LAUNCH_CONTROL}.kept", LAUNCH_CONTROL)
        else:
            # What is mounted in the machine the service sees as well.
            subprocess.run(["mount", "--bind", self.launch_control, LAUNCH_CONTROL], check=True)
            self.addCleanup(subprocess.run, ["umount", LAUNCH_CONTROL], check=True)

    def rights(self):
        """The registered rights."""
        folder = ACTIONS if INSTALLED else f"{self.folder}/root/rights"
        names = os.listdir(folder) if os.path.isdir(folder) else []
        return [name for name in names if not INSTALLED or name.startswith("com.corvane.vnt.")]
