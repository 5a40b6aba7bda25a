"""Who may have an operation performed, and what the others are answered."""

import base64
import os
import secrets

from bus import (DELETE_FILEOBJECTS, DELETE_FILES, DISCARD_AUTH, EXECUTE_UTILITY, MARKER,
                 MODIFY_PREFERENCES, NOP, OSSTATUS, PERFORM_UNINSTALL, POSIX, PREPARE_UNINSTALL,
                 Client, dictionary)
from log_lines import about, metadata, unauthorized
from support import (SOMEBODY_ELSE, DaemonTest, Issuer, bench_only, change_rights, main,
                     root_only)

IDENTIFIERS = {NOP: "nop", DISCARD_AUTH: "discard-auth", DELETE_FILES: "delete-files",
               PREPARE_UNINSTALL: "prepare-uninstall", PERFORM_UNINSTALL: "perform-uninstall",
               DELETE_FILEOBJECTS: "delete-fileobjects",
               MODIFY_PREFERENCES: "modify-preferences", EXECUTE_UTILITY: "execute-utility"}

INVALID_LENGTH = (POSIX, 22, {})
INTERNAL = (OSSTATUS, -60008, {})
INTERACTION_NOT_ALLOWED = (OSSTATUS, -60007, {})
INVALID_REFERENCE = (OSSTATUS, -60002, {})


class AuthorizationTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())

    def client_of(self, user):
        return Client(user.connect(self.daemon.socket_path))

    def assertRefused(self, expected, form, client=None, code=NOP, arguments=()):
        mark = self.log.mark()
        self.assertEqual((client or self.client).perform(code, form, arguments), expected)
        self.assertLogged(mark, about(IDENTIFIERS[code], len(arguments)),
                          unauthorized(expected[1]))

    def test_data_that_are_not_32_bytes_are_invalid(self):
        for size in (0, 1, 31, 33, 64, 1_000_000):
            with self.subTest(size=size):
                self.assertRefused(INVALID_LENGTH, self.form().ljust(size, b"\0")[:size])

    def test_forged_forms_are_refused(self):
        form = self.form()
        self.assertEqual(len(form), 32)
        for index in range(32):
            with self.subTest(index=index):
                forged = bytearray(form)
                forged[index] ^= 1 << index % 8
                self.assertRefused(INVALID_REFERENCE, bytes(forged))
        for forged in (bytes(32), b"\xff" * 32, secrets.token_bytes(32)):
            self.assertRefused(INVALID_REFERENCE, forged)
        self.assertIsNone(self.client.perform(NOP, form))

    @bench_only("it makes a key of its own")
    def test_a_form_of_another_key_is_refused(self):
        folder = f"{self.folder}/elsewhere"
        os.makedirs(f"{folder}/root", 0o700)
        elsewhere = Issuer(folder)
        self.addCleanup(elsewhere.close)
        self.assertRefused(INVALID_REFERENCE, elsewhere.form())

    def test_a_form_may_be_used_again(self):
        form = self.form()
        for code in (NOP, DISCARD_AUTH, NOP, DISCARD_AUTH):
            self.assertIsNone(self.client.perform(code, form))

    def test_a_form_is_good_on_every_connection_of_its_user(self):
        user = self.user()
        form = self.form(user)
        for client in (self.client_of(user), self.client_of(self.user())):
            self.assertIsNone(client.perform(NOP, form))

    def test_a_form_replayed_by_another_user_is_refused(self):
        user, other = self.user(), self.user(SOMEBODY_ELSE)
        for form in (self.form(), self.form(user)):
            self.assertRefused(INVALID_REFERENCE, form, self.client_of(other))
        self.assertRefused(INVALID_REFERENCE, self.form(), self.client_of(user))

    def test_a_connection_by_endpoint_belongs_to_the_user_who_asked_for_it(self):
        user = self.user()
        endpoint = Client(self.client_of(user).endpoint())
        self.assertRefused(INVALID_REFERENCE, self.form(), endpoint)
        self.assertIsNone(endpoint.perform(NOP, self.form(user)))
        self.assertRefused(INVALID_REFERENCE, self.form(self.user(SOMEBODY_ELSE)), endpoint)

    @root_only("it is about root's client")
    def test_root_may_use_the_form_of_a_user_and_is_that_user_then(self):
        form = self.form(self.user())
        self.assertIsNone(self.client.perform(NOP, form))
        self.assertRefused(INTERACTION_NOT_ALLOWED, form, code=DELETE_FILEOBJECTS,
                           arguments=["0", "0", f"{self.folder}/none"])

    def test_a_form_ends_with_its_process(self):
        user = self.user()
        form = self.form(user)
        own = self.client_of(user)
        self.assertIsNone(own.perform(NOP, form))
        user.process.kill()
        # Nobody has asked for its status yet: all that is left of it is its number.
        os.waitid(os.P_PID, user.process.pid, os.WEXITED | os.WNOWAIT)
        self.assertRefused(INVALID_REFERENCE, form, own)
        self.assertRefused(INVALID_REFERENCE, form)
        user.process.wait()
        self.assertRefused(INVALID_REFERENCE, form, own)
        self.assertRefused(INVALID_REFERENCE, form)

    def test_users_get_the_rights_that_everybody_has_and_no_other(self):
        user = self.user()
        client, form = self.client_of(user), self.form(user)
        kept = f"{self.folder}/kept"
        with open(kept, "wb"):
            pass
        os.chown(kept, user.uid, user.uid)
        for code in (NOP, DISCARD_AUTH):
            self.assertIsNone(client.perform(code, form))
        for code in (DELETE_FILES, PREPARE_UNINSTALL, PERFORM_UNINSTALL, DELETE_FILEOBJECTS,
                     MODIFY_PREFERENCES, EXECUTE_UTILITY):
            with self.subTest(code=code):
                self.assertRefused(INTERACTION_NOT_ALLOWED, form, client, code, ["0", "0", kept])
        self.assertTrue(os.path.exists(kept))

    def test_a_malformed_request_is_refused_for_its_authorization(self):
        user = self.user()
        self.assertRefused(INTERACTION_NOT_ALLOWED, self.form(user), self.client_of(user),
                           MODIFY_PREFERENCES, [b"one"])

    @bench_only("it takes the rights away from everybody")
    def test_rights_that_are_not_registered_are_nobodys(self):
        user = self.user()
        client, form = self.client_of(user), self.form(user)
        self.assertIsNone(client.perform(NOP, form))
        change_rights(self.folder, "remove")
        self.assertRefused(INTERACTION_NOT_ALLOWED, form, client)
        change_rights(self.folder, "register")
        self.assertIsNone(client.perform(NOP, form))

    @bench_only("it takes the key away from everybody")
    def test_without_a_key_nothing_is_authorized(self):
        form = self.form()
        os.rename(f"{self.folder}/root", f"{self.folder}/moved")
        with open(f"{self.folder}/root", "wb"):
            pass
        self.assertRefused(INTERNAL, form)
        os.unlink(f"{self.folder}/root")
        os.rename(f"{self.folder}/moved", f"{self.folder}/root")
        self.assertIsNone(self.client.perform(NOP, form))

    def test_prompt_and_icon_change_nothing_without_a_dialog(self):
        texts = dictionary(ZELAuthorizationPrompt="Prompt %s %n \n", ZELAuthorizationIcon="/icon")
        self.assertIsNone(self.client.perform(NOP, self.form(), [MARKER, texts]))
        user = self.user()
        mark = self.log.mark()
        self.assertEqual(
            self.client_of(user).perform(PREPARE_UNINSTALL, self.form(user), [MARKER, texts]),
            INTERACTION_NOT_ALLOWED)
        self.assertLogged(mark, about("prepare-uninstall", 2), metadata(0, 2), unauthorized(-60007))

    def test_the_form_is_never_logged(self):
        form = self.form()
        self.client.perform(NOP, form)
        self.client.perform(NOP, form, ["x"])
        self.client.perform(NOP, form[:31])
        log = "\n".join(self.log.after(0))
        for hidden in (form[16:].hex(), base64.b64encode(form[18:]).decode()):
            self.assertNotIn(hidden.lower(), log.lower())


if __name__ == "__main__":
    main()
