#!/usr/bin/python3
"""Answers as polkit never would: mock-polkit.py MANNER, one of

hang       stops at the first question, for good
vanish     ends at the first question
silent     never answers questions, but everything else
wordless   the same, and tells which process it is asked about
grant      a yes that is none of the others, to compare with
contrary   a yes and a challenge at once
short, long, other, empty, text
           answers of other types
error      an error of its own
"""

import os
import signal
import sys

from gi.repository import Gio, GLib

INTERFACE = """<node><interface name="org.freedesktop.PolicyKit1.Authority">
<method name="CheckAuthorization">
  <arg type="(sa{sv})" direction="in"/><arg type="s" direction="in"/>
  <arg type="a{ss}" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
</method>
<method name="CancelCheckAuthorization"><arg type="s" direction="in"/></method>
<property name="BackendVersion" type="s" access="read"/>
</interface></node>"""
ANSWERS = {
    "grant": GLib.Variant("((bba{ss}))", ((True, False, {}),)),
    "contrary": GLib.Variant("((bba{ss}))", ((True, True, {}),)),
    "short": GLib.Variant("((bb))", ((True, False),)),
    "long": GLib.Variant("((bba{ss})b)", ((True, False, {}), True)),
    "other": GLib.Variant("((uua{ss}))", ((1, 0, {}),)),
    "empty": GLib.Variant("()", ()),
    "text": GLib.Variant("(s)", ("yes",)),
}


def main(manner):
    bus = Gio.DBusConnection.new_for_address_sync(
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"],
        Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
        | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)

    def answer(message):
        if manner == "hang":
            signal.pause()
        if manner == "vanish":
            os._exit(0)
        if manner == "wordless":
            pid = message.get_body().get_child_value(0).unpack()[1]["pid"]
            print(f"asked for {pid}", flush=True)
        if manner in ("silent", "wordless"):
            return None
        if manner == "error":
            return Gio.DBusMessage.new_method_error_literal(
                message, "org.freedesktop.PolicyKit1.Error.Failed", "no")
        reply = Gio.DBusMessage.new_method_reply(message)
        reply.set_body(ANSWERS[manner])
        return reply

    def handle(_bus, _sender, _path, _interface, member, _parameters, invocation):
        # The message itself is answered: an invocation lets no answer of another type pass.
        if member == "CheckAuthorization":
            reply = answer(invocation.get_message())
            if reply is not None:
                bus.send_message(reply, Gio.DBusSendMessageFlags.NONE)
        else:
            print(member, flush=True)
            invocation.return_value(None)

    def get(*_):
        print("alive", flush=True)
        return GLib.Variant("s", "1")

    bus.register_object("/org/freedesktop/PolicyKit1/Authority",
                        Gio.DBusNodeInfo.new_for_xml(INTERFACE).interfaces[0], handle,
                        get, None)
    Gio.bus_own_name_on_connection(bus, "org.freedesktop.PolicyKit1", 0, None, None)
    GLib.MainLoop().run()


if __name__ == "__main__":
    main(sys.argv[1])
