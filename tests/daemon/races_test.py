"""An ordinary user swaps names of theirs for as long as the helper works there: nothing else is
touched, whenever that is. Each kind for CORVANE_CAMPAIGN_SECONDS, or for one second; what the rounds
came to is printed."""

import contextlib
import os
import pwd
import shutil
import subprocess
import time

from bus import DELETE_FILEOBJECTS, MODIFY_PREFERENCES, Client
from protection import IMMUTABLE, kernel_flags, protect, unprotect
from support import (PATIENCE, SOMEBODY, SOMEBODY_ELSE, TEST_PROGRAMS, DaemonTest, main,
                     preferences_root)

SECONDS = float(os.environ.get("CORVANE_CAMPAIGN_SECONDS", "1"))
ATTACKER = {"user": SOMEBODY, "group": SOMEBODY, "extra_groups": []}
# What one folder of a tree holds.
FILES = 20
# How many names of a tree are swapped.
PAIRS = 8


def inventory(path):
    """What would tell a change of anything at or below `path`."""
    found = {}
    for folder, folders, files in os.walk(path):
        for name in (".", *folders, *files):
            entry = os.path.join(folder, name)
            status = os.lstat(entry)
            flags = kernel_flags(entry) if os.path.isfile(entry) else None
            found[entry] = (status.st_ino, status.st_mode, status.st_uid, status.st_size,
                            status.st_mtime_ns, status.st_ctime_ns, flags)
    return found


def make_files(folder, owner):
    """A folder of files, one of which is protected."""
    os.mkdir(folder)
    for number in range(FILES):
        path = f"{folder}/{number}"
        os.close(os.open(path, os.O_CREAT | os.O_WRONLY, 0o644))
        os.chown(path, owner, owner)
    protect(f"{folder}/0", IMMUTABLE)
    os.chown(folder, owner, owner)


class RaceTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.addCleanup(unprotect, self.folder)
        self.client = Client(self.daemon.connect())
        # Where every user may run it.
        self.swapper = shutil.copy2(f"{TEST_PROGRAMS}/swapper", self.folder)
        # Of a third user, and of the attacker, but not asked for.
        self.outside = f"{self.folder}/outside"
        os.mkdir(self.outside)
        make_files(f"{self.outside}/of-another", SOMEBODY_ELSE)
        make_files(f"{self.outside}/of-the-attacker", SOMEBODY)
        self.of_another = f"{self.outside}/of-another"
        self.own = f"{self.outside}/of-the-attacker"
        self.swaps = self.rounds = 0

    def path(self, name):
        return f"{self.folder}/attacker/{name}"

    def make_ground(self):
        """An empty folder of the attacker's."""
        os.mkdir(self.path(""))
        os.chown(self.path(""), SOMEBODY, SOMEBODY)

    @contextlib.contextmanager
    def swapped(self, *pairs):
        """While the attacker exchanges the names of each pair. They exist to begin with."""
        names = [name for pair in pairs for name in pair]
        with subprocess.Popen([self.swapper, *names], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, **ATTACKER) as swapper:
            try:
                self.assertEqual(swapper.stdout.read(1), b"x")
                yield
            finally:
                swapper.stdin.close()
                self.swaps += int(swapper.stdout.read())
                swapper.wait(PATIENCE)

    def race(self, one_round):
        before = inventory(self.outside)
        end = time.monotonic() + SECONDS
        while self.rounds == 0 or time.monotonic() < end:
            one_round()
            self.rounds += 1
            self.assertEqual(inventory(self.outside), before)
        print(f"{self._testMethodName}: {self.swaps} swaps in {self.rounds} rounds", flush=True)


class RemovalRaceTest(RaceTest):
    def remove(self, path, recursive=True):
        return self.client.perform(DELETE_FILEOBJECTS, self.form(),
                                   [str(int(recursive)), "0", path])

    def race_for(self, make, pairs, recursive=True, path="tree"):
        """Rounds of a removal of `path`: `make` makes it, and `pairs` are swapped meanwhile."""
        def one_round():
            self.make_ground()
            make()
            with self.swapped(*[tuple(map(self.path, pair)) for pair in pairs]):
                self.remove(self.path(path), recursive)
            unprotect(self.path(""))
            shutil.rmtree(self.path(""))
        self.race(one_round)

    def make_tree(self):
        os.mkdir(self.path("tree"))
        for name in ("before", "folder", "other"):
            make_files(self.path(f"tree/{name}"), SOMEBODY)
        os.mkdir(self.path("tree/folder/inner"))
        for name in ("tree", "tree/folder/inner"):
            os.chown(self.path(name), SOMEBODY, SOMEBODY)

    def link(self, name, target):
        """A relative one: the kernel stops others where something is mounted."""
        path = self.path(name)
        os.symlink(os.path.relpath(target, os.path.dirname(path)), path)

    def race_of_folders(self, target):
        def make():
            self.make_tree()
            for number in range(PAIRS):
                make_files(self.path(f"tree/folder-{number}"), SOMEBODY)
                self.link(f"tree/link-{number}", target)
        self.race_for(make, [(f"tree/folder-{number}", f"tree/link-{number}")
                             for number in range(PAIRS)])

    def test_folders_for_links(self):
        self.race_of_folders(self.of_another)

    def test_folders_for_links_to_another_folder_of_the_attacker(self):
        self.race_of_folders(self.own)

    def test_the_top_for_a_link(self):
        def make():
            self.make_tree()
            self.link("link", self.of_another)
        self.race_for(make, [("tree", "link")])

    def test_a_file_for_a_link(self):
        for recursive in (False, True):
            def make():
                os.close(os.open(self.path("tree"), os.O_CREAT))
                os.chown(self.path("tree"), SOMEBODY, SOMEBODY)
                self.link("link", f"{self.of_another}/0")
            self.rounds = 0
            self.race_for(make, [("tree", "link")], recursive)

    def test_files_for_links_to_a_protected_one(self):
        def make():
            self.make_tree()
            for number in range(PAIRS):
                self.link(f"tree/folder/link-{number}", f"{self.of_another}/0")
        # The first file is protected, which keeps it from being swapped.
        self.race_for(make, [(f"tree/folder/{number + 1}", f"tree/folder/link-{number}")
                             for number in range(PAIRS)])

    def test_a_folder_for_a_file_or_a_fifo(self):
        def make():
            self.make_tree()
            os.mkfifo(self.path("tree/fifo"))
            os.chown(self.path("tree/fifo"), SOMEBODY, SOMEBODY)
        self.race_for(make, [("tree/folder", "tree/fifo"), ("tree/other", "tree/before/1")])

    def test_folders_for_each_other(self):
        self.race_for(self.make_tree, [("tree/folder", "tree/other"),
                                       ("tree/before", "tree/folder/inner")])


class PreferencesRaceTest(RaceTest):
    def prepare(self):
        root = preferences_root(self.folder)
        user = pwd.getpwuid(SOMEBODY)
        self.user = user.pw_name
        self.home = f"{root}{user.pw_dir}"
        if root:
            os.makedirs(self.home)
            os.chown(self.home, SOMEBODY, SOMEBODY)
        self.addCleanup(shutil.rmtree, f"{self.home}/.config", ignore_errors=True)

    def race_for(self, swapped, make_other):
        """Rounds of changes; `swapped`, below the user's .config, meanwhile trades places."""
        def one_round():
            shutil.rmtree(f"{self.home}/.config", ignore_errors=True)
            folder = f"{self.home}/.config/preferences"
            os.makedirs(folder)
            for name in ("com.example.plist", ".lock"):
                os.close(os.open(f"{folder}/{name}", os.O_CREAT))
            make_other(f"{self.home}/.config/other")
            for above, _, files in os.walk(f"{self.home}/.config"):
                for name in (".", *files):
                    os.lchown(os.path.join(above, name), SOMEBODY, SOMEBODY)
            with self.swapped((f"{self.home}/.config/{swapped}", f"{self.home}/.config/other")):
                for number in range(10):
                    self.client.perform(MODIFY_PREFERENCES, self.form(),
                                        ["key", "com.example", self.user, "kCFPreferencesAnyHost",
                                         str(number)])
        self.race(one_round)

    def test_the_folder_for_a_link(self):
        self.race_for("preferences", lambda path: os.symlink(self.own, path))

    def test_the_file_for_a_link(self):
        self.race_for("preferences/com.example.plist",
                      lambda path: os.symlink(f"{self.own}/1", path))

    def test_the_file_for_a_fifo(self):
        self.race_for("preferences/com.example.plist", os.mkfifo)

    def test_the_lock_for_a_link(self):
        self.race_for("preferences/.lock", lambda path: os.symlink(f"{self.own}/lock", path))


if __name__ == "__main__":
    main()
