#!/usr/bin/python3
"""The limits that the documents tell are those of the code."""

import os
import re
import unittest

SOURCES = os.environ.get("CORVANE_SOURCES", f"{os.path.dirname(os.path.abspath(__file__))}/../..")

TRANSPORT = "platform/linux/transport"
UNITS = {"KiB": 1 << 10, "MiB": 1 << 20}
SERVICE = "packaging/helper/helper.service.in"
# What a connection may cost the service.
DESCRIPTORS_OF_CONNECTION = 8

# The first cell of a row, and what the numbers of the row are, in their order.
LIMITS, GUARD, VALUES = (f"{TRANSPORT}/{name}" for name in
                         ("PeerLimits.h", "MessageGuard.cpp", "BusValue.cpp"))
HANDSHAKE = [(GUARD, "maximumHandshakeSize"), (f"{TRANSPORT}/PeerBus.h", "handshakeTimeout")]
SIZE, TIME = (LIMITS, "maximumMessageSize"), (GUARD, "messageTimeout")
DESCRIPTORS = [(LIMITS, "maximumMessageDescriptors")]
DEPTH = [(VALUES, "maximumDepth")]
SMALL = [(VALUES, "smallContentSize"), (VALUES, "maximumSmallValues")]
OF_ONE, OF_ALL = (LIMITS, "maximumConnectionsPerUser"), (LIMITS, "maximumConnections")
RESERVED = [(LIMITS, "reservedConnections"), (LIMITS, "fewConnections")]
BYTES_OF_ONE, BYTES_OF_ALL = (LIMITS, "maximumMessageBytesPerUser"), (LIMITS, "maximumMessageBytes")
RESERVED_BYTES = [(LIMITS, "reservedMessageBytes"), (LIMITS, "fewMessageBytes")]
TURNS, TURN = ((f"{TRANSPORT}/Turns.h", name) for name in ("atOnce", "longest"))
REGISTERED = [(f"{TRANSPORT}/Registrations.h", "maximumOfAccount")]
ROWS = {
    "SECURITY.md": {
        "handshake": HANDSHAKE,
        "one message": [SIZE, TIME],
        "descriptors with one message": DESCRIPTORS,
        "levels of an argument": DEPTH,
        "values with less than": SMALL,
        "connections": [OF_ONE, OF_ALL, *RESERVED],
        "messages that are read": [TURNS],
        "registered process identifiers": REGISTERED,
        "messages and what they are turned into": [BYTES_OF_ONE, BYTES_OF_ALL, *RESERVED_BYTES],
    },
    "docs/PROTOCOL.md": {
        "handshake, in all": HANDSHAKE,
        "a message, header included": [SIZE],
        "a message, from its first byte": [TIME],
        "descriptors with one message": DESCRIPTORS,
        "levels of an argument": DEPTH,
        "values of one argument list": SMALL,
        "connections of one account": [OF_ONE],
        "connections of all users": [OF_ALL, *RESERVED],
        "messages of one account": [TURNS, TURN],
        "messages, all connections of one account": [BYTES_OF_ONE],
        "messages, all connections of all users": [BYTES_OF_ALL, *RESERVED_BYTES],
        "registered clients": REGISTERED,
        "clients that ended and stayed registered":
            [("privilegedhelper-vnt/ZELPrivilegedHelper.h", "clientsToLookAtFirst")],
        "to complete the handshake": [(f"{TRANSPORT}/PeerBus.h", "handshakeTimeout")],
    },
}


def text_of(path):
    with open(f"{SOURCES}/{path}", encoding="utf-8") as file:
        return file.read()


def constant(path, name):
    """The value of a number that `path` gives a name to."""
    found = re.search(rf"constexpr [\w:]+ {name}(?: = |{{)(.+?)}}?;", text_of(path))
    assert found, f"{path} has no {name}"
    product, _, shift = re.sub(r"[\w:]+{(\d+)}", r"\1", found[1]).partition(" << ")
    return int(product) << int(shift or 0)


def numbers_of(row):
    """Those of a row of a table, in bytes where they are of KiB or MiB. What an answer holds, in
    parentheses, is none of the limit's."""
    return [int(number) * UNITS.get(unit, 1) for number, unit in
            re.findall(r"(\d+)(?: (KiB|MiB))?", re.sub(r"\(.*?\)", "", row))]


class LimitsTest(unittest.TestCase):
    def test_the_documents_tell_those_of_the_code(self):
        for path, rows in ROWS.items():
            for beginning, constants in rows.items():
                with self.subTest(document=path, row=beginning):
                    row, = re.findall(rf"^\| ({re.escape(beginning)}.*)\|$", text_of(path), re.M)
                    self.assertEqual(numbers_of(row), [constant(*which) for which in constants])

    def test_what_all_users_may_hold_leaves_root_three_quarters_of_the_service(self):
        maximum = {key: int(number) * {"": 1, "G": 1 << 30}[unit] for key, number, unit in
                   re.findall(r"^(\w+)=(\d+)(G?)$", text_of(SERVICE), re.M)}
        connections = constant(LIMITS, "maximumConnections")
        self.assertLessEqual(4 * DESCRIPTORS_OF_CONNECTION * connections, maximum["LimitNOFILE"])
        # Each has a thread.
        self.assertLessEqual(4 * connections, maximum["TasksMax"])
        self.assertLessEqual(4 * constant(LIMITS, "maximumMessageBytes"), maximum["MemoryMax"])


if __name__ == "__main__":
    unittest.main()
