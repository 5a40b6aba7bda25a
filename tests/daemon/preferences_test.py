"""Preferences that the daemon sets and removes: whose they are, in which form, and what users may
have put in the way."""

import os
import pathlib
import plistlib
import pwd
import shutil
import socket
import stat

from bus import MODIFY_PREFERENCES, POSIX, Client
from support import SOMEBODY, DaemonTest, main, preferences_root

APPLICATION = "com.corvane.test"
GLOBAL = "NSGlobalDomain"
CURRENT_USER, ANY_USER = "kCFPreferencesCurrentUser", "kCFPreferencesAnyUser"
CURRENT_HOST, ANY_HOST = "kCFPreferencesCurrentHost", "kCFPreferencesAnyHost"
USER = pwd.getpwuid(SOMEBODY)
ROOT = pwd.getpwuid(0)

INVALID = (POSIX, 22)
NOT_WRITTEN = ("com.corvane.error.privileged-operation", 7)


def of_host(application):
    with open("/etc/machine-id", encoding="ascii") as file:
        return f"ByHost/{application}.{file.read().strip()}.plist"


class PreferencesTest(DaemonTest):
    def prepare(self):
        root = preferences_root(self.folder)
        self.shared = f"{root}/etc/xdg/preferences"
        self.home = f"{root}{USER.pw_dir}"
        self.own = f"{self.home}/.config/preferences"
        self.of_root = f"{root}{ROOT.pw_dir}/.config/preferences"
        if root:
            os.makedirs(f"{root}/etc")
            os.makedirs(f"{root}{ROOT.pw_dir}")
            os.makedirs(self.home)
            os.chown(self.home, SOMEBODY, SOMEBODY)
        for folder in (self.shared, self.own, self.of_root):
            self.addCleanup(shutil.rmtree, folder, ignore_errors=True)

    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())

    def set(self, value="value", key="key", application=APPLICATION, user=USER.pw_name,
            host=ANY_HOST):
        """Domain and code of the answer, or None for a success."""
        answer = self.client.perform(MODIFY_PREFERENCES, self.form(),
                                     [key, application, user, host, value])
        return answer and answer[:2]

    @staticmethod
    def read(path):
        with open(path, "rb") as file:
            return plistlib.load(file)

    def give(self, path):
        """Makes `path` the user's, as if the user had made it."""
        os.lchown(path, SOMEBODY, SOMEBODY)

    def make_own_folder(self):
        for folder in (f"{self.home}/.config", self.own):
            os.makedirs(folder, exist_ok=True)
            self.give(folder)


class DomainTest(PreferencesTest):
    def test_each_application_user_and_host_has_its_file(self):
        rows = []
        for user, folder in ((ANY_USER, self.shared), (USER.pw_name, self.own),
                             (CURRENT_USER, self.of_root)):
            for application, name in ((APPLICATION, APPLICATION), (GLOBAL, ".GlobalPreferences")):
                rows.append((application, user, ANY_HOST, f"{folder}/{name}.plist"))
                rows.append((application, user, CURRENT_HOST, f"{folder}/{of_host(name)}"))
        for application, user, host, path in rows:
            with self.subTest(path=path):
                self.assertFalse(os.path.exists(path))
                self.assertIsNone(self.set(path, application=application, user=user, host=host))
        for _, _, _, path in rows:
            with self.subTest(path=path):
                self.assertEqual(self.read(path), {"key": path})

    def test_the_machines_own_name_is_the_current_host(self):
        self.assertIsNone(self.set(host=socket.gethostname()))
        self.assertEqual(self.read(f"{self.own}/{of_host(APPLICATION)}"), {"key": "value"})

    def test_files_belong_to_the_user_whom_they_are_for(self):
        for user, folder, owner, mode in ((USER.pw_name, self.own, SOMEBODY, 0o600),
                                          (ANY_USER, self.shared, 0, 0o644)):
            self.assertIsNone(self.set(user=user))
            status = os.lstat(f"{folder}/{APPLICATION}.plist")
            self.assertEqual((status.st_uid, stat.S_IMODE(status.st_mode)), (owner, mode))
            self.assertEqual(os.lstat(folder).st_uid, owner)

    def test_an_empty_value_removes_the_key(self):
        for key in ("one", "two"):
            self.assertIsNone(self.set(key=key))
        self.assertIsNone(self.set("", key="one"))
        self.assertIsNone(self.set("", key="missing"))
        self.assertEqual(self.read(f"{self.own}/{APPLICATION}.plist"), {"two": "value"})

    def test_a_file_keeps_its_form_its_permissions_and_its_other_keys(self):
        self.make_own_folder()
        path = f"{self.own}/{APPLICATION}.plist"
        for form, beginning in ((plistlib.FMT_XML, b"<?xml"), (plistlib.FMT_BINARY, b"bplist00")):
            kept = {"zebra": [1, {"inner": 1.5}], "data": b"\xff", "big": 2**64 - 1}
            with open(path, "wb") as file:
                plistlib.dump(kept, file, fmt=form, sort_keys=False)
            self.give(path)
            os.chmod(path, 0o640)
            self.assertIsNone(self.set("<integer>7</integer>"))
            self.assertEqual(list(self.read(path).items()), [*kept.items(), ("key", 7)])
            self.assertTrue(pathlib.Path(path).read_bytes().startswith(beginning))
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o640)

    def test_values_of_every_kind(self):
        for text, value in (("<string>ä</string>", "ä"), ("<real>1.5</real>", 1.5),
                            ("<true/>", True), ("<data>/w==</data>", b"\xff"), ("plain", "plain"),
                            ('"quoted"', "quoted"), ("<00ff>", b"\0\xff"),
                            ("(a, {b = c;})", ["a", {"b": "c"}]), ("a = b;", {"a": "b"})):
            with self.subTest(text=text):
                self.assertIsNone(self.set(text))
                self.assertEqual(self.read(f"{self.own}/{APPLICATION}.plist"), {"key": value})

    def test_what_is_written_can_be_changed_afterwards_however_much_it_is(self):
        if self.daemon.is_sanitized():
            self.skipTest("with a sanitizer it takes longer than a change may")
        path = f"{self.own}/{APPLICATION}.plist"
        count = 500_000
        # Each is its own value, in as few bytes as can be.
        entries = "".join(f"{number:05x};" for number in range(count))
        self.assertIsNone(self.set(entries, key="large"))
        self.assertEqual(self.read(path)["large"]["00000"], "00000")
        self.assertEqual(len(self.read(path)["large"]), count)
        self.assertIsNone(self.set(key="small"))
        # With as many again it would be more than can be read.
        self.assertEqual(self.set(entries, key="another"), NOT_WRITTEN)
        self.assertEqual(list(self.read(path)), ["large", "small"])
        self.assertIsNone(self.set("", key="large"))
        self.assertEqual(self.read(path), {"small": "value"})

    def test_what_is_not_valid_changes_nothing(self):
        for value in ("(open", "<plist>", "<integer>many</integer>", "bplist00", "(" * 100_000):
            with self.subTest(value=value[:20]):
                self.assertEqual(self.set(value), INVALID)
        for name in ("key", "application", "user", "host"):
            with self.subTest(empty=name):
                self.assertEqual(self.set(**{name: ""}), INVALID)
        self.assertFalse(os.path.exists(self.own))

    def test_domains_that_make_no_sense_are_told_of_in_the_log(self):
        for names in ({"application": "../escape"}, {"application": "a/b"},
                      {"application": ".hidden"}, {"application": "x" * 256},
                      {"user": "no-such-user"}, {"user": "../root"}, {"user": ANY_HOST},
                      {"host": "another-machine.example"}, {"host": ANY_USER}):
            with self.subTest(names=names):
                mark = self.log.mark()
                self.assertEqual(self.set(**names), NOT_WRITTEN)
                self.log.wait_for(
                    lambda line: line.startswith("Preferences of ") and "not written" in line, mark)
        self.assertFalse(os.path.exists(self.own))


class HostileFolderTest(PreferencesTest):
    """What a user may have put in the way of their own preferences."""

    SECRET = b"<plist><dict><key>key</key><string>secret</string></dict></plist>"

    def setUp(self):
        super().setUp()
        self.make_own_folder()
        self.file = f"{self.own}/{APPLICATION}.plist"
        # In the same file system as what may be linked to it, for root alone.
        self.secret = f"{self.home}/secret"
        pathlib.Path(self.secret).write_bytes(self.SECRET)
        os.chmod(self.secret, 0o600)
        self.addCleanup(os.unlink, self.secret)

    def assertRefused(self):
        self.assertEqual(self.set(), NOT_WRITTEN)
        self.assertSecretKept()

    def assertSecretKept(self):
        self.assertEqual(pathlib.Path(self.secret).read_bytes(), self.SECRET)
        status = os.lstat(self.secret)
        self.assertEqual((status.st_uid, stat.S_IMODE(status.st_mode)), (0, 0o600))

    def test_links_and_special_files_in_the_place_of_the_file_or_the_lock(self):
        obstacles = {"link": lambda path: os.symlink(self.secret, path),
                     "dangling": lambda path: os.symlink(f"{self.home}/nowhere", path),
                     "fifo": os.mkfifo, "folder": os.mkdir,
                     "device": lambda path: os.mknod(path, stat.S_IFCHR | 0o600, os.makedev(1, 5))}
        for path in (self.file, f"{self.own}/.lock"):
            for what, make in obstacles.items():
                with self.subTest(what=what, path=path):
                    if os.path.lexists(path):
                        os.unlink(path)
                    make(path)
                    self.give(path)
                    before = os.lstat(path)
                    self.assertRefused()
                    after = os.lstat(path)
                    self.assertEqual((after.st_ino, after.st_mode), (before.st_ino, before.st_mode))
                    if what == "folder":
                        os.rmdir(path)
        self.assertFalse(os.path.lexists(f"{self.home}/nowhere"))

    def test_a_hard_link_to_a_file_of_root(self):
        os.link(self.secret, self.file)
        self.assertRefused()

    def test_a_link_in_the_place_of_the_new_file_is_replaced(self):
        os.symlink(self.secret, f"{self.own}/.new")
        self.assertIsNone(self.set())
        self.assertSecretKept()
        self.assertTrue(stat.S_ISREG(os.lstat(self.file).st_mode))
        self.assertEqual(self.read(self.file), {"key": "value"})

    def test_a_file_of_somebody_else(self):
        pathlib.Path(self.file).write_bytes(b"<plist><dict/></plist>")
        os.chmod(self.file, 0o666)
        self.assertRefused()
        self.assertEqual(self.read(self.file), {})

    def test_a_link_in_the_place_of_a_folder(self):
        elsewhere = f"{self.folder}/elsewhere"
        os.mkdir(elsewhere)
        shutil.rmtree(self.own)
        os.symlink(elsewhere, self.own)
        self.addCleanup(os.unlink, self.own)
        self.give(self.own)
        self.assertRefused()
        self.assertEqual(os.listdir(elsewhere), [])

    def test_a_folder_that_is_not_the_users(self):
        os.chown(self.own, 0, 0)
        self.assertRefused()
        self.assertEqual(os.listdir(self.own), [])

    def test_a_file_that_is_no_property_list_is_left_as_it_is(self):
        pathlib.Path(self.file).write_bytes(b"<plist><dict>")
        self.give(self.file)
        self.assertRefused()
        self.assertEqual(pathlib.Path(self.file).read_bytes(), b"<plist><dict>")


if __name__ == "__main__":
    main()
