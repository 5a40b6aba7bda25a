"""One daemon after the other: clients that come while the last one leaves."""

import subprocess
import threading
import time

import bus
import users
from support import PATIENCE, TEST_PROGRAMS, FolderTest, Succession, main

# After each of which a daemon has ended, and in which others may have.
WAVES = 5

# How long a daemon that would end waits for the first message of a connection.
ARRIVAL_PATIENCE = 0.25


class SuccessionTest(FolderTest):

    def setUp(self):
        super().setUp()
        self.succession = Succession(self.folder)
        self.addCleanup(self.succession.end)

    def test_no_client_of_the_library_sees_a_daemon_end(self):
        for wave in range(1, WAVES + 1):
            result = subprocess.run(
                [f"{TEST_PROGRAMS}/hammer", self.succession.socket_path,
                 self.succession.issuer_socket_path, "8", "8"],
                stderr=subprocess.PIPE, text=True, timeout=PATIENCE, check=False,
                **users.as_caller())
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            self.succession.wait_for_ends(wave)

    def test_no_client_of_its_own_sees_a_daemon_end(self):
        failures = []

        def come_and_go(number):
            left = 15
            while left > 0 and not failures:
                begin = time.monotonic()
                try:
                    client = bus.Client(users.connect(self.succession.socket_path))
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
            self.succession.wait_for_ends(wave)


if __name__ == "__main__":
    main()
