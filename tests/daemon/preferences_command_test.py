"""The client's command about preferences, from its command line to the file and back."""

import datetime
import os
import plistlib
import pwd
import shutil
import subprocess

from preferences_test import APPLICATION, PreferencesTest
from support import PATIENCE, SOMEBODY, as_caller, bench_only, main, preferences_root

OWNER = pwd.getpwuid(as_caller().get("user", os.getuid()))


class PreferencesCommandTest(PreferencesTest):

    def prepare(self):
        super().prepare()
        self.of_caller = f"{preferences_root(self.folder)}{OWNER.pw_dir}/.config/preferences"
        self.addCleanup(shutil.rmtree, self.of_caller, ignore_errors=True)

    def setUp(self):
        super().setUp()
        # The client of the fixture keeps the daemon from ending.
        self.client.register(1)

    def preferences(self, *arguments, status=0, content=None):
        """What the command has written to standard error."""
        result = subprocess.run(
            self.client_command("preferences", arguments[0], "--app", APPLICATION, "--any-host",
                                *arguments[1:]),
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=PATIENCE, check=False,
            input=content, **self.client_options())
        self.assertEqual(result.returncode, status, result.stderr)
        return result.stderr.decode()

    def saved(self, key, folder=None):
        return self.read(f"{folder or self.of_caller}/{APPLICATION}.plist").get(key)

    def test_text_is_text(self):
        for text in ("hello world", "grün", "", "4", "(de, en)", "[a,b]", '"quoted" \\', "yes"):
            with self.subTest(text=text):
                self.preferences("set", "key", text)
                self.assertEqual(self.saved("key"), text)

    def test_the_other_kinds(self):
        for arguments, value in ((("--bool", "yes"), True), (("--bool", "no"), False),
                                 (("--int", "-4"), -4), (("--float", "1.5"), 1.5),
                                 (("--data", "0aff"), b"\x0a\xff"),
                                 (("--date", "2026-11-20T08:00:00Z"),
                                  datetime.datetime(2026, 11, 20, 8))):
            with self.subTest(arguments=arguments):
                self.preferences("set", "key", *arguments)
                self.assertEqual(self.saved("key"), value)

    def test_a_property_list_from_a_file_or_from_standard_input(self):
        value = {"list": ["a", 1, True], "data": b"\0"}
        for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):
            with open(f"{self.folder}/value", "wb") as file:
                plistlib.dump(value, file, fmt=form)
            os.chmod(f"{self.folder}/value", 0o644)
            self.preferences("set", "key", "--plist", f"{self.folder}/value")
            self.assertEqual(self.saved("key"), value)
        self.preferences("set", "key", "--plist", "-", content=b"(de, en)")
        self.assertEqual(self.saved("key"), ["de", "en"])

    def test_what_is_not_of_the_kind_is_not_sent(self):
        for option, text in (("--bool", "maybe"), ("--int", "four"), ("--float", "1,5"),
                             ("--date", "tomorrow"), ("--data", "0")):
            with self.subTest(option=option):
                mark = self.log.mark()
                self.assertEqual(self.preferences("set", "key", option, text, status=2),
                                 f"'{text}' is no value of the kind that was named.\n")
                self.assertEqual(self.log.after(mark), [])

    def test_one_value_and_no_more(self):
        for arguments in ((), ("text", "--int", "4"), ("--bool", "yes", "--int", "4")):
            with self.subTest(arguments=arguments):
                self.preferences("set", "key", *arguments, status=2)

    def test_a_file_without_a_property_list_is_told(self):
        error = self.preferences("set", "key", "--plist", "/nonexistent", status=1)
        self.assertEqual(error, "Cannot set the preference 'key': No such file or directory\n"
                                "Check the path.\n")
        error = self.preferences("set", "key", "--plist", "-", status=1, content=b"<plist>")
        self.assertRegex(error, r"^Cannot set the preference 'key': There is no property list that "
                                r"could be sent\.\nCheck the file, or name the kind of the value\.\n"
                                r"  because: .+\n$")

    def test_what_can_be_told_beforehand_is_told_and_not_asked(self):
        for domain, why in (
                (("--user", "nobody-of-this-name"), "There is no such user.\nCheck the name.\n"),
                (("--host", "elsewhere.example"), "Preferences of another machine are not kept here.\n"
                 "Change them there; without '--host' it is this machine, with '--any-host' all.\n"),
                (("--app", "a/b"), "This cannot be the identifier of an application.\n"),
                (("--app", ".hidden"), "This cannot be the identifier of an application.\n"),
                (("--app", "a..b"), "This cannot be the identifier of an application.\n"),
                (("--app", b"\xff"), "This cannot be the identifier of an application.\n"),
                (("--app", "a" * 251), "The identifier of the application is too long.\n")):
            for line in (("set", *domain, "key", "value"), ("remove", *domain, "key"),
                         ("get", *domain, "key")):
                with self.subTest(line=line):
                    mark = self.log.mark()
                    verb = "read" if line[0] == "get" else line[0]
                    result = subprocess.run(self.client_command("preferences", *line),
                                            stderr=subprocess.PIPE, timeout=PATIENCE, check=False,
                                            **self.client_options())
                    self.assertEqual(result.returncode, 1)
                    told = result.stderr.decode()
                    self.assertTrue(told.startswith(f"Cannot {verb} the preference 'key': {why}"), told)
                    self.assertEqual(self.log.after(mark), [])

    @bench_only("the advice is about the journal, which the service has")
    def test_what_only_the_helper_knows_is_in_its_log_and_the_advice_leads_there(self):
        os.makedirs(self.of_root, exist_ok=True)
        with open(f"{self.of_root}/{APPLICATION}.plist", "wb") as file:
            file.write(b"<plist>")
        mark = self.log.mark()
        error = self.preferences("set", "--root", "key", "value", status=1)
        self.assertEqual(error, (
            "Cannot set the preference 'key': A preference setting could not be updated "
            "successfully.\nThe operating system was unable to change a preference setting. Please "
            "ensure to authenticate as administrator. The log of the helper has the reason: "
            "journalctl -u com.corvane.system.privilegedhelper-vnt -g 'were not written'\n"))
        self.assertIn("were not written: Line 1: ", "\n".join(self.log.after(mark)))

    def test_it_is_of_the_one_who_asks_if_nobody_is_named(self):
        self.preferences("set", "key", "own")
        self.assertEqual(self.saved("key"), "own")
        self.preferences("remove", "key")
        self.assertIsNone(self.saved("key"))

    def test_another_user_root_or_all(self):
        if OWNER.pw_uid != SOMEBODY:
            self.preferences("set", "--user", pwd.getpwuid(SOMEBODY).pw_name, "key", "another's")
            self.assertEqual(self.saved("key", self.own), "another's")
        self.preferences("set", "--root", "key", "root's")
        self.assertEqual(self.saved("key", self.of_root), "root's")
        self.preferences("set", "--any-user", "key", "everybody's")
        self.assertEqual(self.saved("key", self.shared), "everybody's")
        self.preferences("set", "--root", "--any-user", "key", "whose?", status=2)


if __name__ == "__main__":
    main()
