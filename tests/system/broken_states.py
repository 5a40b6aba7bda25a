"""A removal always removes: the helper in every state that it was seen to be broken in."""

import os
import subprocess
import time

from names import (ACTIONS, CLIENT_PACKAGE, DAEMON, HELPER_PACKAGE, ISSUER, KEY, LABEL,
                   LAUNCH_CONTROL, NOTHING_CHANGED)

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
# In which of them the helper cannot remove itself, and in which it can. Elsewhere that depends on what
# still runs.
CANNOT = ["the helper is missing", "the helper crashes", "the helper cannot be executed",
          "the helper runs as nobody", "the authorization socket is stopped",
          "launchctl is missing", "launchctl is not safe", "a process that runs is registered"]
CAN = ["the helper runs", "an action file is damaged", "an action file is missing",
       "others may write to an action file"]
ITSELF = [
    "the helper runs",
    "the key is damaged",
    "an action file is damaged",
    "an action file is missing",
    "others may write to an action file",
]
ITSELF = "The helper has removed itself."
WITHOUT_HELP = "The helper is removed without its help"
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
    assert {*CANNOT, *CAN} <= {*STATES}
    for state in STATES:
        scenario.client("nop")
        bring_about(scenario, state)
        removed = scenario.run(f"dpkg --remove {HELPER_PACKAGE}").stdout
        told = [line for line in removed.splitlines() if line.startswith("The helper ")]
        assert len(told) == 1, f"{state}: {removed}"
        assert state not in CANNOT or told[0].startswith(WITHOUT_HELP), f"{state}: {removed}"
        assert state not in CAN or told[0] == ITSELF, f"{state}: {removed}"
        check_that_nothing_is_left(scenario, state)
        scenario.install_packages()


def the_helper_removes_itself_before_its_package_goes(scenario):
    scenario.client("nop")
    mark = time.time()
    removed = scenario.run(f"dpkg --remove {HELPER_PACKAGE}")
    assert ITSELF in removed.stdout, removed.stdout
    # dpkg finds files gone that it was to remove, and has nothing to say about it.
    assert removed.stderr == "", removed.stderr
    scenario.run("journalctl --sync")
    told = scenario.run(f"journalctl -o cat SYSLOG_IDENTIFIER={LABEL} OPERATION=perform-uninstall "
                        f"OUTCOME=done CLIENT_USER=root --since=@{mark}").stdout
    assert told.count("\n") == 1 and DAEMON in told, told
    check_that_nothing_is_left(scenario, "the helper has removed itself")
    scenario.install_packages()


def a_removal_that_is_called_off_leaves_the_helper_as_it_was(scenario):
    """One in favour of another package, whose installation then fails."""
    folder = scenario.machine.path("/root/rival")
    os.makedirs(f"{folder}/DEBIAN")
    with open(f"{folder}/DEBIAN/control", "w", encoding="utf-8") as control:
        control.write("Package: rival\nVersion: 1\nArchitecture: all\nMaintainer: nobody\n"
                      f"Description: rival\nConflicts: {HELPER_PACKAGE}\n"
                      f"Replaces: {HELPER_PACKAGE}\n")
    with open(f"{folder}/DEBIAN/preinst", "w", encoding="utf-8") as script:
        script.write("#!/bin/sh\nexit 1\n")
    os.chmod(f"{folder}/DEBIAN/preinst", 0o755)
    scenario.run("dpkg-deb --build /root/rival /root/rival.deb")
    failed = scenario.run("dpkg --install /root/rival.deb", check=False)
    assert failed.returncode != 0, failed.stdout
    assert f"will remove {HELPER_PACKAGE} in favour of rival" in failed.stderr, failed.stderr
    assert ITSELF not in failed.stdout, failed.stdout
    assert scenario.run(f"dpkg --verify {HELPER_PACKAGE}").stdout == ""
    scenario.client("nop", "alice")
    assert scenario.client("install").stdout == NOTHING_CHANGED
    scenario.run("dpkg --purge rival; rm -r /root/rival /root/rival.deb")


def the_package_is_removed_without_the_client(scenario):
    removed = scenario.run(f"dpkg --remove {CLIENT_PACKAGE} && dpkg --remove {HELPER_PACKAGE}")
    assert WITHOUT_HELP in removed.stdout, removed.stdout
    check_that_nothing_is_left(scenario, "the client is missing")
    scenario.install_packages()


def the_package_is_removed_while_a_client_is_at_work(scenario):
    path = scenario.immutable_file()
    terminal = scenario.request_that_waits_for_a_password(path)
    removed = scenario.run(f"dpkg --remove {HELPER_PACKAGE}").stdout
    assert f"{WITHOUT_HELP}: another client is still working" in removed, removed
    check_that_nothing_is_left(scenario, "a client is at work")
    assert terminal.wait() == 5, terminal.seen
    scenario.run(f"chattr -i {path} && rm {path}")
    scenario.install_packages()


STEPS = [
    the_helper_removes_itself_before_its_package_goes,
    a_removal_that_is_called_off_leaves_the_helper_as_it_was,
    the_package_is_removed_in_every_state,
    the_package_is_removed_without_the_client,
    the_package_is_removed_while_a_client_is_at_work,
]
