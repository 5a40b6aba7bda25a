"""A tree that takes long enough to delete for something to happen meanwhile."""

import os
import shutil
import signal
import tempfile
import time

FOLDERS, FILES = 600, 1000


class BigTree:
    """600,000 files, for a test that removes it afterwards."""

    def __init__(self, test):
        self.path = tempfile.mkdtemp(prefix="corvane-test.", dir="/dev/shm")
        test.addCleanup(shutil.rmtree, self.path, ignore_errors=True)
        source = f"{self.path}/one"
        self._one = os.open(source, os.O_RDONLY | os.O_CREAT)
        test.addCleanup(os.close, self._one)
        for i in range(FOLDERS):
            os.mkdir(f"{self.path}/{i}")
            folder = os.open(f"{self.path}/{i}", os.O_RDONLY)
            # As many entries as files, at a fraction of their memory.
            for j in range(FILES):
                os.link(source, str(j), dst_dir_fd=folder)
            os.close(folder)

    def left(self):
        """How many files are left."""
        return sum(len(files) for _, _, files in os.walk(self.path))

    def has_begun(self):
        """The one file has fewer names, wherever the first one was taken from."""
        return os.fstat(self._one).st_nlink < FOLDERS * FILES + 1

    def hold_in_its_middle(self, daemon):
        """Stops the process `daemon` once it has begun to delete."""
        while not self.has_begun():
            os.kill(daemon, signal.SIGCONT)
            time.sleep(0.002)
            os.kill(daemon, signal.SIGSTOP)
