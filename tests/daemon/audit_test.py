"""What the system's log tells an administrator afterwards: who had what done, on what, and how it
ended."""

import os
import pwd
import re
import threading

from bus import (DELETE_FILEOBJECTS, DELETE_FILES, DISCARD_AUTH, EXECUTE_UTILITY,
                 MODIFY_PREFERENCES, NOP, Client, named)
from log_test import LogSinkTest, journal_fields
from support import (IDENTIFIER, SOMEBODY, DaemonTest, Issuer, change_rights, main,
                     make_application, root_only, wait_until)

MESSAGE_ID = "17e91f8b9aed42e595b17c1fb4f7d4ab"


@root_only("the entries are about this process")
class AuditTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())

    def audit(self, count):
        """The entries there are, once there are `count`."""
        def arrived():
            self.log.mark()
            return len(self.log.audit) >= count
        wait_until(arrived, f"there are {count} entries")
        return self.log.audit

    def assertAudited(self, *endings):
        """There is one entry for each of `endings`, by this process, in their order."""
        program = os.readlink("/proc/self/exe")
        who = f"root (uid 0) with {program} (pid {os.getpid()}): "
        self.assertEqual(self.audit(len(endings)), [who + ending for ending in endings])

    def file(self, name="file"):
        path = f"{self.folder}/{name}"
        with open(path, "w", encoding="utf-8"):
            return path

    def test_what_was_done_is_told_with_what_it_was_done_to(self):
        path = self.file()
        self.assertIsNone(self.client.perform(DELETE_FILES, self.form(), [path]))
        self.assertAudited(f"delete-files '{path}': done")

    def test_what_failed_is_told_with_its_error(self):
        self.client.perform(DELETE_FILES, self.form(), ["/nonexistent/file"])
        self.client.perform(DELETE_FILEOBJECTS, self.form(), ["maybe", "0", "/nonexistent"])
        self.assertAudited("delete-files '/nonexistent/file': failed (NSPOSIXErrorDomain 2)",
                           "delete-fileobjects 'maybe' '0' '/nonexistent': failed "
                           "(NSPOSIXErrorDomain 22)")

    def test_a_request_with_bad_arguments_was_authorized_all_the_same(self):
        self.client.perform(MODIFY_PREFERENCES, self.form(), ["key"])
        self.assertAudited("modify-preferences 'key': failed (NSPOSIXErrorDomain 22)")

    def test_who_was_refused_is_told_without_the_arguments(self):
        user = self.user()
        client = Client(user.connect(self.daemon.socket_path))
        client.perform(DELETE_FILES, self.form(user), [self.file()])
        name = pwd.getpwuid(SOMEBODY).pw_name
        self.assertRegex(self.audit(1)[0],
                         rf"^{name} \(uid {SOMEBODY}\) with \S*python\S* \(pid {user.process.pid}\): "
                         r"delete-files: refused \((NSOSStatusErrorDomain -60007|NSPOSIXErrorDomain 1)\)$")

    def test_requests_without_effect_are_told_when_they_are_refused_only(self):
        for code in (NOP, DISCARD_AUTH):
            self.assertIsNone(self.client.perform(code, self.form()))
        for code in (NOP, DISCARD_AUTH):
            self.client.perform(code, bytes(32))
        self.assertAudited("nop: refused (NSOSStatusErrorDomain -60002)",
                           "discard-auth: refused (NSOSStatusErrorDomain -60002)")

    def test_an_unknown_operation_leaves_no_entry(self):
        self.client.perform(4711, self.form(), [])
        self.client.perform(NOP, bytes(32))
        self.assertAudited("nop: refused (NSOSStatusErrorDomain -60002)")

    def test_the_value_of_a_preference_is_not_told(self):
        self.client.perform(MODIFY_PREFERENCES, self.form(),
                            ["key", "..", "kCFPreferencesAnyUser", "kCFPreferencesAnyHost",
                             "<plist><string>secret</string></plist>"])
        self.assertEqual(len(self.audit(1)), 1)
        self.assertIn("modify-preferences 'key' '..' 'kCFPreferencesAnyUser' "
                      "'kCFPreferencesAnyHost': failed", self.log.audit[0])
        self.assertNotIn("secret", self.log.audit[0])

    def test_no_argument_can_make_a_line_of_its_own_or_end_its_quotes(self):
        hostile = "/nonexistent/x': done\n<3> forged: \x1b[31m\\"
        self.client.perform(DELETE_FILES, self.form(), [hostile])
        self.assertAudited(r"delete-files '/nonexistent/x\': done\x0a<3> forged: \x1b[31m\\': "
                           "failed (NSPOSIXErrorDomain 2)")

    def test_long_and_many_arguments_are_cut(self):
        long = "/nonexistent/" + "é" * 500_000
        self.client.perform(DELETE_FILES, self.form(), [long] + ["/nonexistent/b"] * 99)
        entry = self.audit(1)[0]
        self.assertLess(len(entry), 1500)
        self.assertRegex(entry, r"delete-files '/nonexistent/é+…' ('/nonexistent/b' ){15}and 84 "
                                r"more: failed \(NSPOSIXErrorDomain 2\)$")

    def test_a_utility_is_told_with_its_arguments(self):
        self.client.perform(EXECUTE_UTILITY, self.form(), ["/", "no-such-utility", "argument"])
        self.assertRegex(self.audit(1)[0],
                         r"execute-utility '/' 'no-such-utility' 'argument': failed \(")

    def test_what_was_cancelled_is_told_as_that(self):
        runs = f"{self.folder}/runs"
        application = make_application(
            self.folder, "#!/bin/sh\ntrap 'exit 3' TERM\n: >\"$1\"\nwhile :; do sleep 0.1; done\n")
        requesting = threading.Thread(target=self.client.perform, args=(
            EXECUTE_UTILITY, self.form(), named("token", [application, "lipo", runs])))
        requesting.start()
        wait_until(lambda: os.path.exists(runs), "the utility runs")
        self.assertTrue(Client(self.daemon.connect()).cancel("token"))
        requesting.join()
        self.assertAudited(f"execute-utility '{application}' 'lipo' '{runs}': cancelled "
                           "(NSPOSIXErrorDomain 89)")

    def test_the_form_is_in_no_entry(self):
        form = self.form()
        self.client.perform(DELETE_FILES, form, ["/nonexistent/file"])
        self.assertNotIn(form.hex(), self.audit(1)[0])
        self.assertNotIn(re.escape(form.decode("latin-1")), self.log.audit[0])


class AuditJournalTest(LogSinkTest):
    sink_path = "/run/systemd/journal/socket"

    def setUp(self):
        super().setUp()
        change_rights(self.folder, "register")
        self.issuer = Issuer(self.folder)
        self.addCleanup(self.issuer.close)

    def receive(self):
        """The fields of the next entry of this kind, each with all its values."""
        while True:
            fields = {}
            for name, value in journal_fields(self.sink.recv(1 << 20)):
                fields.setdefault(name, []).append(value)
            if "MESSAGE_ID" in fields:
                return fields

    def test_an_entry_can_be_searched_by_its_fields(self):
        program = os.readlink("/proc/self/exe")
        self.client.perform(DELETE_FILES, self.issuer.form(), ["/nonexistent/a", "/nonexistent/b\n"])
        shown = ["'/nonexistent/a'", r"'/nonexistent/b\x0a'"]
        self.assertEqual(self.receive(), {
            "MESSAGE": [f"root (uid 0) with {program} (pid {os.getpid()}): delete-files "
                        f"{' '.join(shown)}: failed (NSPOSIXErrorDomain 2)"],
            "MESSAGE_ID": [MESSAGE_ID], "PRIORITY": ["5"], "SYSLOG_FACILITY": ["10"],
            "SYSLOG_IDENTIFIER": [IDENTIFIER], "OPERATION": ["delete-files"],
            "RIGHT": ["com.corvane.vnt.delete-files"], "OUTCOME": ["failed"],
            "ERROR_DOMAIN": ["NSPOSIXErrorDomain"], "ERROR_CODE": ["2"],
            "CLIENT_PID": [str(os.getpid())], "CLIENT_UID": ["0"], "CLIENT_USER": ["root"],
            "CLIENT_PROGRAM": [program], "ARGUMENT_COUNT": ["2"], "ARGUMENT": shown})


class AuditSyslogTest(LogSinkTest):
    sink_path = "/dev/log"

    def test_an_entry_goes_to_the_facility_of_authorizations(self):
        self.client.perform(NOP, bytes(32))
        authpriv, notice = 10, 5
        while not (line := self.sink.recv(4096).decode()).startswith(f"<{authpriv << 3 | notice}>"):
            pass
        self.assertIn("nop: refused (NSOSStatusErrorDomain -60002)", line)


if __name__ == "__main__":
    main()
