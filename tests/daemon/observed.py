"""What the kernel tells of the daemon."""

import os
import re
import resource

from common import wait_until


class Observed:
    """A daemon whose process is `process`."""

    def memory(self, field="VmRSS"):
        """In KiB, as the kernel counts it."""
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return int(re.search(rf"{field}:\s+(\d+) kB", status.read())[1])

    def holdings(self):
        """How many descriptors and threads it has."""
        return tuple(len(os.listdir(f"/proc/{self.process.pid}/{kind}")) for kind in ("fd", "task"))

    def wait_for_holdings(self, holdings):
        """Waits until it has given back what it had taken since it had `holdings`."""
        wait_until(lambda: all(now <= before for now, before in zip(self.holdings(), holdings)),
                   f"the daemon holds {holdings} descriptors and threads again")

    def use_up_descriptors(self):
        """From now on it gets no more descriptors."""
        _, hard = resource.prlimit(self.process.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(self.process.pid, resource.RLIMIT_NOFILE, (3, hard))

    def is_sanitized(self, sanitizers="[at]san"):
        with open(f"/proc/{self.process.pid}/maps", encoding="utf-8") as maps:
            return re.search(f"lib{sanitizers}", maps.read()) is not None
