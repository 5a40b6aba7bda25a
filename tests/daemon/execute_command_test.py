"""The client's command that runs a utility, from its command line to the utility and back."""

import fcntl
import json
import os
import plistlib
import signal
import subprocess

from bus import Client
from log_lines import completed
from support import PATIENCE, DaemonTest, logged, main, make_application, wait_until

# What it does is its first argument.
UTILITY = """#!/bin/sh
folder='{folder}'
case $1 in
  show) shift; for argument; do printf '<%s>' "$argument"; done; echo ;;
  count) i=0; while [ $i -lt $2 ]; do echo "$i-$3"; i=$((i + 1)); done ;;
  live) exec 3<>"$folder/go-on"; echo output; read -r _ <&3; echo error >&2; read -r _ <&3 ;;
  both) yes output | head -n $2; yes error | head -n $2 >&2; touch "$folder/done" ;;
  wait) echo $$ >"$folder/pid.new"; mv "$folder/pid.new" "$folder/pid"; read -r _ <"$folder/go-on"
        touch "$folder/done" ;;
  fail) exit ${{2-3}} ;;
esac
"""

COMMANDS = ("delete", "delete-files", "execute", "preferences", "nop", "discard-auth", "version",
            "debug", "operations", "install", "uninstall", "doctor", "set", "get", "remove")
OPTIONS = ("--json", "--application", "--socket", "--help", "-h", "-r", "--", "-", "")
BRACKETS = ("[]", "[a,b]", "[[x]]", "[a", "b]")


class ExecuteCommandTest(DaemonTest):

    def prepare(self):
        self.application = make_application(self.folder, UTILITY.format(folder=self.folder))
        os.mkfifo(f"{self.folder}/go-on")

    def setUp(self):
        super().setUp()
        self.expects_end = True  # with its last client

    def command(self, *arguments, options=(), application=None, utility="lipo"):
        return self.client_command(*options, "execute", "--application",
                                   application or self.application, utility, *arguments)

    def start_client(self, *arguments, **options):
        client = subprocess.Popen(self.command(*arguments), stderr=subprocess.PIPE,
                                  **{"stdout": subprocess.PIPE, **self.client_options(), **options})
        self.addCleanup(client.wait)
        self.addCleanup(client.kill)
        return client

    def run_client(self, *arguments, folder=None, **options):
        # Another client keeps the daemon from ending.
        Client(self.daemon.connect()).register(1)
        return subprocess.run(self.command(*arguments, **options), stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=PATIENCE, check=False, cwd=folder,
                              **self.client_options())

    def go_on(self):
        with open(f"{self.folder}/go-on", "w", encoding="ascii") as go_on:
            go_on.write("\n")

    def wait_for_completion(self, code=0):
        self.log.wait_for(lambda line: line == logged(*completed("execute-utility", code)), 0)

    def assertOutput(self, result, output=b"", error=b"", status=0):
        self.assertEqual((result.stdout, result.stderr, result.returncode), (output, error, status))

    def test_each_stream_comes_as_it_is_written(self):
        client = self.start_client("live")
        self.assertEqual(client.stdout.readline(), b"output\n")
        self.go_on()
        self.assertEqual(client.stderr.readline(), b"error\n")
        self.go_on()
        self.assertEqual(client.communicate(timeout=PATIENCE), (b"", b""))
        self.assertEqual(client.returncode, 0)
        self.assertEndsWith(0)

    def test_what_follows_the_utility_is_for_the_utility(self):
        for argument in COMMANDS + OPTIONS + BRACKETS:
            with self.subTest(argument=argument):
                result = self.run_client("show", argument, "x", argument)
                self.assertOutput(result, f"<{argument}><x><{argument}>\n".encode())

    def test_a_utility_may_be_called_like_a_command(self):
        for utility in COMMANDS + BRACKETS:
            with self.subTest(utility=utility):
                result = self.run_client("nop", "--json", utility=utility)
                self.assertOutput(result, b"", f"Cannot run '{utility}': There is no such utility.\n"
                                  "The helper can run: launchctl, lipo.\n".encode(), 127)

    def test_an_application_that_is_no_bundle(self):
        self.assertOutput(self.run_client("show", application=self.folder), b"",
                          b"Cannot run 'lipo': The application is no bundle with a program.\n"
                          b"Name the folder of a bundle, whose Contents/Info.plist names the program "
                          b"beside which the utility is.\n", 127)

    def test_a_utility_that_is_missing(self):
        programs = f"{self.application}/Contents/MacOS"
        os.rename(f"{programs}/lipo", f"{programs}/main")
        with open(f"{self.application}/Contents/Info.plist", "wb") as info:
            plistlib.dump({"CFBundleExecutable": "main"}, info)
        result = self.run_client("show")
        self.assertIn(b"A required component of the operating system is missing", result.stderr)
        self.assertEqual(result.returncode, 127)

    def test_objects_may_be_called_like_commands_and_lists(self):
        Client(self.daemon.connect()).register(1)
        names = [name for name in COMMANDS + BRACKETS + ("a", "b", "x")]
        for name in names:
            with open(f"{self.folder}/{name}", "w", encoding="ascii"):
                pass
        for command in ("delete", "delete-files"):
            for number, name in enumerate(names[:-3]):
                with self.subTest(command=command, name=name):
                    before = set(os.listdir(self.folder))
                    result = subprocess.run(
                        self.client_command(command, f"missing-{number}", name), cwd=self.folder,
                        timeout=PATIENCE, check=False, stdout=subprocess.PIPE,
                        stderr=subprocess.PIPE, **self.client_options())
                    self.assertEqual((result.returncode, result.stdout), (1, b""))
                    self.assertEqual(before - set(os.listdir(self.folder)), {name})
                    with open(f"{self.folder}/{name}", "w", encoding="ascii"):
                        pass

    def test_without_standard_output_nothing_goes_elsewhere(self):
        client = self.start_client("both", "100000", stdout=subprocess.PIPE,
                                   preexec_fn=lambda: os.close(1))
        self.assertEqual(client.communicate(timeout=PATIENCE), (b"", b"error\n" * 100000))
        self.assertEqual(client.returncode, 0)
        self.assertEndsWith(0)

    def test_what_cannot_be_printed_fails_the_command(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run(self.client_command("operations"), stdout=full,
                                    stderr=subprocess.PIPE, timeout=PATIENCE, check=False,
                                    **self.client_options())
        self.assertEqual((result.stderr, result.returncode),
                         (b"The output cannot be written: No space left on device\n", 1))
        self.expects_end = False

    def test_large_output_arrives_complete_and_in_order(self):
        result = self.run_client("count", "200000", "x" * 20)
        self.assertOutput(result, b"".join(b"%d-%s\n" % (n, b"x" * 20) for n in range(200000)))
        result = self.run_client("both", "300000")
        self.assertOutput(result, b"output\n" * 300000, b"error\n" * 300000)

    def test_two_clients_get_their_own_output(self):
        clients = {mark: self.start_client("count", "20000", mark) for mark in ("one", "other")}
        for mark, client in clients.items():
            output, error = client.communicate(timeout=PATIENCE)
            self.assertEqual(output.decode(), "".join(f"{n}-{mark}\n" for n in range(20000)))
            self.assertEqual((error, client.returncode), (b"", 0))

    def test_the_status_of_the_utility_is_that_of_the_command(self):
        self.assertOutput(
            self.run_client("fail"), b"",
            b"Cannot run 'lipo': It was not possible to complete the operation successfully.\n"
            b"The operating system could not perform the requested operation. It returned error "
            b"code 3.\n", 3)
        for status in (1, 125, 255):
            self.assertEqual(self.run_client("fail", str(status)).returncode, status)

    def test_json_is_one_object_on_standard_output(self):
        result = self.run_client("show", "x", options=["--json"])
        self.assertEqual((json.loads(result.stdout)["code"], result.stderr), (0, b"<x>\n"))
        result = self.run_client("fail", options=["--json"])
        failure = json.loads(result.stdout)
        self.assertEqual((failure["domain"], failure["code"], result.returncode),
                         ("com.corvane.error.privileged-operation", 3, 3))

    def test_the_application_is_found_from_where_the_client_runs(self):
        self.assertOutput(self.run_client("show", "x", application="Test.app", folder=self.folder),
                          b"<x>\n")

    def test_a_utility_that_cannot_be_started(self):
        os.chmod(f"{self.application}/Contents/MacOS/lipo", 0o644)
        self.assertOutput(self.run_client("show"), b"",
                          b"Cannot run 'lipo': The helper could not carry it out.\n"
                          b"Its log says why: journalctl -u com.corvane.system."
                          b"privilegedhelper-vnt\n", 1)
        self.assertTrue([line for line in self.log.after(0) if "could not be launched" in line])

    def test_a_hundred_thousand_arguments(self):
        self.assertOutput(
            self.run_client("show", *["x"] * 100_000), b"",
            b"Cannot run 'lipo': The helper refused the request: The request holds too much, by "
            b"itself or with others of this user\nAsk for less at a time.\n", 1)

    def test_an_argument_that_is_not_text(self):
        self.assertOutput(self.run_client("show", b"\xff"), b"",
                          b"Cannot run 'lipo': An argument cannot be sent to the helper.\n"
                          b"Text must be UTF-8, and without zero bytes.\n", 1)

    def test_a_reader_that_leaves_misses_the_rest_and_nothing_else(self):
        client = self.start_client("both", "300000")
        self.assertEqual(client.stdout.readline(), b"output\n")
        client.stdout.close()
        self.assertEqual(client.stderr.read(), b"error\n" * 300000)
        self.assertEqual(client.wait(PATIENCE), 0)
        self.assertEndsWith(0)

    def test_a_reader_that_pauses_holds_up_nobody(self):
        client = self.start_client("both", "300000")
        wait_until(lambda: os.path.exists(f"{self.folder}/done"), "the utility has ended")
        self.wait_for_completion()
        self.assertEqual(client.communicate(timeout=PATIENCE),
                         (b"output\n" * 300000, b"error\n" * 300000))
        self.assertEqual(client.returncode, 0)

    def test_a_descriptor_that_does_not_wait_gets_everything(self):
        reading, writing = os.pipe()
        fcntl.fcntl(writing, fcntl.F_SETFL, os.O_NONBLOCK)
        client = self.start_client("count", "100000", "x", stdout=writing)
        os.close(writing)
        with open(reading, "rb") as output:
            self.assertEqual(len(output.read().splitlines()), 100000)
        self.assertEqual(client.wait(PATIENCE), 0)

    def test_output_that_cannot_be_written_fails_the_command(self):
        with open("/dev/full", "wb") as full:
            client = self.start_client("show", "x", stdout=full)
            _, error = client.communicate(timeout=PATIENCE)
        self.assertEqual(error, b"Cannot pass on all output of 'lipo': No space left on device\n")
        self.assertEqual(client.returncode, 1)

    def test_a_reader_that_pauses_too_long_with_too_much_is_told_what_it_misses(self):
        """It takes the ten seconds after which a receiver is given up."""
        other = Client(self.daemon.connect())
        other.register(1)
        client = self.start_client("both", "12000000")
        self.wait_for_completion()
        self.assertEqual(other.version(), "1.3")
        output, error = client.communicate(timeout=PATIENCE)
        self.assertTrue((b"output\n" * 12000000).startswith(output))
        self.assertLess(len(output), 7 * 12000000)
        self.assertEqual(error, b"Cannot pass on all output of 'lipo': The output is incomplete: "
                         b"nobody took it for too long.\n"
                         b"Read it without long pauses, or into a file.\n")
        self.assertEqual(client.returncode, 1)

    def test_a_terminated_client_leaves_the_utility_to_the_daemon(self):
        Client(self.daemon.connect()).register(1)
        client = self.start_client("wait")
        wait_until(lambda: os.path.exists(f"{self.folder}/pid"), "the utility runs")
        with open(f"{self.folder}/pid", encoding="ascii") as file:
            utility = int(file.read())
        client.send_signal(signal.SIGTERM)
        self.assertEqual(client.wait(PATIENCE), -signal.SIGTERM)
        with open(f"/proc/{utility}/status", encoding="utf-8") as status:
            self.assertIn(f"PPid:\t{self.daemon.process.pid}\n", status.read())
        self.go_on()
        self.wait_for_completion()
        self.assertFalse(os.path.exists(f"/proc/{utility}"), "the utility was waited for")
        self.assertTrue(os.path.exists(f"{self.folder}/done"))


if __name__ == "__main__":
    main()
