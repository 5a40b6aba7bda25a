"""What the client prints for programs."""

import json
import os
import subprocess
import sys
import unittest

SOURCES = os.environ["CORVANE_SOURCES"]
sys.path += [f"{SOURCES}/tests/daemon", f"{SOURCES}/tests/support"]
from support import PATIENCE, PROGRAMS, main


class JSONTest(unittest.TestCase):

    def test_no_name_controls_a_terminal(self):
        path = "/no/such/ä\x1b[31m\x7f\u009b31m\nb"
        result = subprocess.run(
            [f"{PROGRAMS}/privilegerequestor-vnt", "--json", "--socket", path, "nop"],
            stdout=subprocess.PIPE, timeout=PATIENCE, check=False)
        self.assertEqual(result.returncode, 5)
        self.assertEqual([byte for byte in result.stdout
                          if not 0x20 <= byte < 0x7f and byte != ord("\n")], [])
        self.assertIn(path, json.loads(result.stdout)["description"])


if __name__ == "__main__":
    main()
