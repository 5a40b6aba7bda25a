"""What the tests are about, and how patient they are."""

import os
import time
import unittest

IDENTIFIER = "com.corvane.system.privilegedhelper-vnt"

# The one switch: a daemon of the build that each test starts for itself, or the service as it is
# installed in the machine that the tests run in.
SUBJECT = os.environ.get("CORVANE_SUBJECT", "bench")
assert SUBJECT in ("bench", "installed"), SUBJECT
INSTALLED = SUBJECT == "installed"

# In whose name the tests connect when they name nobody: root's, or that of a user of the machine
# whom its rules for polkit grant what root may.
CALLER = os.environ.get("CORVANE_CALLER", "root")
assert INSTALLED or CALLER == "root", CALLER

# How long something that must happen may take on a slow machine. Nothing is measured with it.
PATIENCE = 60

ERROR, NOTICE, INFORMATIONAL, DEBUG = 3, 5, 6, 7


def bench_only(reason):
    """A test, or a class of them, of what no installed service can be brought to do."""
    return unittest.skipIf(INSTALLED, f"bench only: {reason}")


def installed_only(reason):
    """A test, or a class of them, of what only a machine with the service has."""
    return unittest.skipIf(not INSTALLED, f"installed only: {reason}")


def root_only(reason):
    """A test, or a class of them, whose client has to be root."""
    return unittest.skipIf(CALLER != "root", f"root only: {reason}")


def wait_until(condition, what, patience=PATIENCE):
    """Waits for a state that nothing announces."""
    deadline = time.monotonic() + patience
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"waited in vain until {what}")
        time.sleep(0.005)
