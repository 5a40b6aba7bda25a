"""Every operation of the catalogue, asked for by everybody who could: what is granted, and that all
else is refused, with which error."""

from polkit_support import ADMINISTRATOR, USER, PolkitTest
from bus import (DELETE_FILEOBJECTS, DELETE_FILES, DISCARD_AUTH, EXECUTE_UTILITY,
                 MODIFY_PREFERENCES, NOP, OSSTATUS, PERFORM_UNINSTALL, POSIX, PREPARE_UNINSTALL,
                 Client)
from support import DaemonTest, bench_only, main

FOR_EVERYBODY = (NOP, DISCARD_AUTH)
GUARDED = (DELETE_FILES, PREPARE_UNINSTALL, PERFORM_UNINSTALL, DELETE_FILEOBJECTS,
           MODIFY_PREFERENCES, EXECUTE_UTILITY)

# Every operation is asked for with one block of data, which none takes: that this is what is wrong
# shows that the request was authorized, and nothing is done.
ARGUMENTS = [b"data"]
GRANTED = (POSIX, 22, {})
DENIED = (POSIX, 1, {})
NOBODY_TO_ASK = (OSSTATUS, -60007, {})
INVALID_REFERENCE = (OSSTATUS, -60002, {})


class Matrix:
    """The matrix, for one authority."""

    GUARDED_FOR_ADMINISTRATOR = NOBODY_TO_ASK
    GUARDED_FOR_USER = NOBODY_TO_ASK

    def answer_dialogs(self, user, manner):
        """Has a person sit before the dialogs of `user`, if there are any."""

    def client(self, user=None):
        return Client(user.connect(self.daemon.socket_path) if user else self.daemon.connect())

    def rows(self):
        """Who asks: the connection, the form, and the answers for the two kinds of operations."""
        user, administrator, ended = self.user(USER), self.user(ADMINISTRATOR), self.user(USER)
        self.answer_dialogs(user, "refuse")
        self.answer_dialogs(administrator, "grant")
        form, form_of_ended = self.form(user), self.form(ended)
        ended.end()
        refused = (INVALID_REFERENCE, INVALID_REFERENCE)

        yield "root", self.client(), self.form(), (GRANTED, GRANTED)
        yield ("administrator", self.client(administrator), self.form(administrator),
               (GRANTED, self.GUARDED_FOR_ADMINISTRATOR))
        yield "user", self.client(user), form, (GRANTED, self.GUARDED_FOR_USER)
        for name, client in (("user", self.client(user)), ("root", self.client())):
            yield f"{name}, forged as root's", client, form[:4] + bytes(4) + form[8:], refused
            yield f"{name}, of an ended process", client, form_of_ended, refused
        yield "user, of root", self.client(user), self.form(), refused
        yield "user, of another", self.client(user), self.form(administrator), refused

    def check(self):
        for name, client, form, (for_everybody, guarded) in self.rows():
            for codes, expected in ((FOR_EVERYBODY, for_everybody), (GUARDED, guarded)):
                for code in codes:
                    with self.subTest(form=name, code=code):
                        self.assertEqual(client.perform(code, form, ARGUMENTS), expected)


@bench_only("the machine has polkit")
class EmbeddedMatrixTest(Matrix, DaemonTest):
    def test_every_operation_for_everybody(self):
        self.check()


class PolkitMatrixTest(Matrix, PolkitTest):
    GUARDED_FOR_ADMINISTRATOR = GRANTED
    GUARDED_FOR_USER = DENIED

    def answer_dialogs(self, user, manner):
        self.agent(user.process.pid, manner)

    def test_every_operation_for_everybody(self):
        self.check()


if __name__ == "__main__":
    main()
