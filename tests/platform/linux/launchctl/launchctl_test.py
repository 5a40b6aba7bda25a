"""launchctl against a stand-in for systemd's manager on a bus of its own."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

PROGRAM = os.path.join(os.environ["CORVANE_PROGRAMS"], "launchctl")
MANAGER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "fake_systemd.py")
LABEL = "com.corvane.test"

BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><listen>unix:path={folder}/bus</listen>
<policy context="default"><allow send_destination="*"/><allow eavesdrop="true"/>
<allow own="*"/></policy></busconfig>
"""

DAEMON = {
    LABEL + ".socket": {"active": "active", "file": "/lib/systemd/system/x.socket"},
    LABEL + ".service": {
        "active": "active", "file": "/lib/systemd/system/x.service", "pid": 4242,
        "command": ["/usr/libexec/helper", "serve", "a b"]},
}


class LaunchctlTest(unittest.TestCase):
    def setUp(self):
        if shutil.which("dbus-daemon") is None:
            print("no dbus-daemon")
            sys.exit(77)
        self.folder = tempfile.mkdtemp(prefix="corvane-launchctl-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.environment = dict(os.environ,
                                DBUS_SYSTEM_BUS_ADDRESS="unix:path=%s/bus" % self.folder)
        self.manager = None

    def start_bus(self):
        configuration = os.path.join(self.folder, "bus.conf")
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(BUS_CONFIGURATION.format(folder=self.folder))
        bus = subprocess.Popen(["dbus-daemon", "--nofork", "--print-address",
                                "--config-file", configuration], stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(bus.stdout.close)
        self.addCleanup(bus.wait)
        self.addCleanup(bus.terminate)
        bus.stdout.readline()

    def start_manager(self, units):
        self.start_bus()
        self.manager = subprocess.Popen(["/usr/bin/python3", MANAGER], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True, env=self.environment)
        self.addCleanup(self.manager.wait)
        self.addCleanup(self.manager.kill)
        self.addCleanup(self.manager.stdout.close)
        self.manager.stdin.write(json.dumps(units) + "\n")
        self.manager.stdin.close()
        self.assertEqual(self.manager.stdout.readline(), "ready\n")

    def launchctl(self, *words):
        return subprocess.run([PROGRAM, *words], env=self.environment, text=True, timeout=60,
                              capture_output=True, check=False)

    def calls(self):
        """What the manager has been told to change."""
        self.manager.terminate()
        return self.manager.stdout.read().splitlines()

    def expect(self, result, status=0, output="", error=""):
        self.assertEqual((result.returncode, result.stdout, result.stderr),
                         (status, output, error))

    def test_list_has_process_status_and_label(self):
        self.start_manager({
            **DAEMON,
            "killed.service": {"active": "failed", "code": 2, "status": 9},
            "dumped.service": {"active": "failed", "code": 3, "status": 11},
            "exited.service": {"active": "failed", "code": 1, "status": 7},
            "demand.socket": {"active": "active"},
            "missing.service": {"load": "not-found"},
            "other.timer": {},
        })
        self.expect(self.launchctl("list"), output=(
            "PID\tStatus\tLabel\n"
            "4242\t0\tcom.corvane.test\n"
            "-\t0\tdemand\n"
            "-\t-11\tdumped\n"
            "-\t7\texited\n"
            "-\t-9\tkilled\n"))

    def test_list_of_a_running_job(self):
        self.start_manager(DAEMON)
        self.expect(self.launchctl("list", LABEL), output=(
            '{\n'
            '\t"LimitLoadToSessionType" = "System";\n'
            '\t"Label" = "com.corvane.test";\n'
            '\t"OnDemand" = true;\n'
            '\t"LastExitStatus" = 0;\n'
            '\t"PID" = 4242;\n'
            '\t"Program" = "/usr/libexec/helper";\n'
            '\t"ProgramArguments" = (\n'
            '\t\t"/usr/libexec/helper";\n'
            '\t\t"serve";\n'
            '\t\t"a b";\n'
            '\t);\n'
            '};\n'))

    def test_list_of_jobs_that_have_ended(self):
        self.start_manager({"exited.service": {"code": 1, "status": 7},
                            "killed.service": {"code": 2, "status": 15}})
        self.assertIn('"LastExitStatus" = 1792;\n', self.launchctl("list", "exited").stdout)
        self.assertIn('"LastExitStatus" = 15;\n', self.launchctl("list", "killed").stdout)
        self.assertNotIn("PID", self.launchctl("list", "killed").stdout)
        self.assertIn('"OnDemand" = false;\n', self.launchctl("list", "killed").stdout)

    def test_print(self):
        self.start_manager(DAEMON)
        for name in (LABEL, "system/" + LABEL):
            self.expect(self.launchctl("print", name), output=(
                "system/com.corvane.test = {\n"
                "\tactive count = 1\n"
                "\tpath = /lib/systemd/system/x.service\n"
                "\tstate = running\n"
                "\n"
                "\tprogram = /usr/libexec/helper\n"
                "\targuments = {\n"
                "\t\t/usr/libexec/helper\n"
                "\t\tserve\n"
                "\t\ta b\n"
                "\t}\n"
                "\n"
                "\tpid = 4242\n"
                "\tlast exit code = 0\n"
                "\tunits = {\n"
                "\t\tcom.corvane.test.socket\n"
                "\t\tcom.corvane.test.service\n"
                "\t}\n"
                "}\n"))

    def test_print_of_a_job_on_demand_and_of_a_killed_one(self):
        self.start_manager({"demand.socket": {"active": "active", "file": "/x.socket"},
                            "killed.service": {"active": "failed", "code": 2, "status": 9}})
        demand = self.launchctl("print", "demand").stdout
        self.assertIn("\tpath = /x.socket\n\tstate = active\n", demand)
        killed = self.launchctl("print", "killed").stdout
        self.assertIn("\tstate = failed\n", killed)
        self.assertIn("\tlast terminating signal = 9\n", killed)

    def test_start_and_stop_work_on_the_service(self):
        self.start_manager(DAEMON)
        self.expect(self.launchctl("start", LABEL))
        self.expect(self.launchctl("stop", LABEL))
        self.assertEqual(self.calls(), ["StartUnit com.corvane.test.service",
                                        "StopUnit com.corvane.test.service"])

    def test_start_of_a_socket_without_a_service_of_its_own(self):
        self.start_manager({"demand.socket": {}})
        self.expect(self.launchctl("start", "demand"))
        self.assertEqual(self.calls(), ["StartUnit demand.socket"])

    def test_job_that_fails_to_start(self):
        results = ("failed", "timeout", "canceled", "dependency")
        self.start_manager({result + ".service": {"result": result} for result in results})
        for result in results:
            self.expect(self.launchctl("start", result), 1,
                        error=f'launchctl: the job for {result}.service ended with "{result}"\n')

    def test_refusal_of_the_manager(self):
        self.start_manager({"bad.service": {"refuse": "Unit bad.service is masked."}})
        self.expect(self.launchctl("start", "bad"), 1,
                    error="launchctl: Unit bad.service is masked.\n")

    def test_kickstart(self):
        self.start_manager({"idle.service": {}})
        self.expect(self.launchctl("kickstart", "system/idle"))
        self.expect(self.launchctl("kickstart", "-k", "-p", "idle"),
                    output="service spawned with pid: 4711\n")
        self.assertEqual(self.calls(), ["StartUnit idle.service", "RestartUnit idle.service"])

    def test_enable_and_disable_work_on_both_units(self):
        self.start_manager(DAEMON)
        self.expect(self.launchctl("enable", "system/" + LABEL))
        self.expect(self.launchctl("disable", LABEL))
        self.assertEqual(self.calls(), [
            "EnableUnitFiles com.corvane.test.socket", "Reload",
            "EnableUnitFiles com.corvane.test.service", "Reload",
            "DisableUnitFiles com.corvane.test.socket", "Reload",
            "DisableUnitFiles com.corvane.test.service", "Reload"])

    def test_enable_of_what_cannot_be_enabled(self):
        self.start_manager({"static.service": {"install": False}})
        self.expect(self.launchctl("enable", "static"), 1, error=(
            "launchctl: the units of static do not say what they are to begin with\n"))

    def test_remove_disables_both_units_and_stops_the_socket_first(self):
        self.start_manager(DAEMON)
        self.expect(self.launchctl("remove", LABEL))
        self.assertEqual(self.calls(), [
            "DisableUnitFiles com.corvane.test.socket", "Reload",
            "DisableUnitFiles com.corvane.test.service", "Reload",
            "StopUnit com.corvane.test.socket",
            "StopUnit com.corvane.test.service"])

    def test_remove_of_a_job_whose_files_are_gone(self):
        self.start_manager({name: {**facts, "gone": True} for name, facts in DAEMON.items()})
        self.expect(self.launchctl("remove", LABEL))
        self.assertEqual(self.calls()[-2:], ["StopUnit com.corvane.test.socket",
                                             "StopUnit com.corvane.test.service"])

    def test_remove_of_a_job_that_runs_without_files(self):
        self.start_manager({name: {**facts, "load": "not-found", "gone": True}
                            for name, facts in DAEMON.items()})
        self.expect(self.launchctl("remove", LABEL))
        self.assertIn("StopUnit com.corvane.test.service", self.calls())

    def test_remove_of_a_job_that_is_unloaded_once_it_is_disabled(self):
        self.start_manager({name: {**facts, "unloaded": True} for name, facts in DAEMON.items()})
        self.expect(self.launchctl("remove", LABEL))

    def test_unknown_jobs_and_names_that_are_no_labels(self):
        self.start_manager(DAEMON)
        for command in ("list", "print", "start", "stop", "kickstart", "enable", "disable",
                        "remove"):
            self.expect(self.launchctl(command, "no.such.job"), 113, error=(
                'Could not find service "no.such.job" in domain for system\n'))
        for name in ("a/b", "system/", "../x", "gui/501/x"):
            self.assertEqual(self.launchctl("list", name).returncode, 113)
        self.expect(self.launchctl("list", "a b"), 1,
                    error="launchctl: Unit name a b.service is not valid.\n")

    def test_without_a_bus(self):
        for words in (("list",), ("list", LABEL), ("remove", LABEL)):
            self.expect(self.launchctl(*words), 69, error=(
                "launchctl: systemd, which manages services, cannot be reached: "
                "No such file or directory\n"))

    def test_bus_without_systemd(self):
        self.start_bus()
        result = self.launchctl("list")
        self.assertEqual((result.returncode, result.stdout), (69, ""))
        self.assertIn("launchctl: systemd, which manages services, is not running: ",
                      result.stderr)

    def test_version(self):
        self.start_manager({})
        self.expect(self.launchctl("version"),
                    output="launchctl for systemd, version 1.3\nsystemd 252-fake\n")

    def test_help_lists_every_subcommand(self):
        result = self.launchctl("help")
        self.assertEqual(result.returncode, 0)
        for command in ("list [LABEL]", "print LABEL", "start LABEL", "stop LABEL", "kickstart",
                        "enable LABEL", "disable LABEL", "remove LABEL", "version", "help"):
            self.assertIn("  " + command, result.stdout)

    def test_wrong_usage(self):
        for words in ((), ("frobnicate",), ("remove",), ("remove", "a", "b"), ("list", "-x"),
                      ("list", "a", "b"), ("kickstart", "-k"), ("kickstart", "-x", "a"),
                      ("stop", "-k"), ("version", "x")):
            result = self.launchctl(*words)
            self.assertEqual((result.returncode, result.stdout), (64, ""), words)
            self.assertIn("Usage: launchctl ", result.stderr)


if __name__ == "__main__":
    unittest.main()
