#!/usr/bin/python3
"""The packages on a system of their own, from their installation to their purge, and then what a
client installs that comes from the sources:

    system_test.py PACKAGES PROGRAMS SOURCES [--only daemon [-k NAME]... [--as USER]]

PACKAGES is the folder of the packages, PROGRAMS that of the built test programs, SOURCES one in which
the programs were installed to /usr/local, and in its folder wanderer is another product's package. The steps follow one another. With --only daemon nothing
is done but the tests of the daemon against the installed service: those whose name has NAME in it, of
root's client or of an ordinary user's. Exit status 77: no such system can be booted here.
"""

import argparse
import contextlib
import glob
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import time

import broken_states
import client_installation
import faults
import packages
import second_product
from machine import CannotBoot, Machine, check_tools
from confinement import MOST_EXPOSURE, analysis
from names import CLIENT, CLIENT_PACKAGE, DAEMON, HELPER_PACKAGE, LABEL, NOTHING_CHANGED, SOCKETS

TESTS = f"{os.path.dirname(os.path.abspath(__file__))}/.."
POLKIT_TESTS = "platform/linux/authorization"

# Who the tests of the daemon are run as: root, and a user whom polkit grants all of the helper's
# operations. The service, its units and its rights are as shipped; this is the administrator's.
CALLERS = ["root", "trusted"]
RULE = """
polkit.addRule(function(action, subject) {
  if (subject.user == 'trusted' && action.id.indexOf('com.corvane.vnt.') == 0) return 'yes';
});
"""


class Scenario:

    def __init__(self, machine, options):
        self.machine = machine
        self.packages = {name: glob.glob(f"{options.packages}/{name}_*.deb")[0]
                         for name in (HELPER_PACKAGE, CLIENT_PACKAGE)}
        self.programs = options.programs
        self.sources = options.sources
        self.options = options
        self.program = CLIENT
        self.run = machine.run

    def client(self, arguments, user="root", status=0):
        result = self.run(f"{self.program} {arguments}", user, check=False)
        assert result.returncode == status, \
            f"{arguments}: status {result.returncode}\n{result.stdout}{result.stderr}"
        return result

    def install_packages(self):
        for name, package in self.packages.items():
            shutil.copy(package, self.machine.path(f"/root/{name}.deb"))
        self.run("dpkg -i " + " ".join(f"/root/{name}.deb" for name in self.packages))

    def remove_packages(self):
        self.run(f"dpkg --remove {' '.join(self.packages)}")

    def use_client_of_the_sources(self):
        """From here on, without any package."""
        shutil.copytree(f"{self.sources}/usr/local", self.machine.path("/usr/local"),
                        dirs_exist_ok=True)
        self.program = f"/usr/local/bin/{CLIENT}"

    def remains(self):
        """Every file whose name says that it is ours, but those of packages and of the sources."""
        return self.run(
            "find / -xdev \\( -path /var/log -o -path /var/lib/dpkg -o -path /usr/local "
            "-o -path /root \\) -prune -o \\( -name '*corvane*' -o -name launchctl \\) -print | "
            "while read -r path; do dpkg -S \"$path\" >/dev/null 2>&1 || "
            "dpkg -S \"${path#/usr}\" >/dev/null 2>&1 || echo \"$path\"; done; "
            "find /run /tmp -name '*corvane*'").stdout

    def immutable_file(self, path="/srv/protected"):
        quoted = shlex.quote(path)
        self.run(f"echo contents > {quoted} && chattr +i {quoted}")
        return path

    def protected_tree(self, path="/srv/tree"):
        """A folder in a folder, with what a deletion may meet in it. Both folders are immutable."""
        self.run(f"mkdir -p {path}/inner && cd {path}/inner && echo contents > file && "
                 "mkfifo fifo && mknod device c 1 3 && ln -s file link && "
                 f"chattr +i {path}/inner/file && chattr +i {path}/inner {path}")
        return path

    def request_that_waits_for_a_password(self, what, is_login=True):
        """A deletion in progress: an ordinary user is asked for the administrator's password."""
        terminal = self.machine.terminal(f"{self.program} delete {what}", "alice", is_login)
        terminal.expect("Password: ")
        # The agent shows its prompt, then drops what has been typed and no longer echoes.
        self.machine.wait_until(
            "stty -a -F /proc/$(pgrep -x pkttyagent)/fd/0 | grep -q -- ' -echo '",
            "what is typed is unseen")
        return terminal

    def answer(self, terminal):
        terminal.type("admins-password\n")
        status = terminal.wait()
        assert status == 0, terminal.seen

    def client_pid(self):
        return self.run(f"pgrep -u alice -f '^{self.program}'").stdout.split()[0]

    def upgrade(self, version):
        """Puts the helper's package there as if of another version, with another program in it."""
        folder = tempfile.mkdtemp(prefix="corvane-package.")
        try:
            subprocess.run(["dpkg-deb", "-R", self.packages[HELPER_PACKAGE], f"{folder}/tree"],
                           check=True)
            with open(f"{folder}/tree{DAEMON}", "ab") as program:
                program.write(version.encode())
            subprocess.run("md5sum $(cut -c35- DEBIAN/md5sums) > sums && mv sums DEBIAN/md5sums",
                           shell=True, check=True, cwd=f"{folder}/tree")
            control = f"{folder}/tree/DEBIAN/control"
            with open(control, encoding="utf-8") as file:
                text = re.sub(r"^Version: .*$", f"Version: {version}", file.read(), flags=re.M)
            with open(control, "w", encoding="utf-8") as file:
                file.write(text)
            subprocess.run(["dpkg-deb", "--root-owner-group", "-b", f"{folder}/tree",
                            self.machine.path("/root/upgrade.deb")],
                           stdout=subprocess.DEVNULL, check=True)
        finally:
            shutil.rmtree(folder)

    def journal(self, mark):
        lines = self.run(f"journalctl -o json -t {LABEL} --since=@{mark}").stdout.splitlines()
        return [json.loads(line) for line in lines]

    @contextlib.contextmanager
    def changed_service(self, *lines):
        """The helper's service with other settings, for a while."""
        drop_in = f"/etc/systemd/system/{LABEL}.service.d"
        os.makedirs(self.machine.path(drop_in))
        with open(self.machine.path(f"{drop_in}/changed.conf"), "w", encoding="utf-8") as file:
            file.write("\n".join(["[Service]", *lines, ""]))
        self.run("systemctl daemon-reload")
        try:
            yield
        finally:
            self.run(f"rm -r {drop_in} && systemctl daemon-reload && "
                     f"systemctl reset-failed {LABEL}.service")

    def diagnosis(self, user="root", status=0):
        """What the doctor finds, by subject."""
        found = self.client("--json doctor", user, status)
        return {row["subject"]: row for row in json.loads(found.stdout)["result"]}

    # The steps, in their order.

    def the_package_installs_and_nothing_runs(self):
        assert self.remains() == ""
        self.install_packages()
        self.run(f"systemctl is-enabled {SOCKETS} && systemctl is-active {SOCKETS}")
        assert self.run(f"systemctl is-active {LABEL}.service", check=False).stdout == "inactive\n"
        assert self.client("operations").stdout.count(" yes") == 8

    def installing_again_changes_nothing(self):
        before = self.run(f"stat -c %i,%Z {DAEMON} /bin/launchctl").stdout
        assert self.client("install").stdout == NOTHING_CHANGED
        assert self.run(f"stat -c %i,%Z {DAEMON} /bin/launchctl").stdout == before

    def an_ordinary_user_can_neither_install_nor_uninstall(self):
        for command in ("install", "uninstall"):
            refused = self.client(command, "alice", status=3)
            assert "Only root may" in refused.stderr and "as root" in refused.stderr
            terminal = self.machine.terminal(f"{CLIENT} {command}", "alice", False)
            terminal.expect(f"su -c '{CLIENT} {command}'")
            assert terminal.wait() == 3

    def the_services_are_confined(self):
        for unit, most in MOST_EXPOSURE.items():
            command = shlex.join(analysis(most, unit.replace("@", "@x")))
            assert "Overall exposure level" in self.run(command).stdout

    def a_connection_starts_the_helper_and_its_end_ends_it(self):
        # More often than a helper may be started that fails.
        for _ in range(8):
            assert self.client("version", "alice").stdout == "1.3\n"
            self.machine.wait_until(f"! systemctl is-active {LABEL}.service",
                                    "the helper has ended")
        assert self.run(f"systemctl show -p Result --value {LABEL}.service").stdout == "success\n"

    def an_ordinary_user_deletes_with_an_administrators_password(self):
        for is_login in (True, False):
            path = self.immutable_file()
            self.client(f"delete {path}", "alice", status=3)
            self.run(f"test -e {path}")
            terminal = self.request_that_waits_for_a_password(path, is_login)
            assert f"delete '{path}'" in terminal.seen, terminal.seen
            self.answer(terminal)
            self.run(f"test ! -e {path}")

    def a_protected_tree_is_deleted(self):
        path = self.protected_tree()
        self.client(f"delete -r {path}")
        self.run(f"test ! -e {path}")
        self.answer(self.request_that_waits_for_a_password(f"-r {self.protected_tree()}"))
        self.run(f"test ! -e {path}")

    def root_runs_a_utility(self):
        listed = self.client(f"execute launchctl list {LABEL}").stdout
        assert f'"Label" = "{LABEL}";' in listed and '"PID" = ' in listed, listed

    def debug_mode_is_seen_in_the_journal_with_its_fields(self):
        mark = int(time.time()) - 1
        self.client("debug on")
        self.client("nop")
        self.run("journalctl --sync")
        entries = [entry for entry in self.journal(mark) if entry["PRIORITY"] == "5"]
        beginning = [entry for entry in entries
                     if entry["MESSAGE"].startswith("Beginning work for client ")]
        assert len(beginning) == 1, entries
        fields = {key: beginning[0][key] for key in
                  ("SENDER", "SYSLOG_IDENTIFIER", "SYSLOG_FACILITY", "_SYSTEMD_UNIT", "_UID")}
        assert fields == {"SENDER": LABEL, "SYSLOG_IDENTIFIER": LABEL, "SYSLOG_FACILITY": "3",
                          "_SYSTEMD_UNIT": f"{LABEL}.service", "_UID": "0"}, fields

    def no_name_of_a_file_hides_a_line_of_the_journal(self):
        mark = int(time.time()) - 1
        self.client("debug on")
        path = '"$(printf "/srv/a\\033[31m\\nb")"'
        self.run(f"touch {path}")
        self.client(f"delete-files {path}")
        self.run(f"test ! -e {path}")
        self.run("journalctl --sync")
        # What it cannot show as text it would show as numbers.
        messages = [entry["MESSAGE"] for entry in self.journal(mark)]
        assert all(isinstance(message, str) for message in messages), messages
        assert any("'/srv/a\\x1b[31m\\x0ab'" in message for message in messages), messages

    def forms_come_while_a_user_keeps_connecting(self):
        flood = ("use Socket; my $address = pack_sockaddr_un('/run/com.corvane.authorization/socket');"
                 "my @kept; while (1) { socket(my $asking, PF_UNIX, SOCK_STREAM, 0) or die;"
                 "connect($asking, $address) or die; push(@kept, $asking);"
                 "if (@kept == 450) { open(my $ready, '>', '/tmp/flooding'); splice(@kept, 400); } }")
        for _ in range(3):
            self.run(f"setsid perl -e {shlex.quote(flood)} >/dev/null 2>&1 &", "alice")
        self.machine.wait_until("test -e /tmp/flooding", "they keep connecting")
        for _ in range(20):
            self.client("nop", "admin")
        assert self.run("pgrep -c perl").stdout == "3\n"
        assert self.run("pgrep -c -f '^/usr/libexec/com.corvane.authorization'").stdout == "1\n"
        self.run("pkill perl; rm /tmp/flooding")

    def the_issuer_ends_when_nobody_comes_and_starts_again(self):
        unit = "com.corvane.authorization.service"
        self.client("nop", "alice")
        self.run(f"systemctl is-active {unit}")
        self.run(f"systemctl stop {unit}")
        self.client("nop", "alice")
        assert self.run(f"systemctl show -p Result --value {unit}").stdout == "success\n"

    def what_the_helper_writes_to_standard_error_is_in_the_journal(self):
        mark = int(time.time()) - 1
        self.run("mkdir -p /root/.config/preferences")
        self.run("printf '<plist>' >/root/.config/preferences/org.example.broken.plist")
        told = self.client("preferences set --app org.example.broken --any-host key value",
                           status=1)
        self.run("rm /root/.config/preferences/org.example.broken.plist")
        advice = f"journalctl -u {LABEL} -g 'were not written'"
        assert advice in told.stderr, told.stderr
        self.run("journalctl --sync")
        assert "org.example.broken" in self.run(advice).stdout
        reasons = [entry["MESSAGE"] for entry in self.journal(mark)
                   if entry["_TRANSPORT"] == "stdout"]
        assert len(reasons) == 1 and reasons[0].startswith(
            "Preferences of 'org.example.broken' for user 'root' and host "
            "'kCFPreferencesAnyHost' were not written: Line 1: "), reasons

    def the_line_about_the_shutdown_is_in_the_journal(self):
        with self.changed_service("User=nobody", "Restart=no"):
            mark = time.time()
            self.run(f"systemctl start {LABEL}.service", check=False)
            self.machine.wait_until(f"systemctl is-failed {LABEL}.service", "the helper has ended")
        self.run("journalctl --sync")
        entries = [(entry["PRIORITY"], entry["MESSAGE"]) for entry in self.journal(mark)]
        assert entries == [("3", "This program needs root privileges."),
                           ("6", "Privileged helper is shutting down.")], entries
        told = self.run(f"journalctl -o cat _PID=1 UNIT={LABEL}.service --since=@{mark}").stdout
        assert f"{LABEL}.service: Failed with result 'exit-code'." in told, told

    def the_doctor_finds_out_that_the_helper_cannot_do_its_work(self):
        with self.changed_service("CapabilityBoundingSet=~CAP_LINUX_IMMUTABLE"):
            assert self.diagnosis(status=1)["deletion"]["state"] == "PROBLEM"
        assert self.diagnosis()["deletion"]["state"] == "ok"
        assert self.run("find /var/tmp -name 'corvane*'").stdout == ""
        # Who may not have it tried is told so.
        assert self.diagnosis("alice", status=1)["deletion"]["state"] == "unknown"

    def each_operation_works_in_the_confinement(self):
        self.run("mkdir /srv/kinds && cd /srv/kinds && mkfifo fifo && mknod device c 1 3 && "
                 "ln -s nowhere link && perl -MIO::Socket::UNIX -e "
                 "'IO::Socket::UNIX->new(Local => \"socket\", Listen => 1) or die' && "
                 "echo contents > append && chattr +a append && "
                 "echo contents > system && "
                 "setfattr -n trusted.corvane.flags -v '\"0x20000\"' system && chattr +i system")
        self.client("delete /srv/kinds/fifo /srv/kinds/device /srv/kinds/link /srv/kinds/socket "
                    "/srv/kinds/append")
        assert self.run("ls /srv/kinds").stdout == "system\n"
        refused = self.client("delete /srv/kinds/system", status=1)
        assert "Single User Mode" in refused.stderr, refused.stderr
        self.run("chattr -i /srv/kinds/system && rm -r /srv/kinds && echo contents > /srv/file")
        self.client("delete-files /srv/file")
        self.run("test ! -e /srv/file")
        for user in ("root", "alice"):
            domain = f"--user {user} --app com.example.confined"
            self.client(f"preferences set {domain} key value")
            assert self.client(f"preferences get {domain} key", user).stdout == "value\n"
            self.client(f"preferences remove {domain} key")
        self.client("nop", "alice")
        self.client("discard-auth", "alice")

    def a_child_that_cannot_be_ended_holds_up_nobody(self):
        shutil.copy(f"{self.programs}/daemon/silent-file-system",
                    self.machine.path("/usr/local/bin/silent-file-system"))
        folder = "/home/alice/.config"
        unkillable = "ps -o stat= -u alice | grep -q ^D"
        self.run("test -e /dev/fuse || mknod -m 666 /dev/fuse c 10 229; "
                 f"install -d -o alice -g alice {folder} && "
                 "systemd-run --quiet --collect --unit=silent "
                 f"/usr/local/bin/silent-file-system {folder} $(id -u alice) $(id -g alice)")
        self.machine.wait_until(f"grep -q ' {folder} fuse ' /proc/mounts", "it is mounted")
        try:
            self.client("preferences set --user alice --app com.example.app key value", status=1)
            self.client("nop", "admin")
            self.client("nop")
            # It still cannot be ended.
            self.run(unkillable)
        finally:
            self.run(f"systemctl kill --signal=KILL silent; umount -l {folder}; "
                     "rm -r /usr/local/bin/silent-file-system /home/alice/.config")
        self.machine.wait_until(f"! {unkillable}", "it has ended")

    def a_broken_helper_is_given_up_and_seen(self):
        for breaking in (f"rm {DAEMON}",
                         f"printf '#!/bin/sh\\nkill -SEGV $$\\n' > {DAEMON}"):
            self.run(f"{breaking} && journalctl --sync")
            mark = time.time()
            self.client("version", status=5)
            self.machine.wait_until(f"systemctl is-failed {LABEL}.socket", "it is given up")
            failed = self.run("systemctl --failed --plain --no-legend").stdout
            assert f"{LABEL}.socket" in failed and f"{LABEL}.service" in failed, failed
            told = self.run(f"journalctl -o cat _PID=1 UNIT={LABEL}.service --since=@{mark}").stdout
            assert told.count("Starting ") == 5, told
            self.install_packages()
            self.client("version", "alice")
            assert self.run("systemctl --failed --plain --no-legend").stdout == ""

    def the_journal_tells_who_had_what_done(self):
        mark = int(time.time()) - 1
        path = self.immutable_file("/srv/audited\nfile")
        self.run(f"{CLIENT} delete {shlex.quote(path)}")
        self.client("delete /srv/nothing-there", "alice", status=3)
        self.run("journalctl --sync")
        shown = self.run("journalctl -o json MESSAGE_ID=17e91f8b9aed42e595b17c1fb4f7d4ab "
                         f"--since=@{mark}").stdout.splitlines()
        done, refused = (json.loads(line) for line in shown)
        wanted = {"OPERATION": "delete-fileobjects", "OUTCOME": "done", "CLIENT_USER": "root",
                  "CLIENT_PROGRAM": f"/usr/bin/{CLIENT}", "PRIORITY": "5", "SYSLOG_FACILITY": "10"}
        assert wanted.items() <= done.items(), done
        assert r"'/srv/audited\x0afile': done" in done["MESSAGE"], done
        assert refused["OUTCOME"] == "refused" and refused["CLIENT_USER"] == "alice", refused
        assert "ARGUMENT" not in refused, refused

    def clients_that_come_and_go_see_no_helper_end(self):
        shutil.copy(f"{self.programs}/daemon/hammer", self.machine.path("/usr/local/bin/hammer"))
        self.run(f"hammer /run/{LABEL}/socket /run/com.corvane.authorization/socket 12 10", "alice")
        self.run("rm /usr/local/bin/hammer")
        assert self.run("systemctl is-system-running", check=False).stdout == "running\n"

    def the_tests_of_the_daemon_pass(self):
        here = "/usr/local/lib/tests"
        for folder in ("daemon", "support", "system", POLKIT_TESTS):
            shutil.copytree(f"{TESTS}/{folder}", self.machine.path(f"{here}/{folder}"))
        for program in os.listdir(f"{self.programs}/daemon"):
            path = f"{self.programs}/daemon/{program}"
            if os.path.isfile(path) and os.access(path, os.X_OK):
                shutil.copy(path, self.machine.path(f"{here}/{program}"))
        with open(self.machine.path("/etc/polkit-1/rules.d/10-tests.rules"), "w",
                  encoding="utf-8") as rule:
            rule.write(RULE)
        self.machine.wait_until(
            f"setpriv --reuid=trusted --regid=trusted --init-groups {CLIENT} delete -r /none",
            "polkit knows the rule")
        patterns = [part for pattern in self.options.patterns for part in ("-k", pattern)]
        failed = [caller for caller in self.options.callers if self.machine.show(shlex.join(
            ["env", "TMPDIR=/var/tmp", "PYTHONDONTWRITEBYTECODE=1", "CORVANE_PROGRAMS=/usr/libexec",
             f"CORVANE_TEST_PROGRAMS={here}", "CORVANE_SOURCES=",
             f"CORVANE_CAMPAIGN_SECONDS={os.environ.get('CORVANE_CAMPAIGN_SECONDS', '1')}",
             "/usr/bin/python3",
             f"{here}/system/suite.py", f"{here}/daemon", f"{here}/{POLKIT_TESTS}",
             "--as", caller, *patterns]))]
        assert not failed, f"tests fail as {', '.join(failed)}"
        self.run(f"rm -r {here} /etc/polkit-1/rules.d/10-tests.rules")

    def an_upgrade_does_not_disturb_a_request_in_progress(self):
        path = self.immutable_file()
        terminal = self.request_that_waits_for_a_password(path)
        old = self.run(f"pidof {LABEL} || pgrep -f {DAEMON}").stdout
        self.upgrade("1.3+upgrade")
        self.run("dpkg -i /root/upgrade.deb")
        assert self.run(f"pidof {LABEL} || pgrep -f {DAEMON}").stdout == old
        self.answer(terminal)
        self.run(f"test ! -e {path}")
        self.client("doctor")
        assert self.client("version").stdout == "1.3\n"
        self.run(f"tail -c 11 {DAEMON} | grep -qx '1.3+upgrade'")
        self.install_packages()


STEPS = [step for step in vars(Scenario).values() if callable(step)]
STEPS = STEPS[STEPS.index(Scenario.the_package_installs_and_nothing_runs):]
STEPS += [*second_product.STEPS, *faults.STEPS, *packages.STEPS, *broken_states.STEPS,
          packages.the_packages_are_removed_and_purged, *client_installation.STEPS]


def arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("packages")
    parser.add_argument("programs")
    parser.add_argument("sources")
    parser.add_argument("--only", choices=["daemon"])
    parser.add_argument("-k", action="append", default=[], dest="patterns")
    parser.add_argument("--as", action="append", choices=CALLERS, dest="callers")
    options = parser.parse_args()
    if (options.patterns or options.callers) and not options.only:
        parser.error("-k and --as choose among the tests of the daemon: --only daemon")
    options.callers = options.callers or CALLERS
    return options


def main():
    options = arguments()
    steps = STEPS
    if options.only:
        steps = [Scenario.the_package_installs_and_nothing_runs,
                 Scenario.the_tests_of_the_daemon_pass]
    try:
        check_tools()
        machine = Machine()
    except CannotBoot as reason:
        print(f"The system test cannot run here: {reason}")
        return 77
    try:
        try:
            machine.boot()
        except CannotBoot as reason:
            print(f"The system test cannot run here: {reason}")
            return 77
        scenario = Scenario(machine, options)
        for step in steps:
            begin = time.monotonic()
            name = step.__name__.replace("_", " ")
            try:
                step(scenario)
            except Exception:
                print(f"FAILED  {name}", flush=True)
                print(machine.run("journalctl -n 60 --no-pager", check=False).stdout)
                raise
            print(f"{time.monotonic() - begin:6.1f} s  {name}", flush=True)
    finally:
        machine.end()
    return 0


if __name__ == "__main__":
    sys.exit(main())
