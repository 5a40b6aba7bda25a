"""One daemon after the other: clients that come while the last one leaves."""

import os
import signal
import socket
import subprocess
import threading
import time

import bus
from support import (PATIENCE, PROGRAMS, SANITIZER_REPORT, SOURCES, TEST_PROGRAMS, FolderTest, Log,
                     main, wait_until)

# After each of which a daemon has ended, and in which others may have.
WAVES = 5

# How long a daemon that would end waits for the first message of a connection.
ARRIVAL_PATIENCE = 0.25


class SuccessionTest(FolderTest):

    def setUp(self):
        super().setUp()
        self.server = subprocess.Popen([f"{SOURCES}/tools/serve", PROGRAMS, self.folder],
                                       stderr=subprocess.PIPE)
        self.log = Log(self.server.stderr)
        self.addCleanup(self.end_server)
        wait_until(lambda: os.path.exists(f"{self.folder}/ready"), "the server is ready")

    def end_server(self):
        self.server.send_signal(signal.SIGTERM)
        self.server.wait(PATIENCE)
        self.log.join()
        reports = [line for line in self.log.after(0) if SANITIZER_REPORT.search(line)]
        self.assertEqual(reports, [])

    def wait_for_ends_of_daemons(self, count):
        wait_until(lambda: sum("Terminating privileged helper." in line
                               for line in self.log.after(0)) >= count,
                   f"{count} daemons have ended")

    def test_no_client_of_the_library_sees_a_daemon_end(self):
        for wave in range(1, WAVES + 1):
            result = subprocess.run(
                [f"{TEST_PROGRAMS}/hammer", f"{self.folder}/helper.socket",
                 f"{self.folder}/authorization.socket", "8", "8"],
                stderr=subprocess.PIPE, text=True, timeout=PATIENCE, check=False)
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            self.wait_for_ends_of_daemons(wave)

    def test_no_client_of_its_own_sees_a_daemon_end(self):
        failures = []

        def come_and_go(number):
            left = 15
            while left > 0 and not failures:
                begin = time.monotonic()
                try:
                    connected = socket.socket(socket.AF_UNIX)
                    connected.connect(f"{self.folder}/helper.socket")
                    client = bus.Client(connected)
                    client.register(100000 + number)
                except Exception as failure:  # pylint: disable=broad-except
                    # Who takes longer for the first message is not waited for.
                    if time.monotonic() - begin < ARRIVAL_PATIENCE:
                        failures.append(failure)
                    continue
                try:
                    assert client.version() == "1.3"
                    client.unregister(100000 + number)
                except Exception as failure:  # pylint: disable=broad-except
                    failures.append(failure)
                left -= 1

        for wave in range(1, WAVES + 1):
            clients = [threading.Thread(target=come_and_go, args=(number,)) for number in range(3)]
            for client in clients:
                client.start()
            for client in clients:
                client.join()
            self.assertEqual(failures, [])
            self.wait_for_ends_of_daemons(wave)


if __name__ == "__main__":
    main()
