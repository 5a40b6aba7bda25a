"""Utilities that the daemon runs, seen over its interface."""

import os
import pathlib
import subprocess
import threading

from gi.repository import GLib

from bus import EXECUTE_UTILITY, POSIX, Client, FeedbackServer
from launch_control import LAUNCH_CONTROL, LaunchControlTest
from log_lines import completed
from support import PATIENCE, SOMEBODY, DaemonTest, logged, main, make_application, wait_until

OWN = "com.corvane.error.privileged-operation"
MISSING, UNSAFE, FAILED = (OWN, 1), (OWN, 2), (OWN, 3)
INVALID, NOT_LAUNCHED = (POSIX, 22), (POSIX, 4)
PARAMETERS = "ZELLocalizedRecoverySuggestionParameters"

# Writes who it is, waits until it is told to go on, and writes once more to nobody.
UTILITY = """#!/bin/sh
echo $$ >'{folder}/pid.new' && mv '{folder}/pid.new' '{folder}/pid'
read -r line <'{folder}/go-on'
echo output; echo error >&2
exit 0
"""


class ExecuteTest(DaemonTest):
    def prepare(self):
        make_application(self.folder, UTILITY.format(folder=self.folder))
        os.mkfifo(f"{self.folder}/go-on")

    def test_more_arguments_than_the_system_takes(self):
        arguments = [f"{self.folder}/Test.app", "lipo"] + ["x" * 30] * 100_000
        mark = self.log.mark()
        self.assertEqual(Client(self.daemon.connect()).perform(EXECUTE_UTILITY, self.form(),
                                                               arguments), (POSIX, 4, {}))
        self.log.wait_for(lambda line: "Argument list too long" in line, mark)

    def test_the_utility_goes_on_as_the_daemons_child_and_is_waited_for(self):
        mark = self.log.mark()
        client = Client(self.daemon.connect())
        server = FeedbackServer()
        arguments = [f"{self.folder}/Test.app", "lipo"]

        def run():
            with self.assertRaises(GLib.Error):
                client.perform(EXECUTE_UTILITY, self.form(), arguments, server.endpoint)

        running = threading.Thread(target=run)
        running.start()
        wait_until(lambda: os.path.exists(f"{self.folder}/pid"), "the utility runs")
        with open(f"{self.folder}/pid", encoding="ascii") as file:
            utility = int(file.read())
        client.close()
        running.join()
        server.close()

        with open(f"/proc/{utility}/status", encoding="utf-8") as status:
            self.assertIn(f"PPid:\t{self.daemon.process.pid}\n", status.read())
        self.assertEqual(Client(self.daemon.connect()).version(), "1.3")
        with open(f"{self.folder}/go-on", "w", encoding="ascii") as go_on:
            go_on.write("\n")
        self.log.wait_for(lambda line: line == logged(*completed("execute-utility", 0)), mark)
        self.assertFalse(os.path.exists(f"/proc/{utility}"), "the utility was waited for")


class Runs:
    """Runs utilities and keeps what they write."""

    def execute(self, *arguments):
        """Domain and code of the answer, or None; output, error output, and the parameters of the
        answer's advice."""
        server = FeedbackServer()
        answer = Client(self.daemon.connect()).perform(EXECUTE_UTILITY, self.form(), arguments,
                                                       server.endpoint)
        *written, final = server.wait_for_final()
        server.close()
        self.assertEqual(final, {"FinalFeedbackMessage": True})
        output, error = (b"".join(bytes(message.get(key, b"")) for message in written)
                         for key in ("OutputData", "ErrorData"))
        domain, code, info = answer or (None, None, {})
        return answer and (domain, code), output, error, info.get(PARAMETERS, [])


class BundleTest(Runs, DaemonTest):
    """Utilities that an application brings along."""

    SCRIPT = """#!/bin/sh
case $1 in
  arguments) shift; printf '[%s]' "$@" ;;
  streams) echo output; echo error >&2 ;;
  user) id -u ;;
  end) exit "$2" ;;
  kill) kill -"$2" $$ ;;
  chown) chown "$2" "$3" ;;
  openat2) perl -e '$how = pack("Q3", 0, 0, 0);
                    print syscall(437, -100, $ARGV[0], $how, 24) < 0 ? $! : "opened"' "$2" ;;
esac
"""

    def prepare(self):
        self.application = make_application(self.folder, self.SCRIPT)
        self.utility = f"{self.application}/Contents/MacOS/lipo"

    def lipo(self, *arguments):
        return self.execute(self.application, "lipo", *arguments)

    def test_both_streams_arrive(self):
        self.assertEqual(self.lipo("streams"), (None, b"output\n", b"error\n", []))

    def test_arguments_arrive_as_they_are(self):
        arguments = ["", "b c", "$(id)", "'\"", "*", "ä😀", "-x", "\n"]
        self.assertEqual(self.lipo("arguments", *arguments)[1].decode(),
                         "".join(f"[{argument}]" for argument in arguments))

    def test_it_runs_as_root(self):
        self.assertEqual(self.lipo("user")[1], b"0\n")

    def test_it_may_give_files_to_others(self):
        path = f"{self.folder}/file"
        pathlib.Path(path).write_bytes(b"")
        self.assertEqual(self.lipo("chown", str(SOMEBODY), path)[0], None)
        self.assertEqual(os.stat(path).st_uid, SOMEBODY)

    def test_what_confines_the_helper_leaves_it_the_call_that_opens_folders_with_care(self):
        """It has the helper's own filter."""
        self.assertEqual(self.lipo("openat2", "/")[1], b"opened")

    def test_how_it_ended_is_answered(self):
        for arguments, number in ((("end", "1"), "1"), (("end", "255"), "255"),
                                  (("kill", "KILL"), "9"), (("kill", "TERM"), "15")):
            with self.subTest(arguments=arguments):
                self.assertEqual(self.lipo(*arguments), (FAILED, b"", b"", [number]))

    def test_what_is_no_utility_of_the_application_is_invalid(self):
        for path, name in (("", "lipo"), (self.application, ""), (self.application, "sh"),
                           (self.application, "../MacOS/lipo"), (self.application, "/bin/sh"),
                           (self.application, "periodic"), ("/nonexistent", "lipo"),
                           (self.folder, "lipo")):
            with self.subTest(path=path, name=name):
                self.assertEqual(self.execute(path, name)[0], INVALID)

    def test_an_executable_that_leads_out_of_the_bundle_is_invalid(self):
        os.rename(f"{self.application}/Contents/MacOS", f"{self.folder}/outside")
        os.symlink(f"{self.folder}/outside", f"{self.application}/Contents/MacOS")
        self.assertEqual(self.lipo("streams")[0], INVALID)

    def test_a_utility_that_is_missing_is_named(self):
        # The executable of the bundle stays.
        os.rename(self.utility, f"{self.application}/Contents/MacOS/other")
        with open(f"{self.application}/Contents/Info.plist", "w", encoding="utf-8") as info:
            info.write("<plist><dict><key>CFBundleExecutable</key><string>other</string></dict>"
                       "</plist>")
        answer, _, _, parameters = self.lipo("streams")
        self.assertEqual((answer, parameters), (MISSING, ["lipo", self.utility]))

    def test_a_utility_that_is_not_executable_is_not_launched(self):
        os.chmod(self.utility, 0o644)
        mark = self.log.mark()
        self.assertEqual(self.lipo("streams")[0], NOT_LAUNCHED)
        self.log.wait_for(lambda line: "could not be launched" in line, mark)


class LaunchctlTest(Runs, LaunchControlTest):
    SCRIPT = """echo "$0" "$@"; /usr/bin/env | /usr/bin/grep -c ^PATH=; [ "$1" != fail ] || exit 1"""

    def launchctl(self, *arguments):
        return self.execute("x", "launchctl", *arguments)

    def test_it_runs_at_its_own_place(self):
        self.assertEqual(self.launchctl("list")[:2],
                         (None, f"{LAUNCH_CONTROL} list\n0\n".encode()))
        answer, _, _, parameters = self.launchctl("fail")
        self.assertEqual((answer, parameters), (FAILED, ["1"]))

    def test_one_that_others_could_have_changed_is_not_run(self):
        for mode in (0o775, 0o757, 0o777):
            os.chmod(self.launch_control, mode)
            self.assertEqual(self.launchctl("list"), (UNSAFE, b"", b"", [LAUNCH_CONTROL]))

    def test_the_command_tells_that_it_was_not_run_by_its_status(self):
        # Another client keeps the daemon from ending.
        Client(self.daemon.connect()).register(1)
        for mode, status in ((0o755, 0), (0o777, 126)):
            os.chmod(self.launch_control, mode)
            ended = subprocess.run(self.client_command("execute", "launchctl", "list"), check=False,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   timeout=PATIENCE, **self.client_options())
            self.assertEqual(ended.returncode, status)


class MissingLaunchctlTest(Runs, LaunchControlTest):
    MODE = None

    def test_it_is_named_with_its_place(self):
        answer, _, _, parameters = self.execute("x", "launchctl", "list")
        self.assertEqual((answer, parameters), (MISSING, ["launchctl", LAUNCH_CONTROL]))


if __name__ == "__main__":
    main()
