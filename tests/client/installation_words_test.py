"""What root is told by the commands about the installation, whatever is wrong with it, in the words of
every language. Each fault has a system of its own: what it changes of this one nobody else sees, and
nothing runs there."""

import os
import subprocess
import sys

SOURCES = os.environ["CORVANE_SOURCES"]
sys.path += [f"{SOURCES}/tests/daemon", f"{SOURCES}/tests/client", f"{SOURCES}/tests/system"]
from names import ACTIONS, DAEMON, ISSUER, LABEL, LAUNCH_CONTROL
from support import PATIENCE, PROGRAMS, FolderTest, main
from words_test import LANGUAGES, english_in

UNITS = "/usr/lib/systemd/system"
ACTION = f"{ACTIONS}/com.corvane.vnt.delete-fileobjects.policy"
CONFIGURED = "/etc/systemd/system"

# Its arguments are a folder of the test's, the one of polkit's actions, and those that are to be there
# as they are here.
MAKE_SYSTEM = """
set -e
mount -t tmpfs none "$1"
mkdir "$1/changes" "$1/work" "$1/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$1/changes,workdir=$1/work" "$1/root"
root=$1/root
mkdir -p "$root$2"
for folder in /run /tmp; do mount -t tmpfs none "$root$folder"; done
shift 2
for folder in /proc /dev "$@"; do
  mkdir -p "$root$folder"
  mount --rbind "$folder" "$root$folder"
done
echo ready
read -r end
"""

# What is wrong with an installation, and what brings it about.
FAULTS_OF_FILES = {
    "nothing": ":",
    "the helper is missing": f"rm {DAEMON}",
    "the helper is another program": f"echo other > {DAEMON}",
    "the helper cannot be executed": f"chmod 644 {DAEMON}",
    "the helper belongs to somebody": f"chown nobody {DAEMON}",
    "others can change the helper": f"chmod 777 {DAEMON}",
    "the helper has other permissions": f"chmod 700 {DAEMON}",
    "the helper is a link": f"mv {DAEMON} /usr/libexec/moved; ln -s moved {DAEMON}",
    "the helper is a folder": f"rm {DAEMON}; mkdir {DAEMON}",
    "the issuer is missing": f"rm {ISSUER}",
    "a unit is missing": f"rm {UNITS}/{LABEL}.service",
    "a unit is damaged": f"echo damaged >> {UNITS}/{LABEL}.service",
    "a unit is masked": f"ln -s /dev/null {CONFIGURED}/{LABEL}.service",
    "a socket is masked": f"rm -f {CONFIGURED}/{LABEL}.socket; ln -s /dev/null {CONFIGURED}/{LABEL}.socket",
    "a socket is disabled": f"systemctl disable {LABEL}.socket",
    "launchctl is missing": f"rm {LAUNCH_CONTROL}",
    "launchctl is not safe": f"chmod 777 {LAUNCH_CONTROL}",
    "launchctl is another program": f"printf '#!/bin/sh\\n' > {LAUNCH_CONTROL}; chmod 755 {LAUNCH_CONTROL}",
    "a folder cannot be written to": "mount -t tmpfs -o ro none /usr/libexec",
}
FAULTS_OF_RIGHTS = {
    "an action file is missing": f"rm {ACTION}",
    "an action file is damaged": f"echo '<' > {ACTION}",
    "an action file is for others to write": f"chmod 666 {ACTION}",
    "an action file belongs to somebody": f"chown nobody {ACTION}",
    "an action file is a link": f"mv {ACTION} /usr/share/moved; ln -s ../../moved {ACTION}",
    "an action has another rule": f"sed -i s/auth_admin_keep/yes/ {ACTION}",
    "an action is of another right": f"sed -i s/delete-fileobjects/other/ {ACTION}",
    "no action is there": f"rm {ACTIONS}/com.corvane.*",
}
BELONGS_TO_A_PACKAGE = f"""
mkdir -p /var/lib/dpkg/info
echo {DAEMON} > /var/lib/dpkg/info/theirs.list
printf '\\nPackage: theirs\\nStatus: install ok installed\\nMaintainer: somebody\\nArchitecture: all\\n' \\
    >> /var/lib/dpkg/status
printf 'Version: 1\\nDescription: theirs\\n' >> /var/lib/dpkg/status
"""


class InstallationWordsTest(FolderTest):

    def setUp(self):
        super().setUp()
        for tool in ("mount", "unshare", "nsenter", "chroot", "systemctl"):
            if subprocess.run(["which", tool], stdout=subprocess.DEVNULL, check=False).returncode != 0:
                self.skipTest(f"{tool} is not installed")

    def make_system(self, number):
        """The command that runs others in a system of its own."""
        folder = f"{self.folder}/{number}"
        os.mkdir(folder)
        system = subprocess.Popen(
            ["unshare", "--mount", "--propagation", "private", "/bin/sh", "-c", MAKE_SYSTEM, "sh", folder,
             ACTIONS, SOURCES, PROGRAMS], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(system.communicate)
        if system.stdout.readline() != b"ready\n":
            self.skipTest(f"no system can be made here: {system.stderr.read().decode()}")
        return ["nsenter", f"--target={system.pid}", "--mount", "chroot", f"{folder}/root"]

    def run_in(self, system, *command, language="en"):
        return subprocess.run(
            [*system, *command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, timeout=PATIENCE, check=False, start_new_session=True,
            env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": f"{language}_XX.UTF-8",
                 **{name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}})

    def tell(self, system, *arguments, language):
        result = self.run_in(system, f"{PROGRAMS}/privilegerequestor-vnt", *arguments, language=language)
        return result.returncode, (result.stdout + result.stderr).decode().splitlines()

    def assertToldIn(self, language, lines):
        for line in lines:
            self.assertEqual(english_in(line, language), set(), line)

    def broken_systems(self, faults):
        """A system for each thing that is wrong."""
        for number, (fault, cause) in enumerate(faults.items()):
            system = self.make_system(number)
            self.tell(system, "install", language="en")
            self.run_in(system, "/bin/sh", "-c", cause)
            yield number, system, fault

    def assertFound(self, faults):
        """In one language after the other: a text that is in no table is English in each of them."""
        for number, system, fault in self.broken_systems(faults):
            status, english = self.tell(system, "doctor", language="en")
            language = LANGUAGES[number % len(LANGUAGES)]
            told = self.tell(system, "doctor", language=language)
            self.assertEqual((told[0], len(told[1])), (status, len(english)), fault)
            self.assertToldIn(language, told[1])
            for line, in_english in zip(told[1], english):
                # A few words, as of a version, may be the same.
                self.assertTrue(line != in_english or len(line.split()) < 4, line)

    def test_what_the_doctor_finds_of_files(self):
        self.assertFound(FAULTS_OF_FILES)

    def test_what_the_doctor_finds_of_rights(self):
        self.assertFound(FAULTS_OF_RIGHTS)

    def assertPutRight(self, faults):
        for number, system, fault in self.broken_systems(faults):
            language = LANGUAGES[number % len(LANGUAGES)]
            _, told = self.tell(system, "install", language=language)
            self.assertTrue(told, fault)
            self.assertToldIn(language, told)

    def test_what_is_put_right_of_files(self):
        self.assertPutRight(FAULTS_OF_FILES)

    def test_what_is_put_right_of_rights(self):
        self.assertPutRight(FAULTS_OF_RIGHTS)

    def test_what_is_removed(self):
        for number, language in enumerate(LANGUAGES):
            system = self.make_system(number)
            for line in (("install",), ("uninstall", "--for-package"), ("uninstall",), ("uninstall",),
                         ("install",), ("uninstall", "--force")):
                _, told = self.tell(system, *line, language=language)
                self.assertTrue(told)
                self.assertToldIn(language, told)
            self.tell(system, "install", language=language)
            self.run_in(system, "/bin/sh", "-c", BELONGS_TO_A_PACKAGE)
            for line in (("uninstall",), ("uninstall", "--for-package"), ("install",)):
                _, told = self.tell(system, *line, language=language)
                self.assertTrue(told)
                self.assertToldIn(language, told)


if __name__ == "__main__":
    main()
