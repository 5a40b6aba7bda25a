"""A removal always removes: the helper in every state that it was seen to be broken in."""

import subprocess

from names import (ACTIONS, CLIENT_PACKAGE, DAEMON, HELPER_PACKAGE, ISSUER, KEY, LABEL,
                   LAUNCH_CONTROL)

DROP_IN = f"/etc/systemd/system/{LABEL}.service.d"
ACTION = f"{ACTIONS}/com.corvane.vnt.delete-fileobjects.policy"


# Its arguments are the folder of the helper's socket, and a user's number.
REGISTER_INIT = """
import os, socket, sys
from gi.repository import Gio, GLib
os.chdir(sys.argv[1])
os.setgroups([])
os.setuid(int(sys.argv[2]))
peer = socket.socket(socket.AF_UNIX)
peer.connect("socket")
stream = Gio.Socket.new_from_fd(peer.detach()).connection_factory_create_connection()
connection = Gio.DBusConnection.new_sync(stream, None,
                                         Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT, None, None)
connection.call_sync(None, "/com/corvane/PrivilegedHelper",
                     "com.corvane.ZELPrivilegedHelperProtocol", "RegisterClientWithPID",
                     GLib.Variant("(i)", (1,)), None, Gio.DBusCallFlags.NONE, -1, None)
"""


def register_init(scenario):
    """An ordinary user has the helper take the first process of all for a client of its own."""
    folder = scenario.machine.running_path(f"/run/{LABEL}")
    user = scenario.run("id -u alice").stdout.strip()
    subprocess.run(["/usr/bin/python3", "-c", REGISTER_INIT, folder, user], check=True)


# What each state is called, and what brings it about: a command of the shell, or a function.
STATES = {
    "the helper is missing": f"rm {DAEMON}",
    "the helper crashes": f"printf '#!/bin/sh\\nkill -s SEGV $$\\n' > {DAEMON}",
    "the helper cannot be executed": f"chmod 644 {DAEMON}",
    "the helper runs as nobody":
        f"mkdir {DROP_IN} && printf '[Service]\\nUser=nobody\\n' > {DROP_IN}/nobody.conf && "
        "systemctl daemon-reload",
    "the helper runs": f"systemctl start {LABEL}.service",
    "the issuer is missing": f"rm {ISSUER}",
    "the key is damaged": f"echo damaged > {KEY}",
    "the authorization socket is stopped": "systemctl stop com.corvane.authorization.socket",
    "both sockets are masked": "systemctl mask com.corvane.authorization.socket "
                               f"{LABEL}.socket",
    "an action file is damaged": f"echo '<' > {ACTION}",
    "an action file is missing": f"rm {ACTION}",
    "others may write to an action file": f"chmod 666 {ACTION}",
    "launchctl is missing": f"rm {LAUNCH_CONTROL}",
    "launchctl is not safe": f"chmod 777 {LAUNCH_CONTROL}",
    "the unit is missing": f"rm /lib/systemd/system/{LABEL}.service && systemctl daemon-reload",
    "a process that runs is registered": register_init,
}
# Brought about by the administrator, whose files these are.
CLEARING = (f"rm -rf {DROP_IN}; rm -f /etc/systemd/system/{LABEL}.socket "
            "/etc/systemd/system/com.corvane.authorization.socket; systemctl daemon-reload")


def bring_about(scenario, state):
    cause = STATES[state]
    if callable(cause):
        cause(scenario)
    else:
        scenario.run(cause)


def check_that_nothing_is_left(scenario, state):
    scenario.run(CLEARING)
    assert scenario.remains() == "", f"{state}: {scenario.remains()}"
    found = scenario.run(f"pgrep -a -f ^{DAEMON}", check=False).stdout
    assert found == "", f"{state}: {found}"
    units = scenario.run("systemctl list-units --state=active,failed --plain --no-legend "
                         "'com.corvane.*'").stdout
    assert units == "", f"{state}: {units}"
    assert scenario.run("systemctl is-system-running", check=False).stdout == "running\n", state


def the_package_is_removed_in_every_state(scenario):
    for state in STATES:
        scenario.client("nop")
        bring_about(scenario, state)
        scenario.run(f"dpkg --remove {HELPER_PACKAGE}")
        check_that_nothing_is_left(scenario, state)
        scenario.install_packages()


def the_package_is_removed_without_the_client(scenario):
    scenario.run(f"dpkg --remove {CLIENT_PACKAGE} && dpkg --remove {HELPER_PACKAGE}")
    check_that_nothing_is_left(scenario, "the client is missing")
    scenario.install_packages()


def the_package_is_removed_while_a_client_is_at_work(scenario):
    path = scenario.immutable_file()
    terminal = scenario.request_that_waits_for_a_password(path)
    scenario.run(f"dpkg --remove {HELPER_PACKAGE}")
    check_that_nothing_is_left(scenario, "a client is at work")
    assert terminal.wait() == 5, terminal.seen
    scenario.run(f"chattr -i {path} && rm {path}")
    scenario.install_packages()


STEPS = [
    the_package_is_removed_in_every_state,
    the_package_is_removed_without_the_client,
    the_package_is_removed_while_a_client_is_at_work,
]
