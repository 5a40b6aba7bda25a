"""A stand-in for systemd's manager: its interface on a bus, over units that a test describes.

Reads one JSON object from its standard input: unit name -> {"load", "active", "file", "pid",
"code", "status", "command", "install", "result"}. Prints "ready" and then one line for every call
that changes something.
"""

import json
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

NAME = "org.freedesktop.systemd1"
ROOT = "/org/freedesktop/systemd1"
MANAGER = NAME + ".Manager"


class NoSuchUnit(dbus.DBusException):
    _dbus_error_name = NAME + ".NoSuchUnit"


class InvalidArgs(dbus.DBusException):
    _dbus_error_name = "org.freedesktop.DBus.Error.InvalidArgs"


def path_of(unit):
    return ROOT + "/unit/" + "".join(c if c.isalnum() else "_%02x" % ord(c) for c in unit)


def say(*words):
    print(*words, flush=True)


class Unit(dbus.service.Object):
    def __init__(self, bus, name, facts):
        super().__init__(bus, path_of(name))
        self.facts = facts

    @dbus.service.method("org.freedesktop.DBus.Properties", in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        facts = self.facts
        command = facts.get("command", [])
        commands = [(command[0], dbus.Array(command, "s"), False, dbus.UInt64(0), dbus.UInt64(0),
                     dbus.UInt64(0), dbus.UInt64(0), dbus.UInt32(0), dbus.Int32(0),
                     dbus.Int32(0))] if command else []
        return {
            "LoadState": lambda: facts.get("load", "loaded"),
            "ActiveState": lambda: facts.get("active", "inactive"),
            "FragmentPath": lambda: facts.get("file", ""),
            "MainPID": lambda: dbus.UInt32(facts.get("pid", 0)),
            "ExecMainCode": lambda: dbus.Int32(facts.get("code", 0)),
            "ExecMainStatus": lambda: dbus.Int32(facts.get("status", 0)),
            "ExecStart": lambda: dbus.Array(commands, "(sasbttttuii)"),
        }[name]()


class Manager(dbus.service.Object):
    def __init__(self, bus, units):
        super().__init__(bus, ROOT)
        self.bus = bus
        self.units = units
        self.objects = {name: Unit(bus, name, facts) for name, facts in units.items()}
        self.jobs = 0

    @dbus.service.method("org.freedesktop.DBus.Properties", in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        assert (interface, name) == (MANAGER, "Version")
        return "252-fake"

    @dbus.service.method(MANAGER, in_signature="asas", out_signature="a(ssssssouso)")
    def ListUnitsByPatterns(self, states, patterns):
        suffixes = tuple(pattern.lstrip("*") for pattern in patterns)
        return [(name, "", facts.get("load", "loaded"), facts.get("active", "inactive"), "", "",
                 path_of(name), dbus.UInt32(0), "", "/")
                for name, facts in self.units.items() if name.endswith(suffixes)]

    @dbus.service.method(MANAGER, in_signature="s", out_signature="o")
    def LoadUnit(self, name):
        if " " in name or "/" in name:
            raise InvalidArgs("Unit name %s is not valid." % name)
        if name not in self.objects:
            self.objects[name] = Unit(self.bus, name, {"load": "not-found"})
        return dbus.ObjectPath(path_of(name))

    @dbus.service.method(MANAGER)
    def Subscribe(self):
        pass

    @dbus.service.method(MANAGER)
    def Reload(self):
        say("Reload")

    def change(self, method, unit, mode):
        assert mode == "replace"
        say(method, unit)
        facts = self.units[unit]
        if facts.get("unloaded"):
            raise NoSuchUnit("Unit %s not loaded." % unit)
        if facts.get("refuse"):
            raise dbus.DBusException(facts["refuse"], name="org.freedesktop.systemd1.LoadFailed")
        self.jobs += 1
        # Another job ends first, and this one before the caller can know its name.
        self.JobRemoved(99, ROOT + "/job/99", "other.service", "failed")
        job = dbus.ObjectPath("%s/job/%d" % (ROOT, self.jobs))
        self.JobRemoved(self.jobs, job, unit, facts.get("result", "done"))
        if method != "StopUnit" and unit.endswith(".service"):
            facts["pid"] = 4711
        return job

    @dbus.service.signal(MANAGER, signature="uoss")
    def JobRemoved(self, identifier, job, unit, result):
        pass

    @dbus.service.method(MANAGER, in_signature="ss", out_signature="o")
    def StartUnit(self, unit, mode):
        return self.change("StartUnit", unit, mode)

    @dbus.service.method(MANAGER, in_signature="ss", out_signature="o")
    def StopUnit(self, unit, mode):
        return self.change("StopUnit", unit, mode)

    @dbus.service.method(MANAGER, in_signature="ss", out_signature="o")
    def RestartUnit(self, unit, mode):
        return self.change("RestartUnit", unit, mode)

    @dbus.service.method(MANAGER, in_signature="asbb", out_signature="ba(sss)")
    def EnableUnitFiles(self, files, runtime, force):
        assert not runtime and not force
        say("EnableUnitFiles", *files)
        return any(self.units[name].get("install", True) for name in files), []

    @dbus.service.method(MANAGER, in_signature="asb", out_signature="a(sss)")
    def DisableUnitFiles(self, files, runtime):
        assert not runtime
        say("DisableUnitFiles", *files)
        if any(self.units[name].get("gone") for name in files):
            raise NoSuchUnit("Unit file does not exist.")
        return []


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
system_bus = dbus.SystemBus()
manager = Manager(system_bus, json.loads(sys.stdin.readline()))
owned = dbus.service.BusName(NAME, system_bus)
say("ready")
GLib.MainLoop().run()
