"""Starting the daemon: arguments, failures, and what is linked into it."""

import os
import plistlib
import shutil
import socket
import subprocess
import tempfile
import unittest

from bus import Client
from support import (DAEMON, ERROR, IDENTIFIER, INFORMATIONAL, PROGRAMS, TEST_PROGRAMS, FolderTest,
                     bench_only, environment_for, listening_socket, logged, main, wait_until)

OTHER_VERSION = f"{TEST_PROGRAMS}/daemon-of-other-version"
WITHOUT_SET = f"{TEST_PROGRAMS}/daemon-without-operationset"
OF_FAULTY_SET = f"{TEST_PROGRAMS}/daemon-of-faulty-operationset"

NO_PRINCIPAL_CLASS = (b"Internal implementation error: The principal class is either not set or "
                      b"not implemented.\n")
FAULTS = (b"Internal implementation error: the operation 'two': its code 1 is that of 'one'.\n"
          b"Internal implementation error: the operation 'Three': its identifier is not made of "
          b"lower-case words joined by '-', of at most 64 characters.\n")
MISMATCH = (ERROR, "Internal implementation error: executable version (1.4) does not match "
            "implementation version of privileged command set (1.3).")
NOT_ROOT = (ERROR, "This program needs root privileges.")
SHUTDOWN = (INFORMATIONAL, "Privileged helper is shutting down.")


class StartUpTest(FolderTest):
    DEBUG_LINES = False

    def assertRun(self, program, arguments, status, output=b"", error=b"", user=None):
        """The program ends by itself with exactly this outcome."""
        if user is not None:
            # Where every user finds it.
            program = shutil.copy(program, f"{self.folder}/program")
        run = subprocess.run([program, *arguments], capture_output=True, stdin=subprocess.DEVNULL,
                             user=user, group=user, cwd="/", check=False,
                             extra_groups=None if user is None else [],
                             env={**os.environ, **environment_for(self.folder)})
        self.assertEqual((run.returncode, run.stdout, run.stderr), (status, output, error),
                         arguments)

    def assertLoggingRun(self, program, status, *messages, user=None):
        lines = [logged(*message) + "\n" for message in messages]
        self.assertRun(program, [], status, error="".join(lines).encode(), user=user)

    def test_an_argument_that_begins_with_v_prints_the_version(self):
        for argument in ("v", "version", "vx", "v 1", "verbose=no"):
            self.assertRun(DAEMON, [argument], 0, b"1.3 (Build 190617)\n")

    def test_a_version_that_cannot_be_printed_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            self.assertEqual(subprocess.run([DAEMON, "v"], stdout=full, check=False).returncode, 1)

    def test_everybody_may_ask_for_the_version(self):
        self.assertRun(DAEMON, ["v"], 0, b"1.3 (Build 190617)\n", user=65534)

    def test_any_other_argument_fails_in_silence(self):
        for argument in ("-v", "--version", "V", "", " v", "help", "1.3"):
            self.assertRun(DAEMON, [argument], 1)

    def test_a_table_of_operations_that_contradicts_itself_is_not_served(self):
        for arguments in ([], ["v"]):
            self.assertRun(OF_FAULTY_SET, arguments, 1, error=FAULTS)

    def test_two_or_more_arguments_fail_in_silence_before_anything_else(self):
        for arguments in (["v", "v"], ["v", ""], ["a", "b", "c"]):
            self.assertRun(DAEMON, arguments, 1)
            self.assertRun(WITHOUT_SET, arguments, 1)

    def test_a_missing_principal_class_is_reported_before_the_argument_is_looked_at(self):
        self.assertEqual(len(NO_PRINCIPAL_CLASS), 89)
        for arguments in ([], ["v"], ["version"], ["-v"]):
            self.assertRun(WITHOUT_SET, arguments, 1, error=NO_PRINCIPAL_CLASS)
        self.assertRun(WITHOUT_SET, [], 1, error=NO_PRINCIPAL_CLASS, user=65534)

    @bench_only("it reads the log on standard error")
    def test_a_user_other_than_root_is_refused(self):
        self.assertLoggingRun(DAEMON, 1, NOT_ROOT, SHUTDOWN, user=65534)

    @bench_only("it reads the log on standard error")
    def test_another_version_than_the_set_has_is_refused(self):
        self.assertLoggingRun(OTHER_VERSION, 1, MISMATCH, SHUTDOWN)

    @bench_only("it reads the log on standard error")
    def test_version_and_user_are_reported_in_this_order(self):
        self.assertLoggingRun(OTHER_VERSION, 1, MISMATCH, NOT_ROOT, SHUTDOWN, user=65534)

    def test_the_version_query_does_not_compare_versions(self):
        self.assertRun(OTHER_VERSION, ["v"], 0, b"1.4 (Build 190617)\n")

    def test_nothing_is_logged_at_the_start_of_service(self):
        daemon = self.start()
        self.assertEqual(Client(daemon.connect()).version(), "1.3")
        self.assertEqual(daemon.log.after(0), [])


@bench_only("it starts daemons of its own")
class OwnSocketTest(FolderTest):
    """A daemon that nobody starts on demand serves the service's own path."""

    # Starts the program in a place of its own, so that nothing of the machine's is touched.
    PRIVATE = ("unshare", "--mount", "sh", "-c", 'mount -t tmpfs tmpfs /run && exec "$0" "$@"')

    def setUp(self):
        super().setUp()
        if subprocess.run([*self.PRIVATE, "true"], capture_output=True, check=False).returncode:
            self.skipTest("no private mount namespaces here")

    def run_daemon(self, wrapper):
        process = subprocess.Popen([*wrapper, DAEMON], stdin=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE,
                                   env={**os.environ, **environment_for(self.folder)})
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        self.addCleanup(process.stderr.close)
        return process

    def connect(self, process):
        path = f"/proc/{process.pid}/root/run/{IDENTIFIER}/socket"
        wait_until(lambda: os.path.exists(path), "the socket is there")
        connected = socket.socket(socket.AF_UNIX)
        # It is there before it listens.
        wait_until(lambda: connected.connect_ex(path) == 0, "the daemon listens")
        return connected

    def test_it_serves_the_path_for_everybody(self):
        process = self.run_daemon(self.PRIVATE)
        client = Client(self.connect(process))
        self.assertEqual(client.version(), "1.3")
        path = f"/proc/{process.pid}/root/run/{IDENTIFIER}/socket"
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o666)

    def test_a_socket_that_was_left_over_is_replaced(self):
        make_it = ("python3 -c 'import socket, sys; socket.socket(socket.AF_UNIX).bind(sys.argv[1])' "
                   f"/run/{IDENTIFIER}/socket")
        wrapper = (*self.PRIVATE[:-1],
                   f'mount -t tmpfs tmpfs /run && mkdir /run/{IDENTIFIER} && {make_it} && exec "$0"')
        process = self.run_daemon(wrapper)
        self.assertEqual(Client(self.connect(process)).version(), "1.3")

    def test_a_second_daemon_leaves_the_first_alone(self):
        first = self.run_daemon(self.PRIVATE)
        client = Client(self.connect(first))
        second = self.run_daemon(("nsenter", "--mount", "--root", "--target", str(first.pid)))
        self.assertEqual(second.wait(), 1)
        error = second.stderr.read().decode().splitlines()
        self.assertEqual(len(error), 2)
        self.assertTrue(error[0].startswith(f"The service '{IDENTIFIER}' cannot be served: "))
        self.assertEqual(error[1], logged(*SHUTDOWN))
        self.assertEqual(client.version(), "1.3")
        self.assertEqual(Client(self.connect(first)).version(), "1.3")


@bench_only("it starts daemons of its own")
class SocketActivationTest(FolderTest):
    def test_a_socket_for_another_process_is_not_taken(self):
        """LISTEN_PID of somebody else: the daemon serves the service's own path, not this one."""
        if subprocess.run(["unshare", "--mount", "true"], capture_output=True,
                          check=False).returncode:
            self.skipTest("no private mount namespaces here")
        daemon = self.start(start=("unshare", "--mount", "sh", "-c",
                                   'mount -t tmpfs tmpfs /run && exec 3<&0 </dev/null && '
                                   'LISTEN_FDS=1 LISTEN_PID=1 exec "$0"'))
        path = f"/proc/{daemon.process.pid}/root/run/{IDENTIFIER}/socket"
        wait_until(lambda: os.path.exists(path), "it serves its own path")

    def test_waiting_clients_are_served_by_the_next_daemon(self):
        """The socket outlives the daemon: who connects in between waits."""
        with listening_socket(f"{self.folder}/kept.socket") as listening:
            for _ in range(2):
                waiting = socket.socket(socket.AF_UNIX)
                waiting.connect(f"{self.folder}/kept.socket")
                daemon = self.start(listening=listening)
                client = Client(waiting)
                self.assertEqual(client.version(), "1.3")
                client.unregister(1)
                self.assertEqual(daemon.wait(), 0)


@bench_only("it looks into the program that was built")
class PropertyListsTest(unittest.TestCase):
    def section(self, program, name):
        with tempfile.NamedTemporaryFile() as dumped:
            subprocess.run(["objcopy", "--dump-section", f"{name}={dumped.name}", program,
                            "/dev/null"], check=True)
            return dumped.read()

    def source(self, name):
        with open(f"{os.path.dirname(PROGRAMS)}/corvane-helper/vnt/{name}", "rb") as file:
            return file.read()

    def test_both_are_linked_in_byte_for_byte(self):
        self.assertEqual(self.section(DAEMON, "__TEXT,__info_plist"), self.source("Info.plist"))
        self.assertEqual(self.section(DAEMON, "__TEXT,__launchd_plist"),
                         self.source("launchd.plist"))

    def test_the_information_property_list_has_its_keys_in_their_order(self):
        info = plistlib.loads(self.section(DAEMON, "__TEXT,__info_plist"), fmt=plistlib.FMT_XML)
        copyright_line = info.pop("NSHumanReadableCopyright")
        self.assertTrue(copyright_line)
        requirement, = info.pop("SMAuthorizedClients")
        self.assertEqual(list(info.items()), [
            ("CFBundleIdentifier", IDENTIFIER),
            ("CFBundleInfoDictionaryVersion", "6.0"),
            ("CFBundleName", IDENTIFIER),
            ("CFBundleShortVersionString", "1.3"),
            ("CFBundleVersion", "190617"),
            ("NSPrincipalClass", "ZELPrivilegedOperationSetVNT"),
        ])
        keys = list(plistlib.loads(self.source("Info.plist")))
        self.assertEqual(keys, ["CFBundleIdentifier", "CFBundleInfoDictionaryVersion",
                                "CFBundleName", "CFBundleShortVersionString", "CFBundleVersion",
                                "NSHumanReadableCopyright", "NSPrincipalClass",
                                "SMAuthorizedClients"])
        self.assertTrue(requirement.startswith(
            'anchor apple generic and identifier "com.corvane.xpc.privilegerequestor-vnt" and ('))
        self.assertTrue(requirement.endswith(")"))
        alternatives = requirement[requirement.index("(") + 1:-1].split(" or ")
        fields = [[field for field in ("100.6.1.9]", "100.6.2.6]", "100.6.1.13]", "subject.OU] =",
                                       "subject.CN] =", "100.6.2.1]") if field in alternative]
                  for alternative in alternatives]
        self.assertEqual(fields, [["100.6.1.9]"], ["100.6.2.6]", "100.6.1.13]", "subject.OU] ="],
                                  ["subject.CN] =", "100.6.2.1]"]])

    def test_the_launchd_property_list_names_the_service(self):
        launchd = plistlib.loads(self.section(DAEMON, "__TEXT,__launchd_plist"))
        self.assertEqual(list(launchd.items()),
                         [("Label", IDENTIFIER), ("MachServices", {IDENTIFIER: True})])


if __name__ == "__main__":
    main()
