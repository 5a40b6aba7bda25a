#!/usr/bin/python3
"""An authentication agent that answers every dialog in the same way.

agent.py ADDRESS PID START-TIME grant|refuse|dismiss|wait|late

Serves one process, as root, so that it can grant without a password; "late" grants what is open when
it is sent SIGUSR1. Prints "ready", and then a line
of JSON for every dialog that opens or is closed by polkit.
"""

import json
import signal
import sys

from gi.repository import Gio, GLib

INTERFACE = """<node><interface name="org.freedesktop.PolicyKit1.AuthenticationAgent">
<method name="BeginAuthentication">
  <arg name="action_id" type="s" direction="in"/>
  <arg name="message" type="s" direction="in"/>
  <arg name="icon_name" type="s" direction="in"/>
  <arg name="details" type="a{ss}" direction="in"/>
  <arg name="cookie" type="s" direction="in"/>
  <arg name="identities" type="a(sa{sv})" direction="in"/>
</method>
<method name="CancelAuthentication"><arg name="cookie" type="s" direction="in"/></method>
</interface></node>"""
AUTHORITY = ("org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
             "org.freedesktop.PolicyKit1.Authority")
CANCELLED = "org.freedesktop.PolicyKit1.Error.Cancelled"


def tell(**event):
    print(json.dumps(event, ensure_ascii=False, sort_keys=True), flush=True)


class Agent:
    def __init__(self, address, pid, start_time, manner):
        self.manner = manner
        self.waiting = {}
        self.bus = Gio.DBusConnection.new_for_address_sync(
            address,
            Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
            | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
        self.bus.register_object("/agent", Gio.DBusNodeInfo.new_for_xml(INTERFACE).interfaces[0],
                                 self.handle, None, None)
        subject = ("unix-process", {"pid": GLib.Variant("u", pid),
                                    "start-time": GLib.Variant("t", start_time)})
        self.call("RegisterAuthenticationAgent",
                  GLib.Variant("((sa{sv})ss)", (subject, "C", "/agent")))

    def call(self, member, arguments):
        self.bus.call_sync(*AUTHORITY, member, arguments, None, Gio.DBusCallFlags.NONE, -1, None)

    def grant(self, cookie, identity, invocation):
        kind, details = identity
        self.call("AuthenticationAgentResponse2", GLib.Variant(
            "(us(sa{sv}))", (0, cookie, (kind, {"uid": GLib.Variant("u", details["uid"])}))))
        invocation.return_value(None)

    def handle(self, _bus, _sender, _path, _interface, member, parameters, invocation):
        if member == "CancelAuthentication":
            (cookie,) = parameters.unpack()
            tell(event="cancelled")
            invocation.return_value(None)
            waiting = self.waiting.pop(cookie, None)
            if waiting is not None:
                waiting.return_dbus_error(CANCELLED, "cancelled")
            return
        action, message, icon, _details, cookie, identities = parameters.unpack()
        tell(event="asked", action=action, message=message, icon=icon)
        if self.manner == "grant":
            self.grant(cookie, identities[0], invocation)
        elif self.manner == "late":
            GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR1,
                                 lambda: self.grant(cookie, identities[0], invocation))
            tell(event="open")
        elif self.manner == "refuse":
            invocation.return_value(None)
        elif self.manner == "dismiss":
            invocation.return_dbus_error(CANCELLED, "dismissed")
        else:
            self.waiting[cookie] = invocation


if __name__ == "__main__":
    agent = Agent(sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), sys.argv[4])
    print("ready", flush=True)
    GLib.MainLoop().run()
