"""A daemon that is killed at any instant leaves the old or the new behind, and what the next one can go
on with. Each kind for CORVANE_CAMPAIGN_SECONDS, or for one second; what it came to is printed."""

import contextlib
import os
import plistlib
import pwd
import random
import signal
import threading
import time

from bus import DELETE_FILEOBJECTS, MODIFY_PREFERENCES, Client
from gi.repository import GLib
from protection import IMMUTABLE, protect, unprotect
from support import (DAEMON, BenchDaemon, BenchIssuer, FolderTest, bench_only, change_rights, main,
                     preferences_root)

# So that it takes a while to be written.
LARGE = "x" * 1_000_000
SECONDS = float(os.environ.get("CORVANE_CAMPAIGN_SECONDS", "1"))


@bench_only("it kills daemons of its own")
class KilledDaemonTest(FolderTest):
    def setUp(self):
        super().setUp()
        self.addCleanup(unprotect, self.folder)
        change_rights(self.folder, "register")
        self.issuer = BenchIssuer(self.folder)
        self.addCleanup(self.issuer.close)
        # Said, so that a failure can be had again.
        seed = random.randrange(1 << 32)
        print(f"seed {seed}", flush=True)
        self.random = random.Random(seed)
        # What an operation that nobody disturbed has taken.
        self.longest = 0

    @contextlib.contextmanager
    def daemon(self):
        daemon = BenchDaemon(self.folder, DAEMON, start=("setsid", *BenchDaemon.START))
        try:
            yield daemon, Client(daemon.connect())
        finally:
            daemon.process.kill()
            daemon.wait()

    def perform(self, client, code, arguments):
        begin = time.monotonic()
        answer = client.perform(code, self.issuer.form(), arguments)
        self.longest = max(self.longest, time.monotonic() - begin)
        return answer and answer[:2]

    def kill_during(self, code, arguments):
        """Has a daemon killed while it performs that, or just before or after."""
        with self.daemon() as (daemon, client):
            # It is there, and has the group of its own.
            client.version()
            answers = []

            def ask():
                # It is not answered if the daemon has ended.
                with contextlib.suppress(GLib.Error):
                    answers.append(self.perform(client, code, arguments))
            asking = threading.Thread(target=ask)
            asking.start()
            time.sleep(self.random.uniform(0, 1.2 * self.longest))
            # With its children: as the service manager does, or a machine that loses its power.
            os.killpg(daemon.process.pid, signal.SIGKILL)
            asking.join()
            self.assertEqual(answers, [None] * len(answers))

    def rounds(self):
        end = time.monotonic() + SECONDS
        count = 0
        while count == 0 or time.monotonic() < end:
            yield count
            count += 1
        print(f"{self._testMethodName}: {count} kills", flush=True)

    def test_preferences_are_the_old_or_the_new_ones(self):
        user = pwd.getpwuid(0)
        home = f"{preferences_root(self.folder)}{user.pw_dir}"
        os.makedirs(home)
        path = f"{home}/.config/preferences/com.example.plist"

        def change(key, value):
            return [key, "com.example", user.pw_name, "kCFPreferencesAnyHost", value]

        with self.daemon() as (_, client):
            self.assertIsNone(self.perform(client, MODIFY_PREFERENCES, change("kept", LARGE)))
            self.assertIsNone(self.perform(client, MODIFY_PREFERENCES, change("key", "old")))
        for number in self.rounds():
            self.kill_during(MODIFY_PREFERENCES, change("key", f"new{number}"))
            with open(path, "rb") as file:
                told = plistlib.load(file)
            self.assertEqual(told["kept"], LARGE)
            self.assertIn(told["key"], ("old", f"new{number}"))
            # The next daemon waits for what is still at work, and is heeded.
            with self.daemon() as (_, client):
                self.assertIsNone(self.perform(client, MODIFY_PREFERENCES, change("key", "old")))
            with open(path, "rb") as file:
                self.assertEqual(plistlib.load(file)["key"], "old")

    def test_a_removal_is_ended_by_the_next_daemon(self):
        outside = f"{self.folder}/outside"
        os.mkdir(outside)
        tree = f"{self.folder}/tree"
        for _ in self.rounds():
            for name in ("one", "two/inner"):
                os.makedirs(f"{tree}/{name}")
                for number in range(100):
                    os.close(os.open(f"{tree}/{name}/{number}", os.O_CREAT | os.O_WRONLY))
                protect(f"{tree}/{name}/0", IMMUTABLE)
                os.symlink(outside, f"{tree}/{name}/link")
            protect(f"{tree}/two", IMMUTABLE)
            self.kill_during(DELETE_FILEOBJECTS, ["1", "0", tree])
            self.assertTrue(os.path.isdir(outside))
            with self.daemon() as (_, client):
                self.assertIsNone(self.perform(client, DELETE_FILEOBJECTS, ["1", "0", tree]))
            self.assertFalse(os.path.lexists(tree))


if __name__ == "__main__":
    main()
