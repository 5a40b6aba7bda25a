"""A file system in which every folder has nothing to be listed, and is not empty when it is removed: as
if somebody wrote into it each time that its last entry is gone.

    refilled_folders.py FOLDER

mounts it at FOLDER until it is ended, and says `ready` on standard output, or why it cannot be done.
"""

import os
import stat
import struct
import sys

sys.path.insert(0, f"{os.path.dirname(os.path.abspath(__file__))}/../daemon")
from silent_files import FORGET, BATCH_FORGET, GETATTR, INIT, LOOKUP, WELCOME, found, serve, status

RMDIR, OPENDIR, READDIR, RELEASEDIR = 11, 27, 28, 29
ANY_FOLDER = 2
NOT_EMPTY, UNKNOWN = -39, -38
MODE = stat.S_IFDIR | 0o755


def answer(operation, node, _):
    return {INIT: WELCOME,
            LOOKUP: found(ANY_FOLDER, MODE),
            GETATTR: status(node, MODE),
            OPENDIR: struct.pack("<Q2I", 1, 0, 0),
            READDIR: b"",
            RELEASEDIR: b"",
            RMDIR: NOT_EMPTY,
            FORGET: None,
            BATCH_FORGET: None}.get(operation, UNKNOWN)


if __name__ == "__main__":
    serve(sys.argv[1], answer)
