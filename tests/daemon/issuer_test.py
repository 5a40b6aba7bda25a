"""The issuer of authorizations, while other users do their worst to it."""

import os
import subprocess

from bus import NOP, Client
from support import PATIENCE, SOMEBODY_ELSE, DaemonTest, main

ATTACKER = SOMEBODY_ELSE
FORMS = 50

# Connects again and again, without end: some are kept for a while, some are dropped at once, and
# none takes what it is given. Says so once it has begun.
FLOOD = """
import socket, sys
kept = []
while True:
    asking = socket.socket(socket.AF_UNIX)
    asking.connect(sys.argv[1])
    kept.append(asking)
    if len(kept) == 500:
        kept = kept[250:]
        print("flooding", flush=True)
"""


class IssuerTest(DaemonTest):

    def flood(self):
        process = subprocess.Popen(["/usr/bin/python3", "-I", "-c", FLOOD, self.issuer.socket_path],
                                   stdout=subprocess.PIPE, user=ATTACKER, group=ATTACKER,
                                   extra_groups=[])
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait, PATIENCE)
        self.addCleanup(process.kill)
        self.assertEqual(process.stdout.readline(), b"flooding\n")
        return process

    def expect_forms(self):
        user = self.user()
        client = Client(user.connect(self.daemon.socket_path))
        for _ in range(FORMS):
            self.assertIsNone(client.perform(NOP, self.form(user)))

    def test_connections_that_are_kept_do_not_hold_up_others(self):
        attacker = self.user(ATTACKER)
        kept = [attacker.connect(self.issuer.socket_path) for _ in range(500)]
        self.expect_forms()
        for connection in kept:
            with connection:
                self.assertEqual(len(connection.recv(64)), 32)

    def test_those_who_connect_without_end_do_not_hold_up_others(self):
        attackers = [self.flood() for _ in range(4)]
        self.expect_forms()
        for attacker in attackers:
            self.assertIsNone(attacker.poll(), "it still floods")

    def test_one_process_issues_all_forms(self):
        self.expect_forms()
        pid = self.issuer.process.pid
        self.assertEqual(len(os.listdir(f"/proc/{pid}/task")), 1)
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as children:
            self.assertEqual(children.read(), "")


if __name__ == "__main__":
    main()
