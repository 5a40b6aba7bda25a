"""The helper of those without the package: what a client built from the sources puts in place and
removes again."""

import glob
import json
import shutil

from broken_states import STATES, bring_about, check_that_nothing_is_left
from names import DAEMON, LABEL, NOTHING_CHANGED, NOTHING_LEFT

LOCK = "/run/com.corvane.installation"


def a_client_installs_the_helper(scenario):
    scenario.use_client_of_the_sources()
    assert scenario.remains() == ""
    assert scenario.client("install").stdout.endswith("The helper is installed.\n")
    assert scenario.client("install").stdout == NOTHING_CHANGED
    scenario.client("nop", "alice")


def an_upgrade_replaces_the_issuer_of_older_versions(scenario):
    units, name = "/usr/lib/systemd/system", "com.corvane.authorization"
    scenario.run(f"systemctl stop {name}.socket {name}.service; cd {units}; "
                 f"sed s/30$// {name}.service > {name}@.service; rm {name}.service; "
                 f"sed -i s/^Backlog=.*/Accept=yes/ {name}.socket; "
                 f"systemctl daemon-reload; systemctl start {name}.socket")
    scenario.client("install")
    scenario.client("nop", "alice")
    scenario.run(f"systemctl is-active {name}.service && test ! -e {units}/{name}@.service")
    assert scenario.client("install").stdout == NOTHING_CHANGED


def uninstalling_is_refused_while_another_client_is_at_work(scenario):
    path = scenario.immutable_file()
    terminal = scenario.request_that_waits_for_a_password(path)
    refused = scenario.client("uninstall", status=1).stderr
    assert f"'privilegerequest' of user alice with process id {scenario.client_pid()}" in refused, \
        refused
    assert "'uninstall --force'" in refused, refused
    assert scenario.client("install").stdout == NOTHING_CHANGED
    scenario.answer(terminal)


def an_unsafe_launchctl_stands_in_the_way_of_uninstalling(scenario):
    scenario.run("chmod 777 /bin/launchctl")
    refused = scenario.client("uninstall", status=1).stderr
    assert "/bin/launchctl is not safe to run" in refused and "--force" in refused, refused
    scenario.run(f"test -e {DAEMON}")
    assert "replaced   /bin/launchctl" in scenario.client("install").stdout
    scenario.run("rm /bin/launchctl")
    refused = scenario.client("uninstall", status=1).stderr
    assert "/bin/launchctl is missing" in refused, refused
    scenario.client("install")


def the_helper_removes_itself(scenario):
    scenario.run(f"chattr +i {DAEMON}")
    told = scenario.client("uninstall").stdout
    assert "it has removed itself" in told and told.endswith(NOTHING_LEFT), told
    assert "LEFT" not in told
    scenario.run(f"systemctl status {LABEL}.service; test $? = 4")
    check_that_nothing_is_left(scenario, "after it removed itself")
    assert "is not installed" in scenario.client("uninstall").stdout


def a_forced_removal_removes_in_every_state(scenario):
    for state in STATES:
        scenario.client("--quiet install")
        scenario.client("nop")
        bring_about(scenario, state)
        told = scenario.client("uninstall --force").stdout
        assert told.endswith(NOTHING_LEFT), told
        check_that_nothing_is_left(scenario, state)


def an_install_that_fails_leaves_the_system_as_it_was(scenario):
    scenario.run("systemctl mask com.corvane.authorization.socket")
    failed = scenario.client("install", status=1)
    assert "masked" in failed.stderr, failed.stderr
    scenario.run("systemctl unmask com.corvane.authorization.socket")
    assert scenario.remains() == ""
    scenario.run("printf '#!/bin/sh\\n' > /bin/launchctl && chmod 755 /bin/launchctl")
    failed = scenario.client("install", status=1)
    assert "another program" in failed.stderr, failed.stderr
    scenario.run("rm /bin/launchctl")
    assert scenario.remains() == ""


def a_killed_install_is_completed_by_the_next(scenario):
    for seconds in (0.01, 0.02, 0.04, 0.1, 0.3):
        scenario.run(f"timeout -s KILL {seconds} {scenario.program} --quiet install", check=False)
        scenario.client("--quiet install")
        assert scenario.client("install").stdout == NOTHING_CHANGED
        doctor = json.loads(scenario.client("--json doctor").stdout)["result"]
        state = {row["subject"]: row["state"] for row in doctor}
        assert state["installation"] == "ok" and state["rights"] == "ok", doctor
        scenario.client("--quiet uninstall")
        assert scenario.remains() == ""


def no_user_holds_up_an_installation(scenario):
    """Whatever of the system an ordinary user can lock."""
    scenario.run("flock /usr/lib sleep 1000 >/dev/null 2>&1 &", "alice")
    scenario.machine.wait_until("grep -q FLOCK /proc/locks", "the folder is locked")
    scenario.client("--quiet install")
    scenario.client("--quiet uninstall")
    scenario.run("pkill -u alice sleep")


def whoever_waits_for_another_installation_is_told_and_can_be_ended(scenario):
    scenario.run(f"flock {LOCK} sleep 1000 >/dev/null 2>&1 &")
    scenario.machine.wait_until(f"! flock --nonblock {LOCK} true", "the lock is held")
    terminal = scenario.machine.terminal(f"exec {scenario.program} install", "root", False)
    terminal.expect("Waiting for another process, which is installing or removing the helper")
    terminal.type("\x03")
    assert terminal.wait() != 0
    scenario.run(f"pkill -x sleep; rm {LOCK}")
    assert scenario.remains() == ""


def what_all_helpers_share_stays_until_the_last_of_them_leaves(scenario):
    scenario.client("--quiet install")
    # Its package depends on the first product's, which is not there now.
    package, = glob.glob(f"{scenario.sources}/wanderer/*.deb")
    shutil.copy(package, scenario.machine.path("/root/wanderer.deb"))
    scenario.run("dpkg --force-depends -i /root/wanderer.deb")
    told = scenario.client("uninstall").stdout
    assert told.endswith(NOTHING_LEFT) and "com.corvane.authorization" not in told, told
    scenario.run("privilegerequestor-wanderer nop", "alice")
    scenario.run("dpkg --remove wanderer && rm /root/wanderer.deb")
    told = scenario.client("uninstall").stdout
    assert "removed    /usr/libexec/com.corvane.authorization\n" in told, told
    check_that_nothing_is_left(scenario, "after the last helper left")


STEPS = [
    a_client_installs_the_helper,
    an_upgrade_replaces_the_issuer_of_older_versions,
    uninstalling_is_refused_while_another_client_is_at_work,
    an_unsafe_launchctl_stands_in_the_way_of_uninstalling,
    the_helper_removes_itself,
    a_forced_removal_removes_in_every_state,
    an_install_that_fails_leaves_the_system_as_it_was,
    a_killed_install_is_completed_by_the_next,
    no_user_holds_up_an_installation,
    whoever_waits_for_another_installation_is_told_and_can_be_ended,
    what_all_helpers_share_stays_until_the_last_of_them_leaves,
]
