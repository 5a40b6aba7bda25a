"""The packages as an administrator meets them: whose files are whose, upgrades, removal, purge."""

from names import (ACTIONS, CLIENT, CLIENT_PACKAGE, DAEMON, HELPER_PACKAGE, ISSUER, LABEL,
                   LAUNCH_CONTROL, NOTHING_CHANGED, SOCKETS)


def the_files_that_run_are_the_packages_own(scenario):
    run = scenario.run
    files = [DAEMON, ISSUER, f"/usr{LAUNCH_CONTROL}", f"/lib/systemd/system/{LABEL}.service",
             f"{ACTIONS}/com.corvane.vnt.*.policy"]
    for path in files:
        assert run(f"dpkg -S {path}").stdout.startswith(f"{HELPER_PACKAGE}: "), path
    assert run(f"dpkg -S /usr/bin/{CLIENT}").stdout.startswith(f"{CLIENT_PACKAGE}: ")
    assert run(f"ls {ACTIONS} | grep -c '^com.corvane.vnt.*policy'").stdout == "8\n"
    # Everything that registering the rights would write is there, and is what it would write.
    assert scenario.client("install").stdout == NOTHING_CHANGED
    assert run(f"dpkg -V {HELPER_PACKAGE} {CLIENT_PACKAGE}").stdout == ""
    told = run("pkaction --verbose --action-id com.corvane.vnt.delete-fileobjects").stdout
    for detail in ("vendor:            Corvane", "vendor_url:        https://www.corvane.com/",
                   "icon:              dialog-password", "implicit active:   auth_admin_keep"):
        assert detail in told, told


def the_client_leaves_a_package_to_dpkg(scenario):
    for command in ("uninstall", "uninstall --force"):
        refused = scenario.client(command, status=1).stderr
        assert f"belongs to the package {HELPER_PACKAGE}" in refused, refused
        assert f"apt remove {HELPER_PACKAGE}" in refused, refused
    scenario.run(f"systemctl stop com.corvane.authorization.service && echo >> {ISSUER}")
    refused = scenario.client("install", status=1).stderr
    assert ISSUER in refused and f"apt install --reinstall {HELPER_PACKAGE}" in refused, refused
    doctor = scenario.client("doctor", status=1).stdout
    assert ISSUER in doctor, doctor
    scenario.install_packages()
    assert scenario.client("install").stdout == NOTHING_CHANGED
    # What is no file of the package's the client puts right.
    scenario.run(f"systemctl disable --now {SOCKETS}")
    assert "com.corvane.authorization.socket" in scenario.client("install").stdout
    scenario.client("nop", "alice")


def an_upgrade_leaves_no_moment_without_the_helper(scenario):
    scenario.upgrade("1.3+second")
    scenario.run(f"dpkg -i /root/upgrade.deb >/dev/null & while kill -0 $! 2>/dev/null; do "
                 f"{CLIENT} nop || exit 1; done; wait $!")


def what_an_administrator_disabled_or_masked_stays_so_after_an_upgrade(scenario):
    run = scenario.run
    for command, state in (("disable", "disabled"), ("mask", "masked")):
        run(f"systemctl {command} --now {SOCKETS}")
        scenario.upgrade(f"1.3+{command}")
        run("dpkg -i /root/upgrade.deb")
        assert run(f"systemctl is-enabled {SOCKETS}", check=False).stdout == f"{state}\n" * 2
        assert run(f"systemctl is-active {SOCKETS}", check=False).stdout == "inactive\n" * 2
    run(f"systemctl unmask {SOCKETS} && systemctl enable --now {SOCKETS}")
    scenario.client("nop")


def a_policy_against_starting_services_is_heeded(scenario):
    scenario.remove_packages()
    policy = "/usr/sbin/policy-rc.d"
    scenario.run(f"printf '#!/bin/sh\\nexit 101\\n' > {policy} && chmod 755 {policy}")
    scenario.install_packages()
    scenario.run(f"rm {policy} && systemctl is-enabled {SOCKETS}")
    assert scenario.run(f"systemctl is-active {SOCKETS}", check=False).stdout == "inactive\n" * 2
    scenario.remove_packages()
    assert scenario.remains() == ""


def a_preset_is_heeded(scenario):
    preset = "/etc/systemd/system-preset/10-test.preset"
    scenario.run(f"mkdir -p /etc/systemd/system-preset && echo 'disable com.corvane.*' > {preset}")
    scenario.install_packages()
    scenario.run(f"rm {preset}")
    for question, answer in (("is-enabled", "disabled\n"), ("is-active", "inactive\n")):
        assert scenario.run(f"systemctl {question} {SOCKETS}", check=False).stdout == answer * 2
    scenario.remove_packages()
    assert scenario.remains() == ""
    scenario.install_packages()
    scenario.client("nop")


def the_packages_are_removed_and_purged(scenario):
    # A key, a form and a process that discarded its authorization.
    scenario.client("discard-auth", "alice")
    scenario.client("preferences set --app org.example.test key value")
    scenario.remove_packages()
    assert scenario.remains() == ""
    scenario.install_packages()
    scenario.client("doctor")
    scenario.run(f"dpkg --purge {HELPER_PACKAGE} {CLIENT_PACKAGE}")
    assert scenario.remains() == ""
    assert scenario.run("ls -A /var/lib/systemd/deb-systemd-helper-enabled/sockets.target.wants "
                        "2>/dev/null | grep corvane", check=False).stdout == ""
    # What was done for a user is the user's.
    scenario.run("find /root /etc/xdg -name 'org.example.test*plist' | grep . | xargs rm")
    assert scenario.run("systemctl is-system-running", check=False).stdout == "running\n"


STEPS = [
    the_files_that_run_are_the_packages_own,
    the_client_leaves_a_package_to_dpkg,
    an_upgrade_leaves_no_moment_without_the_helper,
    what_an_administrator_disabled_or_masked_stays_so_after_an_upgrade,
    a_policy_against_starting_services_is_heeded,
    a_preset_is_heeded,
]
