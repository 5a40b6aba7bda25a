"""Objects that are protected: by the kernel's flags, and by what tells the system's flags apart."""

import array
import fcntl
import os
import subprocess

IMMUTABLE, APPEND_ONLY = 0x10, 0x20
_GET_FLAGS, _SET_FLAGS = 0x80086601, 0x40086602
ATTRIBUTE = "trusted.corvane.flags"


def _change_flags(path, change):
    """The kernel's flags of the object itself, after those of `change` were added."""
    descriptor = os.open(path, os.O_RDONLY | os.O_NOFOLLOW)
    try:
        flags = array.array("L", [0])
        fcntl.ioctl(descriptor, _GET_FLAGS, flags)
        if change:
            flags[0] |= change
            fcntl.ioctl(descriptor, _SET_FLAGS, flags)
        return flags[0]
    finally:
        os.close(descriptor)


def kernel_flags(path):
    return _change_flags(path, 0) & (IMMUTABLE | APPEND_ONLY)


def protect(path, flags, attribute=None):
    """Sets the kernel's flags, and the attribute that says which flags they stand for."""
    if attribute is not None:
        os.setxattr(path, ATTRIBUTE, hex(attribute).encode())
    _change_flags(path, flags)


def unprotect(folder):
    """Takes all flags below `folder` off."""
    subprocess.run(["chattr", "-R", "-f", "-i", "-a", folder], check=False,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
