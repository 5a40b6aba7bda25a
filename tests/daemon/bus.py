"""D-Bus peers of the daemon: clients and feedback servers by GDBus, and one made of raw bytes."""

import contextlib
import socket
import sys
import threading
import time

from gi.repository import Gio, GLib

from common import PATIENCE

HELPER_PATH = "/com/corvane/PrivilegedHelper"
HELPER_INTERFACE = "com.corvane.ZELPrivilegedHelperProtocol"
CONTROL_INTERFACE = "com.corvane.ZELPrivilegedHelperControl"
FEEDBACK_PATH = "/com/corvane/PrivilegedOperationFeedback"
FEEDBACK_INTERFACE = "com.corvane.ZELPrivilegedOperationFeedbackProtocol"
FEEDBACK_MEMBER = "ProcessPrivilegedOperationFeedback"

POSIX = "NSPOSIXErrorDomain"
OSSTATUS = "NSOSStatusErrorDomain"

NOP, DISCARD_AUTH, DELETE_FILES, PREPARE_UNINSTALL, PERFORM_UNINSTALL = 9998, 9997, 9996, 9995, 9994
DELETE_FILEOBJECTS, MODIFY_PREFERENCES, EXECUTE_UTILITY = 0, 1, 2

MARKER = "!ZELMETA!"

HANDSHAKE = b"\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n"


def data(content):
    return GLib.Variant.new_from_bytes(GLib.VariantType("ay"), GLib.Bytes.new(content), True)


def variant(value):
    """A value of an argument list: text and bytes as themselves, other types as the test says."""
    if isinstance(value, str):
        return GLib.Variant("s", value)
    return data(value) if isinstance(value, bytes) else value


def dictionary(**entries):
    """A dictionary of text and of what the test says."""
    return GLib.Variant("a{sv}", {key: variant(value) for key, value in entries.items()})


def named(token, arguments=()):
    """An argument list of a request that can be cancelled by `token`."""
    return [MARKER, dictionary(ZELOperationToken=token), *arguments]


def request_body(code, form, arguments, endpoints=0, lists=None):
    """The body of PerformPrivilegedOperation; `arguments` may be None for an absent list."""
    if lists is None:
        lists = [] if arguments is None else [arguments]
    return GLib.Variant.new_tuple(
        GLib.Variant("t", code), data(form), GLib.Variant("ah", list(range(endpoints))),
        GLib.Variant("aav", [[variant(value) for value in values] for values in lists]))


def gdbus_connection(connected, flags, guid=None):
    """A GDBus connection over a Python socket, which it takes over."""
    stream = Gio.Socket.new_from_fd(connected.detach()).connection_factory_create_connection()
    return Gio.DBusConnection.new_sync(stream, guid, flags, None, None)


class Client:
    """A client on one connection of its own."""

    def __init__(self, connected):
        self.connection = gdbus_connection(connected,
                                           Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT)

    def call(self, member, body=None, reply_type=None, descriptors=None,
             path=HELPER_PATH, interface=HELPER_INTERFACE):
        """The reply's body, and the list of descriptors that came with it. Raises GLib.Error."""
        return self.connection.call_with_unix_fd_list_sync(
            None, path, interface, member, body,
            None if reply_type is None else GLib.VariantType(reply_type),
            Gio.DBusCallFlags.NONE, PATIENCE * 1000, descriptors, None)

    def send(self, member, body):
        """Calls without wanting a reply."""
        message = Gio.DBusMessage.new_method_call(None, HELPER_PATH, HELPER_INTERFACE, member)
        message.set_flags(Gio.DBusMessageFlags.NO_REPLY_EXPECTED)
        message.set_body(body)
        self.connection.send_message(message, Gio.DBusSendMessageFlags.NONE)
        self.connection.flush_sync(None)

    def version(self):
        return self.call("GetVersionString", None, "(s)")[0].unpack()[0]

    def register(self, pid):
        return self.call("RegisterClientWithPID", GLib.Variant("(i)", (pid,)), "()")[0].unpack()

    def unregister(self, pid):
        return self.call("UnregisterClientWithPID", GLib.Variant("(i)", (pid,)), "()")[0].unpack()

    def debug(self, flag):
        return self.call("EnableDebugMode", GLib.Variant("(b)", (flag,)), "()")[0].unpack()

    def endpoint(self):
        """A connected socket on which the daemon serves a new connection."""
        reply, descriptors = self.call("ConnectWithEndpoint", None, "(h)")
        return socket.socket(fileno=descriptors.get(reply.unpack()[0]))

    def perform(self, code, form, arguments=(), endpoint=None):
        """None, or the error that the operation was answered with: (domain, code, userInfo)."""
        descriptors = Gio.UnixFDList.new()
        if endpoint is not None:
            descriptors.append(endpoint if isinstance(endpoint, int) else endpoint.fileno())
        body = request_body(code, form, arguments, 0 if endpoint is None else 1)
        errors = self.call("PerformPrivilegedOperation", body, "(a(sxa{sv}))",
                           descriptors)[0].unpack()[0]
        assert len(errors) <= 1, "more than one error"
        return errors[0] if errors else None

    def cancel(self, token):
        """Whether a request with this token was in progress."""
        return self.call("CancelOperation", GLib.Variant("(s)", (token,)), "(b)",
                         interface=CONTROL_INTERFACE)[0].unpack()[0]

    def query(self, code, form):
        """What a request for the operation would meet."""
        body = GLib.Variant.new_tuple(GLib.Variant("t", code), data(form))
        return self.call("QueryAuthorization", body, "(s)",
                         interface=CONTROL_INTERFACE)[0].unpack()[0]

    def close(self):
        self.connection.close_sync(None)


class FeedbackServer:
    """Serves the feedback interface on one end of a socket pair and keeps what comes."""

    def __init__(self):
        ours, self.endpoint = socket.socketpair()
        self.messages = []
        self._changed = threading.Condition()
        self._thread = threading.Thread(target=self._serve, args=(ours,), daemon=True)
        self._thread.start()

    def _serve(self, ours):
        flags = (Gio.DBusConnectionFlags.AUTHENTICATION_SERVER |
                 Gio.DBusConnectionFlags.DELAY_MESSAGE_PROCESSING)
        self._connection = gdbus_connection(ours, flags, Gio.dbus_generate_guid())
        self._connection.add_filter(self._keep)
        self._connection.start_message_processing()

    def _keep(self, _connection, message, _is_incoming):
        with self._changed:
            self.messages.append((time.monotonic(), message))
            self._changed.notify_all()
        # It ends here: nobody else looks at it, and no answer is made.

    def wait_for_final(self):
        """Waits for the message that says it is the last; the bodies of all."""
        with self._changed:
            if not self._changed.wait_for(self._is_complete, PATIENCE):
                raise AssertionError("no final feedback message")
            return self.bodies()

    def _is_complete(self):
        return self.messages and "FinalFeedbackMessage" in self.bodies()[-1]

    def bodies(self):
        return [message.get_body().unpack()[0] for _, message in self.messages]

    def close(self):
        self.endpoint.close()
        self._thread.join(PATIENCE)


class RawPeer:
    """A peer that sends what bytes it likes."""

    def __init__(self, connected):
        self.socket = connected
        self.socket.settimeout(PATIENCE)

    def send(self, content, descriptors=()):
        """Sends it, or as much of it as is taken: the daemon may drop the peer meanwhile."""
        with contextlib.suppress(BrokenPipeError, ConnectionResetError):
            if descriptors:
                socket.send_fds(self.socket, [content], list(descriptors))
            else:
                self.socket.sendall(content)

    def handshake(self):
        """Completes the handshake as the bus library's own clients do."""
        self.send(HANDSHAKE)
        answers = b""
        while answers.count(b"\r\n") < 3:
            part = self.socket.recv(4096)
            assert part, "the handshake was refused"
            answers += part
        assert b"AGREE_UNIX_FD\r\n" in answers, answers
        return self

    def receive(self):
        """The next message."""
        header = self._receive(16)
        rest = Gio.DBusMessage.bytes_needed(header) - 16
        return Gio.DBusMessage.new_from_blob(header + self._receive(rest),
                                             Gio.DBusCapabilityFlags.UNIX_FD_PASSING)

    def _receive(self, size):
        content = b""
        while len(content) < size:
            part = self.socket.recv(size - len(content))
            if not part:
                raise EOFError
            content += part
        return content

    def is_dropped(self):
        """Waits until the daemon closes the connection, whatever it sends before."""
        try:
            while self.socket.recv(65536):
                pass
        except ConnectionResetError:
            pass
        except socket.timeout:
            return False
        return True

    def close(self):
        self.socket.close()


def message(member, body=None, serial=1, path=HELPER_PATH, interface=HELPER_INTERFACE,
            descriptors=0, flags=Gio.DBusMessageFlags.NONE):
    """The bytes of a method call."""
    call = Gio.DBusMessage.new_method_call(None, path, interface, member)
    call.set_flags(flags)
    call.set_serial(serial)
    if body is not None:
        call.set_body(body)
    if descriptors:
        # Only their number matters: descriptors travel beside the bytes.
        fillers = Gio.UnixFDList.new()
        for _ in range(descriptors):
            fillers.append(sys.stderr.fileno())
        call.set_unix_fd_list(fillers)
    return call.to_blob(Gio.DBusCapabilityFlags.UNIX_FD_PASSING)
