"""Programs on a terminal."""

import os
import pty
import re
import select
import termios
import time

# How long something that must happen may take on a slow machine. Nothing is measured with it.
PATIENCE = 90

LOCAL_MODES = 3  # their place in what tcgetattr gives


class Terminal:
    """A program on a terminal, and what a person sees and types there."""

    def __init__(self, argv, environment=None):
        self.seen = ""
        self.pid, self._terminal = pty.fork()
        if self.pid == 0:
            try:
                os.execvpe(argv[0], argv, os.environ if environment is None else environment)
            finally:
                os._exit(127)

    def _read(self, deadline):
        """Whether there was more to see; not at the end."""
        if not select.select([self._terminal], [], [], max(0, deadline - time.monotonic()))[0]:
            raise AssertionError(f"nothing more is shown after:\n{self.seen}")
        try:
            shown = os.read(self._terminal, 65536).decode(errors="replace")
        except OSError:
            return False
        self.seen += shown
        return bool(shown)

    def expect(self, pattern):
        """Waits until what is shown has a match of `pattern`."""
        deadline = time.monotonic() + PATIENCE
        while not re.search(pattern, self.seen):
            assert self._read(deadline), f"{pattern} is not shown in:\n{self.seen}"

    def echoes(self):
        """Whether what is typed is seen."""
        return bool(termios.tcgetattr(self._terminal)[LOCAL_MODES] & termios.ECHO)

    def type(self, text):
        os.write(self._terminal, text.encode())

    def wait(self):
        """The exit status, after the program has ended by itself."""
        deadline = time.monotonic() + PATIENCE
        while self._read(deadline):
            pass
        os.close(self._terminal)
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])
