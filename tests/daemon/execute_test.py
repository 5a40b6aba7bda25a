"""Utilities that the daemon runs, seen over its interface."""

import os
import threading

from gi.repository import GLib

from bus import EXECUTE_UTILITY, POSIX, Client, FeedbackServer
from log_lines import completed
from support import DaemonTest, main, make_application, wait_until

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
        priority, text = completed("execute-utility", 0)
        self.log.wait_for(lambda line: line.startswith(f"<{priority}>") and text in line, mark)
        self.assertFalse(os.path.exists(f"/proc/{utility}"), "the utility was waited for")


if __name__ == "__main__":
    main()
