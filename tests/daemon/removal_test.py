"""What a deletion removes, what it answers for the rest, and what it never touches."""

import contextlib
import ctypes
import os
import pathlib
import socket
import stat
import subprocess
import tempfile
import threading

from bus import DELETE_FILEOBJECTS, POSIX, Client
from protection import APPEND_ONLY, IMMUTABLE, kernel_flags, protect, unprotect
from support import INSTALLED, SOMEBODY, DaemonTest, main

OWN = "com.corvane.error.privileged-operation"
WHITEOUT, FLAGS_STAY, SYSTEM_FLAG, RESTRICTED = (OWN, 4), (OWN, 5), (OWN, 6), (OWN, 8)
NOT_PERMITTED, NOT_THERE, BUSY, NO_FOLDER, INVALID, TOO_DEEP, NOT_EMPTY, MOVED_AWAY = (
    (POSIX, code) for code in (1, 2, 16, 20, 22, 63, 66, 70))
# Of a tree that is removed.
MOST_LEVELS = 16384

# The flags that the attribute knows.
UF_IMMUTABLE, SF_IMMUTABLE, SF_APPEND, SF_RESTRICTED = 0x2, 0x20000, 0x40000, 0x80000

CLONE_NEWNS = 0x20000


# Makers of objects, each at the path that it is given.

def file(path, flags=0, attribute=None):
    pathlib.Path(path).write_bytes(b"contents")
    if flags:
        protect(path, flags, attribute)


def folder(path, flags=0, attribute=None):
    os.mkdir(path)
    if flags:
        protect(path, flags, attribute)


def listening(path):
    with socket.socket(socket.AF_UNIX) as made:
        made.bind(path)


def device(path):
    os.mknod(path, stat.S_IFCHR | 0o600, os.makedev(1, 3))


def whiteout(path):
    os.mknod(path, stat.S_IFCHR, os.makedev(0, 0))


def dangling(path):
    os.symlink("nowhere", path)


def full(path):
    folder(path)
    file(f"{path}/file")


def every_kind(path):
    folder(path)
    for number, make in enumerate((file, full, os.mkfifo, listening, device, whiteout, dangling)):
        make(f"{path}/{number}")


def immutable_everywhere(path):
    every_kind(path)
    for name in (f"{path}/1/file", f"{path}/1", f"{path}/0", path):
        protect(name, IMMUTABLE)


def names_of_any_bytes(path):
    folder(path)
    for name in (b"\xff", b"\n", b" ", b"%s%n", b"\x1b[31m", b"\xc3", b"-r", b"x" * 255):
        with open(os.path.join(path.encode(), name), "wb"):
            pass


def chain(path, depth):
    folder(path)
    level = os.open(path, os.O_PATH)
    for _ in range(depth):
        os.mkdir("folder", dir_fd=level)
        below = os.open("folder", os.O_PATH, dir_fd=level)
        os.close(level)
        level = below
    os.close(level)


def deeper_than_any_path(path):
    chain(path, 1000)


def holding(make, *arguments):
    """A folder with one object in it."""
    def make_both(path):
        full(path)
        make(f"{path}/object", *arguments)
    return make_both


# What is at the path, and what its deletion is answered with.
SINGLE = {
    "a file": (file, None),
    "a folder": (folder, None),
    "a fifo": (os.mkfifo, None),
    "a socket": (listening, None),
    "a device": (device, None),
    "a link to nothing": (dangling, None),
    "an immutable file": (lambda path: file(path, IMMUTABLE), None),
    "an append-only file": (lambda path: file(path, APPEND_ONLY), None),
    "a file with both flags": (lambda path: file(path, IMMUTABLE | APPEND_ONLY), None),
    "an immutable folder": (lambda path: folder(path, IMMUTABLE), None),
    "an append-only folder": (lambda path: folder(path, APPEND_ONLY), None),
    "a folder that is not empty": (full, NOT_EMPTY),
    "a whiteout": (whiteout, WHITEOUT),
    "a file with the system's immutable flag":
        (lambda path: file(path, IMMUTABLE, SF_IMMUTABLE), SYSTEM_FLAG),
    "a file with the system's append-only flag":
        (lambda path: file(path, APPEND_ONLY, SF_APPEND), SYSTEM_FLAG),
    "a folder with a system flag": (lambda path: folder(path, IMMUTABLE, SF_IMMUTABLE), SYSTEM_FLAG),
    "a restricted file": (lambda path: file(path, IMMUTABLE, SF_RESTRICTED), RESTRICTED),
    "a restricted file with a user flag":
        (lambda path: file(path, IMMUTABLE, SF_RESTRICTED | UF_IMMUTABLE), FLAGS_STAY),
}
RECURSIVE = {
    "a file": (file, None),
    "an immutable file": (lambda path: file(path, IMMUTABLE), None),
    "every kind of object": (every_kind, None),
    "immutable objects everywhere": (immutable_everywhere, None),
    "names of any bytes": (names_of_any_bytes, None),
    "folders deeper than any path": (deeper_than_any_path, None),
    "an append-only file": (lambda path: file(path, APPEND_ONLY), NOT_PERMITTED),
    "an append-only file in it": (holding(file, APPEND_ONLY), NOT_PERMITTED),
    "an append-only folder in it": (holding(folder, APPEND_ONLY), NOT_PERMITTED),
    "a system flag in it": (holding(file, IMMUTABLE, SF_IMMUTABLE), NOT_PERMITTED),
    "a restricted file in it": (holding(file, IMMUTABLE, SF_RESTRICTED), NOT_PERMITTED),
    "a restricted folder": (lambda path: folder(path, IMMUTABLE, SF_RESTRICTED), RESTRICTED),
}


class RemovalTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.addCleanup(unprotect, self.folder)
        self.client = Client(self.daemon.connect())

    def remove(self, *paths, recursive=False, stop=False):
        """Domain and code of the answer, or None for a success."""
        arguments = [str(int(recursive)), str(int(stop)), *paths]
        answer = self.client.perform(DELETE_FILEOBJECTS, self.form(), arguments)
        return answer and answer[:2]

    def path(self, name):
        return f"{self.folder}/{name}"

    def folder_in_memory(self):
        """For trees of so many objects that a disk would take its time."""
        path = tempfile.mkdtemp(dir="/dev/shm")
        self.addCleanup(subprocess.run, ["rm", "-rf", path], check=True)
        return path

    def check(self, rows, recursive):
        for number, (what, (make, expected)) in enumerate(rows.items()):
            with self.subTest(what=what):
                path = self.path(str(number))
                make(path)
                self.assertEqual(self.remove(path, recursive=recursive), expected)
                self.assertEqual(os.path.lexists(path), expected is not None)


class SingleRemovalTest(RemovalTest):
    def test_objects_of_every_kind_and_protection(self):
        self.check(SINGLE, recursive=False)

    def test_what_is_refused_keeps_its_flags(self):
        for number, flags in enumerate((IMMUTABLE, APPEND_ONLY)):
            path = self.path(str(number))
            file(path, flags, SF_IMMUTABLE if flags == IMMUTABLE else SF_APPEND)
            self.assertEqual(self.remove(path), SYSTEM_FLAG)
            self.assertEqual(kernel_flags(path), flags)

    def test_a_link_is_deleted_and_never_what_it_leads_to(self):
        file(self.path("file"), IMMUTABLE)
        folder(self.path("folder"))
        for name in ("file", "folder"):
            os.symlink(name, self.path("link"))
            self.assertIsNone(self.remove(self.path("link")))
            self.assertFalse(os.path.lexists(self.path("link")))
            self.assertTrue(os.path.exists(self.path(name)))
        self.assertEqual(kernel_flags(self.path("file")), IMMUTABLE)

    def test_paths_that_are_none(self):
        file(self.path("file"))
        folder(self.path("folder"))
        for path, expected in (("", INVALID), (self.path("missing"), NOT_THERE),
                               (self.path("missing/below"), NOT_THERE),
                               (self.path("file/"), NO_FOLDER), (self.path("file/below"), NO_FOLDER),
                               (self.path("folder/.."), NOT_EMPTY), (self.path("."), INVALID),
                               ("/", BUSY)):
            with self.subTest(path=path):
                self.assertEqual(self.remove(path), expected)
        self.assertTrue(os.path.exists(self.path("file")))

    def test_an_object_in_an_immutable_folder_stays(self):
        full(self.path("folder"))
        protect(self.path("folder"), IMMUTABLE)
        self.assertEqual(self.remove(self.path("folder/file")), NOT_PERMITTED)
        self.assertTrue(os.path.exists(self.path("folder/file")))

    def test_objects_of_others_go_whatever_their_permissions(self):
        folder(self.path("others"))
        file(self.path("others/file"))
        for path, mode in ((self.path("others/file"), 0), (self.path("others"), 0o1000)):
            os.chown(path, SOMEBODY, SOMEBODY)
            os.chmod(path, mode)
        self.assertIsNone(self.remove(self.path("others/file"), self.path("others")))
        self.assertFalse(os.path.exists(self.path("others")))

    def test_it_goes_on_after_a_failure_unless_told_to_stop(self):
        file(self.path("last"))
        self.assertEqual(self.remove(self.path("missing"), self.path("last"), stop=True), NOT_THERE)
        self.assertTrue(os.path.exists(self.path("last")))
        full(self.path("full"))
        self.assertEqual(
            self.remove(self.path("missing"), self.path("full"), self.path("last")), NOT_EMPTY)
        self.assertFalse(os.path.exists(self.path("last")))


class RecursiveRemovalTest(RemovalTest):
    def test_trees_of_every_kind_and_protection(self):
        self.check(RECURSIVE, recursive=True)

    def test_a_restricted_object_keeps_all_of_its_tree(self):
        os.makedirs(self.path("tree/inner"))
        for name in ("tree/file", "tree/inner/file"):
            file(self.path(name))
        file(self.path("tree/inner/restricted"), IMMUTABLE, SF_RESTRICTED)
        self.assertEqual(self.remove(self.path("tree"), recursive=True), NOT_PERMITTED)
        for name in ("tree/file", "tree/inner/file", "tree/inner/restricted"):
            self.assertTrue(os.path.exists(self.path(name)), name)

    def test_what_is_not_there_is_a_success(self):
        file(self.path("file"))
        os.symlink("nowhere", self.path("dangling"))
        paths = [self.path(name) for name in ("missing", "missing/below", "file/below", "dangling")]
        self.assertIsNone(self.remove(*paths, recursive=True))
        self.assertTrue(os.path.exists(self.path("file")))
        self.assertTrue(os.path.lexists(self.path("dangling")))

    def test_a_tree_that_is_too_deep_stays_as_it_is(self):
        path = f"{self.folder_in_memory()}/tree"
        # The top is one of its levels.
        chain(path, MOST_LEVELS)
        file(f"{path}/file")
        self.assertEqual(self.remove(path, recursive=True), TOO_DEEP)
        self.assertEqual(sorted(os.listdir(path)), ["file", "folder"])

    def test_links_lead_nowhere(self):
        full(self.path("outside"))
        protect(self.path("outside/file"), IMMUTABLE)
        folder(self.path("tree"))
        os.symlink("../outside", self.path("tree/to-folder"))
        os.symlink("../outside/file", self.path("tree/to-file"))
        os.symlink("outside", self.path("link"))
        self.assertIsNone(self.remove(self.path("tree"), self.path("link/"), recursive=True))
        self.assertFalse(os.path.exists(self.path("tree")))
        self.assertFalse(os.path.lexists(self.path("link")))
        self.assertEqual(kernel_flags(self.path("outside/file")), IMMUTABLE)

    def test_a_large_tree(self):
        for outer in range(20):
            for inner in range(8):
                path = self.path(f"tree/{outer}/{inner}")
                os.makedirs(path)
                for number in range(20):
                    file(f"{path}/{number}")
            protect(path, IMMUTABLE)
        self.assertIsNone(self.remove(self.path("tree"), recursive=True))
        self.assertFalse(os.path.exists(self.path("tree")))


class MountPointTest(RemovalTest):
    def prepare(self):
        # The service sees what is mounted in its machine; on the bench nobody else is to.
        if not INSTALLED:
            libc = ctypes.CDLL(None, use_errno=True)
            if libc.unshare(CLONE_NEWNS) != 0:
                self.skipTest("needs a mount namespace of its own")
            subprocess.run(["mount", "--make-rprivate", "/"], check=True)

    def setUp(self):
        super().setUp()
        os.makedirs(self.path("tree/inner/mounted"))
        os.mkdir(self.path("outside"))
        for name in ("tree/file", "tree/inner/file", "outside/file"):
            file(self.path(name))
        protect(self.path("outside/file"), IMMUTABLE)
        self.mounted = self.path("tree/inner/mounted")

    def mount(self, *arguments, on=None):
        on = on or self.mounted
        subprocess.run(["mount", *arguments, on], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", on], check=True)

    def assertKept(self, *paths):
        for path in paths:
            self.assertEqual(self.remove(path, recursive=True), BUSY)
        for name in ("tree/file", "tree/inner/file", "outside/file"):
            self.assertTrue(os.path.exists(self.path(name)), name)
        self.assertEqual(kernel_flags(self.path("outside/file")), IMMUTABLE)

    def test_a_file_system_in_the_tree_keeps_all_of_it(self):
        self.mount("-t", "tmpfs", "none")
        file(f"{self.mounted}/inside")
        self.assertKept(self.path("tree"), self.mounted)
        self.assertTrue(os.path.exists(f"{self.mounted}/inside"))

    def test_so_does_a_folder_of_the_same_one_bound_there(self):
        self.mount("--bind", self.path("outside"))
        self.assertKept(self.path("tree"), self.mounted)

    def test_so_does_a_file_bound_over_another(self):
        self.mount("--bind", self.path("outside/file"), on=self.path("tree/file"))
        self.assertKept(self.path("tree"))


class MovedFolderTest(RemovalTest):
    def test_what_comes_into_a_folder_after_it_was_moved_out_of_the_tree_stays(self):
        # A deletion may be over before the folder is moved.
        for _ in range(50):
            if self.moved_while_it_is_emptied() == MOVED_AWAY:
                return
        self.fail("no folder was moved in time")

    def moved_while_it_is_emptied(self):
        """The answer to a deletion, in the middle of which another user is given the folder."""
        parent = self.folder_in_memory()
        tree, big, moved = f"{parent}/tree", f"{parent}/tree/big", f"{parent}/moved"
        os.makedirs(big)
        for number in range(20_000):
            os.close(os.open(f"{big}/{number}", os.O_CREAT | os.O_WRONLY))
        answers = []
        deleting = threading.Thread(
            target=lambda: answers.append(self.remove(tree, recursive=True)))
        changed = os.stat(big).st_mtime_ns
        deleting.start()
        with contextlib.suppress(FileNotFoundError):
            while os.stat(big).st_mtime_ns == changed:
                pass
            os.rename(big, moved)
            later = {f"later {number}" for number in range(2000)}
            for name in later:
                os.close(os.open(f"{moved}/{name}", os.O_CREAT | os.O_WRONLY))
            deleting.join()
            self.assertEqual(later - {*os.listdir(moved)}, set())
        deleting.join()
        return answers[0]


if __name__ == "__main__":
    main()
