"""Operations that are started from an event loop, which the library tells how they go."""

import os
import subprocess

from support import PATIENCE, TEST_PROGRAMS, DaemonTest, bench_only, main, make_application, wait_until

# Runs what it is told.
UTILITY = """#!/bin/sh
eval "$1"
"""


@bench_only("it uses a client of the tests")
class QueueTest(DaemonTest):
    def prepare(self):
        self.application = make_application(self.folder, UTILITY)

    def queueing(self, case):
        run = subprocess.run([f"{TEST_PROGRAMS}/queueing", self.daemon.socket_path,
                              self.issuer.socket_path, self.application, self.folder, case],
                             stdout=subprocess.PIPE, text=True, timeout=PATIENCE, check=True)
        self.expects_end = True
        return run.stdout.splitlines()

    def test_operations_are_performed_in_their_order_and_told_on_the_thread_of_the_loop(self):
        self.assertEqual(self.queueing("in-order"), [
            "output text", "first done", "second done", "unknown 22", "query granted",
            "deletion 1 missing", "from a callback done", "quiet"])

    def test_what_runs_and_what_waits_is_cancelled_from_another_thread(self):
        self.assertEqual(self.queueing("cancelled"), ["pending 89", "running 89", "next done"])

    def test_a_cancel_is_heard_however_early_it_comes(self):
        self.assertEqual(self.queueing("cancelled-at-once"), ["at once 89"] * 20)

    def test_a_queue_that_is_left_ends_what_runs_and_tells_nothing_more(self):
        self.assertEqual(self.queueing("forsaken"), ["left"])
        with open(f"{self.folder}/begun", encoding="ascii") as file:
            utility = int(file.read())
        wait_until(lambda: not os.path.exists(f"/proc/{utility}"), "the utility has ended")

    def test_output_waits_for_the_loop_and_none_is_lost(self):
        self.assertEqual(self.queueing("much-output"), ["readable", "much done", "20000000"])


if __name__ == "__main__":
    main()
