"""What a request would meet, where nobody can be asked."""

from bus import DELETE_FILEOBJECTS, DISCARD_AUTH, NOP, Client, dictionary
from gi.repository import Gio, GLib
from support import SOMEBODY, SOMEBODY_ELSE, DaemonTest, bench_only, main

INVALID = "org.freedesktop.DBus.Error.InvalidArgs"
REFUSED = "org.freedesktop.DBus.Error.AccessDenied"


class QueryTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())

    def assertError(self, name, client, code, form):
        with self.assertRaises(GLib.Error) as raised:
            client.query(code, form)
        self.assertEqual(Gio.DBusError.get_remote_error(raised.exception), name)

    def test_root_is_granted_everything(self):
        form = self.form()
        for code in (NOP, DISCARD_AUTH, DELETE_FILEOBJECTS):
            self.assertEqual(self.client.query(code, form), "granted")

    @bench_only("there is a polkit on its machine")
    def test_without_an_authority_that_asks_others_are_granted_what_everybody_may(self):
        user = self.user(SOMEBODY)
        client = Client(user.connect(self.daemon.socket_path))
        form = self.form(user)
        self.assertEqual(client.query(NOP, form), "granted")
        self.assertEqual(client.query(DELETE_FILEOBJECTS, form), "unavailable")

    def test_an_unknown_operation_is_a_bus_error(self):
        for code in (3, 9999, 0x7fffffffffffffff, 0xffffffffffffffff):
            self.assertError(INVALID, self.client, code, self.form())

    def test_a_form_that_does_not_hold_is_a_bus_error(self):
        form = self.form()
        for length in (0, 31, 33):
            self.assertError(INVALID, self.client, NOP, (form * 2)[:length])
        self.assertError(REFUSED, self.client, NOP, bytes(32))
        somebody, other = self.user(SOMEBODY), self.user(SOMEBODY_ELSE)
        self.assertError(REFUSED, Client(other.connect(self.daemon.socket_path)), NOP,
                         self.form(somebody))

    def test_a_request_without_interaction_needs_none_where_it_is_granted(self):
        metadata = dictionary(ZELAuthorizationInteraction=GLib.Variant("b", False))
        self.assertIsNone(self.client.perform(NOP, self.form(), ["!ZELMETA!", metadata]))


if __name__ == "__main__":
    main()
