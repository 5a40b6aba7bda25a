"""The helper's own removal from the system, and the deletion of its files."""

import os
import subprocess
import threading

from gi.repository import GLib

from bus import DELETE_FILES, PERFORM_UNINSTALL, POSIX, Client
from launch_control import LAUNCH_CONTROL, LaunchControlTest
from log_lines import about, completed
from support import DEBUG, IDENTIFIER, DaemonTest, bench_only, main, wait_until

PATH_KEY = "NSFilePath"


def deleting(path):
    return DEBUG, f"Deleting file system object '{path}'."


class UninstallTest(LaunchControlTest):
    STATUS = 0
    SCRIPT = """echo "$*" >>"$folder/calls"
[ ! -e "$folder/waits" ] || read -r line <"$folder/go-on"
exit """

    def prepare(self):
        self.SCRIPT += str(self.STATUS)
        os.mkfifo(f"{self.folder}/go-on")

    def setUp(self):
        super().setUp()
        self.client = Client(self.daemon.connect())
        self.pid = os.getpid()
        self.client.register(self.pid)
        self.program = self.make("program")
        self.job = self.make("job")

    def make(self, name):
        path = f"{self.folder}/{name}"
        with open(path, "w", encoding="utf-8"):
            return path

    def calls(self):
        try:
            with open(f"{self.folder}/calls", encoding="utf-8") as calls:
                return calls.read().splitlines()
        except FileNotFoundError:
            return []

    def uninstall(self, pid=None, paths=None):
        number = GLib.Variant("i", self.pid if pid is None else pid)
        arguments = [number, *(paths or (self.program, self.job))]
        return self.client.perform(PERFORM_UNINSTALL, self.form(), arguments)

    def assertUninstalls(self, mark, *between, pid=None):
        with self.assertRaises(GLib.Error):
            self.uninstall(pid)
        self.assertEndsWith(0)
        pid = self.pid if pid is None else pid
        self.assertLogged(
            mark, about("perform-uninstall", 3), deleting(self.program), deleting(self.job),
            (DEBUG, f"Processing uninstall request for PID {pid}. The executable files have been "
                    "deleted, the point of no return was passed."),
            (DEBUG, "Removed associated right definitions."), *between,
            (DEBUG, "Terminating privileged helper."))
        self.assertFalse(os.path.exists(self.program) or os.path.exists(self.job))
        self.assertEqual(self.calls(), [f"remove {IDENTIFIER}"])

    def assertRefused(self, expected, paths=None, pid=None):
        """Nothing was done, and the daemon goes on."""
        self.assertEqual(self.uninstall(pid, paths), expected)
        self.assertTrue(os.path.exists(self.program) and os.path.exists(self.job))
        self.assertEqual(self.calls(), [])
        self.assertEqual(self.client.version(), "1.3")


class SuccessfulUninstallTest(UninstallTest):
    def test_the_helper_removes_files_rights_and_job_and_ends(self):
        self.assertNotEqual(self.rights(), [])
        self.assertUninstalls(self.log.mark())
        self.assertEqual(self.rights(), [])

    @bench_only("it damages a right in a folder of its own")
    def test_a_right_that_stays_is_told_past_the_point_of_no_return(self):
        right = sorted(self.rights())[0]
        with open(f"{self.folder}/root/rights/{right}", "w", encoding="utf-8") as definition:
            definition.write("damaged")
        mark = self.log.mark()
        with self.assertRaises(GLib.Error):
            self.uninstall()
        self.assertEndsWith(0)
        name = right.removesuffix(".plist")
        self.log.wait_for(
            lambda line: f"WARNING: the right definition of '{name}' is still there!" in line, mark)

    def test_clients_that_have_ended_are_not_in_the_way(self):
        ended = subprocess.Popen(["true"])
        ended.wait()
        self.client.register(ended.pid)
        self.assertUninstalls(self.log.mark())

    def test_a_client_that_has_ended_and_was_not_collected_is_not_in_the_way(self):
        ended = subprocess.Popen(["true"])
        self.addCleanup(ended.wait)
        os.waitid(os.P_PID, ended.pid, os.WEXITED | os.WNOWAIT)
        self.client.register(ended.pid)
        self.assertUninstalls(self.log.mark())

    def test_registrations_wait_from_the_point_of_no_return_on(self):
        self.make("waits")
        outcomes = []

        def attempt(action, *arguments):
            try:
                outcomes.append(action(*arguments))
            except GLib.Error:
                outcomes.append("lost")

        late = Client(self.daemon.connect())
        uninstalling = threading.Thread(target=attempt, args=(self.uninstall,))
        uninstalling.start()
        wait_until(self.calls, "launch control runs")
        mark = self.log.mark()
        registering = threading.Thread(target=attempt, args=(late.register, 200))
        registering.start()
        self.log.wait_for(lambda line: "Beginning work for client 200." in line, mark)
        self.assertEqual(outcomes, [])
        with open(f"{self.folder}/go-on", "w", encoding="utf-8") as go_on:
            go_on.write("\n")
        self.assertEndsWith(0)
        uninstalling.join()
        registering.join()
        self.assertEqual(outcomes, ["lost", "lost"])


class FailingLaunchControlTest(UninstallTest):
    STATUS = 3

    def test_a_launch_control_that_fails_is_logged_and_changes_nothing(self):
        self.assertUninstalls(
            self.log.mark(),
            (DEBUG, "Removal from Launch Services management failed with error code 3."))


class RefusedUninstallTest(UninstallTest):
    def test_empty_paths_are_invalid(self):
        for paths in (("", self.job), (self.program, ""), ("", "")):
            self.assertRefused((POSIX, 22, {}), paths)

    def test_another_client_that_still_runs_is_named_in_the_log(self):
        other = subprocess.Popen(["sleep", "1000"])
        self.addCleanup(other.wait)
        self.addCleanup(other.kill)
        self.client.register(other.pid)
        mark = self.log.mark()
        self.assertRefused((POSIX, 16, {}))
        self.assertLogged(
            mark, about("perform-uninstall", 3),
            (DEBUG, f"Uninstall request from PID {self.pid} was rejected because client 'sleep' "
                    f"with PID {other.pid} is still working with us."),
            completed("perform-uninstall", 16))

    def test_a_file_that_cannot_be_deleted_leaves_the_helper_running_for_another_try(self):
        os.remove(self.job)
        os.mkdir(self.job)
        obstacle = self.make("job/contents")
        self.assertEqual(self.uninstall(), (POSIX, 66, {}))
        self.assertEqual((os.path.exists(self.program), self.calls()), (False, []))
        self.assertNotEqual(self.rights(), [])

        os.remove(obstacle)
        self.make("program")
        self.assertUninstalls(self.log.mark())

    def test_the_first_file_that_cannot_be_deleted_does_not_keep_the_second(self):
        os.remove(self.program)
        self.assertEqual(self.uninstall(), (POSIX, 2, {}))
        self.assertFalse(os.path.exists(self.job))
        self.assertEqual(self.client.version(), "1.3")


class UnsafeLaunchControlTest(UninstallTest):
    MODE = 0o777

    def test_a_launch_control_that_others_can_change_is_not_run(self):
        self.assertRefused((POSIX, 13, {PATH_KEY: LAUNCH_CONTROL}))


class MissingLaunchControlTest(UninstallTest):
    MODE = None

    def test_without_launch_control_there_is_no_uninstall(self):
        self.assertRefused((POSIX, 13, {PATH_KEY: LAUNCH_CONTROL}))


class DeleteFilesTest(DaemonTest):
    def test_files_are_deleted_one_by_one_and_the_last_error_is_answered(self):
        client = Client(self.daemon.connect())
        full = f"{self.folder}/full"
        os.makedirs(f"{full}/contents")
        paths = [f"{self.folder}/first", full, f"{self.folder}/last"]
        for path in (paths[0], paths[2]):
            with open(path, "w", encoding="utf-8"):
                pass
        mark = self.log.mark()
        self.assertEqual(client.perform(DELETE_FILES, self.form(), paths), (POSIX, 66, {}))
        self.assertEqual([os.path.exists(path) for path in paths], [False, True, False])
        self.assertLogged(mark, about("delete-files", 3), *map(deleting, paths),
                          completed("delete-files", 66))


if __name__ == "__main__":
    main()
