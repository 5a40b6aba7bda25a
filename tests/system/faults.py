"""What breaks is seen, named and mended: each state as the doctor tells it to root and to an ordinary
user, and what `install` makes of it."""

import json

from broken_states import ACTION, DROP_IN
from names import (CLIENT, DAEMON, HELPER_PACKAGE, ISSUER, KEY, LABEL, NOTHING_CHANGED, SOCKETS)

SERVICE, SOCKET = f"{LABEL}.service", f"{LABEL}.socket"
ISSUER_SOCKET = "com.corvane.authorization.socket"
TWIN = "/var/lib/com.corvane.authorization/rights/com.corvane.vnt.delete-fileobjects.plist"
RULES = "/etc/polkit-1/rules.d"
USERS = ("root", "alice")


def rows(scenario, user):
    found = scenario.run(f"{scenario.program} --json doctor", user, check=False).stdout
    return json.loads(found)["result"]


def check_that_it_is_told(scenario, subject, state, detail, advice):
    """To whoever asks. Gives what root is told."""
    for user in reversed(USERS):
        found = rows(scenario, user)
        assert any(row["subject"] == subject and row["state"] == state and
                   row["detail"].startswith(detail) and advice in row["advice"] for row in found), \
            f"{user}: {detail}: {found}"
    return found


def check_that_all_is_well(scenario):
    assert scenario.client("install").stdout == NOTHING_CHANGED
    # What polkit is to know of it learns in a moment.
    scenario.machine.wait_until(f"{scenario.program} doctor", "the doctor finds nothing wrong")
    found = rows(scenario, "root")
    assert all(row["state"] == "ok" for row in found), found
    found = rows(scenario, "alice")
    assert all(row["state"] == "ok" for row in found
               if row["subject"] in ("helper", "authorization", "rights", "installation")), found


def a_socket_that_was_stopped_while_a_client_is_at_work_is_told(scenario):
    path = scenario.immutable_file()
    terminal = scenario.request_that_waits_for_a_password(path)
    scenario.run(f"systemctl stop {SOCKET}")
    refused = scenario.client("install", status=1).stderr
    assert f"{SOCKET} cannot be started while {SERVICE} runs" in refused, refused
    assert f"systemctl stop {SERVICE}" in refused, refused
    scenario.answer(terminal)
    scenario.client("install")
    check_that_all_is_well(scenario)


# What each brings about, and what is told then: subject, and parts of the detail and of the advice.
MENDED_BY_INSTALL = [
    (f"echo '<' > {ACTION}", "rights", f"{ACTION} is damaged", "Run 'install' as root"),
    (f"rm {ACTION}", "rights", f"{ACTION} is missing", "Run 'install' as root"),
    (f"chmod 666 {ACTION}", "rights", f"{ACTION} can be changed by others than root",
     "'install' as root"),
    (f"sed -i s/auth_admin_keep/yes/ {ACTION}", "rights",
     f"{ACTION} differs from what is shipped: it says 'yes' instead of 'auth_admin_keep'", RULES),
    (f"echo '<' > {TWIN}", "rights", f"{TWIN} is damaged", "Run 'install' as root"),
    (f"rm {TWIN}", "rights", f"{TWIN} is missing", "Run 'install' as root"),
    (f"systemctl stop {SOCKET}", "installation", f"{SOCKET} is stopped", "Run 'install'"),
    (f"systemctl stop {ISSUER_SOCKET}", "installation", f"{ISSUER_SOCKET} is stopped",
     "Run 'install'"),
    (f"systemctl disable {SOCKET}", "installation", f"{SOCKET} is disabled",
     f"systemctl enable {SOCKET}"),
]


def what_install_mends_is_told_and_mended(scenario):
    for cause, subject, detail, advice in MENDED_BY_INSTALL:
        scenario.run(cause)
        found = check_that_it_is_told(scenario, subject, "PROBLEM", detail, advice)
        told = scenario.client("install").stdout
        assert told.endswith("The helper is installed.\n"), told
        assert any(state in told for state in ("added", "replaced")), (cause, told)
        assert "only root" not in json.dumps(found), found
        check_that_all_is_well(scenario)


def rights_that_were_registered_before_polkit_came_are_completed(scenario):
    scenario.run(f"mkdir /root/actions && mv {ACTION.rsplit('/', 1)[0]}/com.corvane.vnt.* /root/actions")
    check_that_it_is_told(scenario, "rights", "PROBLEM", "none of 8 is registered", "'install'")
    assert scenario.client("install").stdout.count("added") == 8
    scenario.run("rm -r /root/actions")
    check_that_all_is_well(scenario)


def a_damaged_key_is_made_anew(scenario):
    scenario.run(f"systemctl stop com.corvane.authorization.service; echo damaged > {KEY}")
    scenario.client("nop", "alice")
    check_that_all_is_well(scenario)


# The same of the files of the package, which `install` leaves to it.
MENDED_BY_THE_PACKAGE = [
    (f"rm {DAEMON}", f"{DAEMON} is missing"),
    (f"chmod 644 {DAEMON}", f"{DAEMON} cannot be executed"),
    (f"chmod 757 {DAEMON}", f"{DAEMON} can be changed by others than root"),
    (f"echo >> {ISSUER}", f"{ISSUER} is not as the package {HELPER_PACKAGE} has it"),
    (f"rm {ISSUER}", f"{ISSUER} is missing"),
    (f"rm /lib/systemd/system/{SOCKET} && systemctl daemon-reload && systemctl stop {SOCKET}",
     f"{SOCKET} is missing"),
    (f"rm /lib/systemd/system/{SERVICE} && systemctl daemon-reload", f"{SERVICE} is missing"),
]


def what_the_package_mends_is_told_and_mended(scenario):
    reinstalling = f"apt install --reinstall {HELPER_PACKAGE}"
    for cause, detail in MENDED_BY_THE_PACKAGE:
        scenario.run(f"systemctl stop {SERVICE} com.corvane.authorization.service; {cause}")
        advice = reinstalling if detail.startswith("/") else ""
        check_that_it_is_told(scenario, "installation", "PROBLEM", detail, advice)
        refused = scenario.client("install", status=1).stderr
        assert reinstalling in refused, refused
        scenario.install_packages()
        scenario.client("install")
        check_that_all_is_well(scenario)


def a_helper_that_keeps_failing_is_told_with_its_log(scenario):
    scenario.run(f"systemctl stop {SERVICE}; printf '#!/bin/sh\\nkill -s SEGV $$\\n' > {DAEMON}")
    scenario.client("version", status=5)
    scenario.machine.wait_until(f"systemctl is-failed {SOCKET}", "it is given up")
    found = check_that_it_is_told(scenario, "installation", "PROBLEM", f"{SERVICE} has failed",
                                  f"journalctl -u {SERVICE}")
    assert found[0]["state"] == "PROBLEM" and "journalctl -u" in found[0]["advice"], found
    scenario.install_packages()
    check_that_all_is_well(scenario)


def what_an_administrator_masked_stays_masked_and_is_told(scenario):
    for unit in (*SOCKETS.split(), SERVICE):
        scenario.run(f"systemctl mask --now {unit}")
        check_that_it_is_told(scenario, "installation", "PROBLEM", f"{unit} is masked",
                              f"systemctl unmask {unit}")
        refused = scenario.client("install", status=1).stderr
        assert f"{unit} is masked" in refused and f"systemctl unmask {unit}" in refused, refused
        scenario.run(f"systemctl unmask {unit}")
        scenario.client("install")
        check_that_all_is_well(scenario)


def what_changes_a_unit_is_named(scenario):
    with scenario.changed_service("MemoryMax=512M"):
        found = check_that_it_is_told(scenario, "installation", "note",
                                      f"{SERVICE} is changed by {DROP_IN}/changed.conf",
                                      "systemctl cat")
        assert all(row["state"] in ("ok", "note") for row in found), found
        assert scenario.client("install").stdout == NOTHING_CHANGED
    with scenario.changed_service("User=nobody"):
        scenario.run(f"systemctl stop {SERVICE}")
        check_that_it_is_told(scenario, "installation", "PROBLEM", f"{SERVICE} runs as nobody",
                              f"systemctl cat {SERVICE}")
        refused = scenario.client("install", status=1).stderr
        assert "runs as nobody" in refused, refused
    scenario.client("install")
    check_that_all_is_well(scenario)


def without_the_system_bus_nothing_false_is_told(scenario):
    scenario.run("systemctl stop dbus.socket dbus.service")
    scenario.machine.wait_until("! pgrep -x dbus-daemon", "the bus is down")
    try:
        found = [row for row in rows(scenario, "alice") if row["subject"] == "installation"]
        assert [row["state"] for row in found] == ["unknown"], found
        assert "systemd cannot be asked" in found[0]["detail"], found
        assert "dbus.socket" in found[0]["advice"], found
        found = [row for row in rows(scenario, "root") if row["subject"] == "installation"]
        assert [row["state"] for row in found] == ["ok"], found
    finally:
        scenario.run("systemctl start dbus.socket dbus.service && "
                     "systemctl restart systemd-logind polkit")
    check_that_all_is_well(scenario)


def helper_pid(scenario):
    return scenario.run(f"systemctl show -p MainPID --value {SERVICE}").stdout.strip()


def leave_a_number_behind(scenario):
    """A client that is killed while its request waits; the helper's process stays."""
    path = scenario.immutable_file()
    terminal = scenario.request_that_waits_for_a_password(path)
    pid = helper_pid(scenario)
    scenario.run(f"kill -KILL {scenario.client_pid()}")
    terminal.wait()
    scenario.run(f"chattr -i {path} && rm {path}")
    assert helper_pid(scenario) == pid != "0"
    return pid


def an_upgrade_replaces_a_helper_whose_clients_are_dead(scenario):
    pid = leave_a_number_behind(scenario)
    scenario.machine.wait_until(f"! grep -q ' 03 *[0-9]* /run/{LABEL}/socket$' /proc/net/unix",
                                "the helper has seen the client's end")
    scenario.upgrade("1.3+dead")
    scenario.run("dpkg -i /root/upgrade.deb")
    scenario.machine.wait_until(f"test ! -e /proc/{pid}", "the old helper has ended")
    check_that_all_is_well(scenario)
    scenario.install_packages()


def a_helper_that_is_not_the_installed_one_is_noted_until_install_ends_it(scenario):
    path = scenario.immutable_file()
    terminal = scenario.request_that_waits_for_a_password(path)
    pid = helper_pid(scenario)
    scenario.upgrade("1.3+work")
    scenario.run("dpkg -i /root/upgrade.deb")
    found = rows(scenario, "root")
    assert any(row["state"] == "note" and f"runs as process {pid} with another program" in
               row["detail"] for row in found), found
    found = rows(scenario, "alice")
    assert any(row["state"] == "unknown" and f"runs as process {pid} since before" in
               row["detail"] for row in found), found
    # Nobody at work is disturbed.
    assert scenario.client("install").stdout == NOTHING_CHANGED
    assert helper_pid(scenario) == pid
    scenario.run(f"kill -KILL {scenario.client_pid()}")
    terminal.wait()
    scenario.run(f"chattr -i {path} && rm {path}")
    scenario.machine.wait_until(f"{CLIENT} install >/dev/null; test ! -e /proc/{pid}",
                                "the old helper has ended")
    check_that_all_is_well(scenario)
    scenario.install_packages()


STEPS = [
    what_install_mends_is_told_and_mended,
    a_socket_that_was_stopped_while_a_client_is_at_work_is_told,
    rights_that_were_registered_before_polkit_came_are_completed,
    a_damaged_key_is_made_anew,
    what_the_package_mends_is_told_and_mended,
    a_helper_that_keeps_failing_is_told_with_its_log,
    what_an_administrator_masked_stays_masked_and_is_told,
    what_changes_a_unit_is_named,
    an_upgrade_replaces_a_helper_whose_clients_are_dead,
    a_helper_that_is_not_the_installed_one_is_noted_until_install_ends_it,
    without_the_system_bus_nothing_false_is_told,
]
