"""Utilities whose client goes away while they run."""

import os
import threading

from gi.repository import GLib

from bus import EXECUTE_UTILITY, Client, FeedbackServer
from log_lines import completed
from support import DaemonTest, main, wait_until

# Writes who it is, waits until it is told to go on, and writes once more to nobody.
UTILITY = """#!/bin/sh
echo $$ >'{folder}/pid.new' && mv '{folder}/pid.new' '{folder}/pid'
read -r line <'{folder}/go-on'
echo output; echo error >&2
exit 0
"""


class InterruptedClientTest(DaemonTest):
    def prepare(self):
        programs = f"{self.folder}/Test.app/Contents/MacOS"
        os.makedirs(programs)
        with open(f"{programs}/../Info.plist", "w", encoding="utf-8") as info:
            info.write('<plist version="1.0"><dict><key>CFBundleExecutable</key>'
                       "<string>lipo</string></dict></plist>")
        with open(f"{programs}/lipo", "w", encoding="utf-8") as utility:
            utility.write(UTILITY.format(folder=self.folder))
        os.chmod(f"{programs}/lipo", 0o755)
        os.mkfifo(f"{self.folder}/go-on")

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
