#!/usr/bin/python3
"""Deletes what is named on its command line, from GLib's main loop, with nothing but GDBus. Ctrl-C
cancels."""

import os
import secrets
import signal
import socket
import sys

from gi.repository import Gio, GLib

HELPER = "/run/com.corvane.system.privilegedhelper-vnt/socket"
ISSUER = "/run/com.corvane.authorization/socket"
OBJECT = "/com/corvane/PrivilegedHelper"
PROTOCOL = "com.corvane.ZELPrivilegedHelperProtocol"
CONTROL = "com.corvane.ZELPrivilegedHelperControl"
FEEDBACK = "ProcessPrivilegedOperationFeedback"
DELETE_FILEOBJECTS = 0

CLIENT = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
SERVER = (Gio.DBusConnectionFlags.AUTHENTICATION_SERVER
          | Gio.DBusConnectionFlags.DELAY_MESSAGE_PROCESSING)


def authorization():
    """What proves to the helper which process asks."""
    with socket.socket(socket.AF_UNIX) as issuer:
        issuer.connect(ISSUER)
        return issuer.makefile("rb").read(32)


def helper():
    """A connection to the helper, which starts if it does not run."""
    return Gio.DBusConnection.new_for_address_sync(f"unix:path={HELPER}", CLIENT, None, None)


def call(connection, member, body, reply_type, interface=PROTOCOL):
    return connection.call_sync(None, OBJECT, interface, member, body,
                                GLib.VariantType(reply_type), Gio.DBusCallFlags.NONE, -1,
                                None).unpack()


class Feedback:
    """The second connection, over which progress comes: this process serves one end of it, and the
    helper gets the other."""

    def __init__(self, on_progress):
        self.on_progress = on_progress
        ours, self.theirs = socket.socketpair()
        stream = Gio.Socket.new_from_fd(ours.detach()).connection_factory_create_connection()
        Gio.DBusConnection.new(stream, Gio.dbus_generate_guid(), SERVER, None, None, self.serve)

    def serve(self, _source, result):
        """The helper has connected, which it does when the request is authorized."""
        self.connection = Gio.DBusConnection.new_finish(result)
        self.connection.add_filter(self.receive)
        self.connection.start_message_processing()

    def receive(self, _connection, message, _is_incoming):
        """On a thread of GDBus: the loop is told."""
        if message.get_member() != FEEDBACK:
            return message
        fraction = message.get_body().unpack()[0].get("ProgressFraction")
        if fraction is not None:
            GLib.idle_add(self.on_progress, fraction)
        return None


def main(paths):
    loop, connection, token = GLib.MainLoop(), helper(), secrets.token_hex(16)
    errors = []
    me = GLib.Variant("(i)", (os.getpid(),))
    call(connection, "RegisterClientWithPID", me, "()")

    feedback = Feedback(lambda fraction: print(f"{fraction * 100:.0f} %"))
    metadata = {"ZELOperationToken": GLib.Variant("s", token)}
    arguments = [GLib.Variant("s", "!ZELMETA!"), GLib.Variant("a{sv}", metadata)]
    # Recursive, and not to stop at the first error.
    arguments += [GLib.Variant("s", text) for text in ["1", "0", *paths]]
    request = GLib.Variant("(tayahaav)", (DELETE_FILEOBJECTS, authorization(), [0], [arguments]))

    def finish(source, result):
        reply, _ = source.call_with_unix_fd_list_finish(result)
        errors.extend(reply.unpack()[0])
        # Behind the last of the progress.
        GLib.idle_add(loop.quit)

    def cancel():
        # The messages of a connection are handled in their order, so this takes another one.
        call(helper(), "CancelOperation", GLib.Variant("(s)", (token,)), "(b)", CONTROL)
        return GLib.SOURCE_CONTINUE

    connection.call_with_unix_fd_list(
        None, OBJECT, PROTOCOL, "PerformPrivilegedOperation", request,
        GLib.VariantType("(a(sxa{sv}))"), Gio.DBusCallFlags.NONE, GLib.MAXINT32,
        Gio.UnixFDList.new_from_array([feedback.theirs.detach()]), None, finish)
    GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGINT, cancel)
    loop.run()

    call(connection, "UnregisterClientWithPID", me, "()")
    for domain, code, _ in errors:
        print(f"{domain} {code}", file=sys.stderr)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
