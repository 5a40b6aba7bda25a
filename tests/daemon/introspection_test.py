"""What the helper says of itself to who asks over D-Bus, against the files that say the same."""

import os
import xml.etree.ElementTree

from bus import CONTROL_INTERFACE, HELPER_INTERFACE, Client
from support import SOURCES, DaemonTest, bench_only, main


def members(node, interface):
    """Of the interface: each method with the name, type and direction of what belongs to it."""
    found, = (element for element in node.iter("interface") if element.get("name") == interface)
    return {method.get("name"): [(arg.get("name"), arg.get("type"), arg.get("direction", "in"))
                                 for arg in method.iter("arg")]
            for method in found.iter("method")}


@bench_only("it reads files of the source tree")
class IntrospectionTest(DaemonTest):
    def test_the_helper_is_as_the_installed_files_say(self):
        told = Client(self.daemon.connect()).call(
            "Introspect", None, "(s)", interface="org.freedesktop.DBus.Introspectable")
        node = xml.etree.ElementTree.fromstring(told[0].unpack()[0])
        for interface in (HELPER_INTERFACE, CONTROL_INTERFACE):
            file = xml.etree.ElementTree.parse(
                os.path.join(SOURCES, "packaging/dbus", f"{interface}.xml"))
            self.assertGreater(len(members(file, interface)), 1)
            self.assertEqual(members(node, interface), members(file, interface))


if __name__ == "__main__":
    main()
