#!/usr/bin/python3
"""The inspection of programs for macOS finds nothing in those that were built, and in one that was
made wrong what is wrong. CORVANE_MACOS_PROGRAMS is the folder that has them."""

import os
import struct
import sys
import unittest

SOURCES = os.environ.get("CORVANE_SOURCES",
                         f"{os.path.dirname(os.path.abspath(__file__))}/../../..")
PROGRAMS = os.environ.get("CORVANE_MACOS_PROGRAMS", f"{SOURCES}/build/macos/bin")
sys.path.insert(0, f"{SOURCES}/tools/macos")

import inspection  # pylint: disable=wrong-import-position
import macho  # pylint: disable=wrong-import-position

CLIENT = "privilegerequestor-vnt"


def content_of(name):
    with open(f"{PROGRAMS}/{name}", "rb") as file:
        return file.read()


def replaced(content, old, new):
    """With all that is `old` replaced by what is as long."""
    assert len(old) == len(new) and old in content, old
    return content.replace(old, new)


def with_number(content, offset, form, value):
    changed = bytearray(content)
    struct.pack_into(form, changed, offset, value)
    return bytes(changed)


def command(content, wanted, name=b""):
    """The place of the first load command of a kind that has `name` in it."""
    offset = 32
    for _ in range(struct.unpack_from("<I", content, 16)[0]):
        kind, length = struct.unpack_from("<2I", content, offset)
        if kind == wanted and name in content[offset:offset + length]:
            return offset
        offset += length
    raise AssertionError(f"no load command {wanted:#x}")


class InspectionTest(unittest.TestCase):

    def setUp(self):
        self.helper = content_of(inspection.HELPER)
        self.image = macho.Image(self.helper)

    def assert_fault(self, content, *texts, name=inspection.HELPER):
        found = inspection.faults(content, name)
        for text in texts:
            self.assertTrue(any(text in fault for fault in found), f"{text} is not in {found}")
        self.assertEqual(len(found), len(texts), found)

    def test_nothing_is_wrong_with_what_is_built(self):
        for name in (inspection.HELPER, CLIENT):
            self.assertEqual(inspection.faults(content_of(name), name), [], name)

    def test_every_symbol_that_was_read_is_taken_by_one_of_the_programs(self):
        taken = self.image.imports() | macho.Image(content_of(CLIENT)).imports()
        self.assertEqual(inspection.known_imports() - taken, set())

    def test_a_file_of_another_kind_is_told(self):
        self.assert_fault(b"\x7fELF" + bytes(100), "not a 64-bit Mach-O file")
        self.assert_fault(with_number(self.helper, 4, "<I", 0x0100000C), "for x86_64")
        self.assert_fault(with_number(self.helper, 12, "<I", 6), "no program for macOS")

    def test_a_file_that_is_cut_short_is_told_wherever_it_ends(self):
        for length in range(0, len(self.helper) - 1, len(self.helper) // 97):
            self.assertTrue(inspection.faults(self.helper[:length], inspection.HELPER), length)

    def test_another_system_than_the_oldest_is_told(self):
        kinds = {macho.LC_VERSION_MIN_MACOSX: 8, macho.LC_BUILD_VERSION: 12}
        for kind, distance in kinds.items():
            try:
                place = command(self.helper, kind) + distance
            except AssertionError:
                continue
            self.assert_fault(with_number(self.helper, place, "<I", 13 << 16), "for 13.0")
            self.assert_fault(with_number(self.helper, place + 4, "<I", 10 << 16 | 15 << 8),
                              "with the SDK 10.15")
            return
        self.fail("there is no version")

    def test_fixups_of_a_later_system_are_told(self):
        place = command(self.helper, 0x26)  # where functions begin, which nothing needs
        self.assert_fault(with_number(self.helper, place, "<I", macho.LC_DYLD_CHAINED_FIXUPS),
                          "fixups that its system does not know")

    def test_a_fixed_address_is_told(self):
        flags = struct.unpack_from("<I", self.helper, 24)[0]
        self.assert_fault(with_number(self.helper, 24, "<I", flags & ~macho.MH_PIE),
                          "cannot be loaded at another address")
        self.assert_fault(with_number(self.helper, 24, "<I", flags & ~macho.MH_TWOLEVEL),
                          "whatever library")

    def test_code_that_can_be_written_is_told(self):
        text = command(self.helper, macho.LC_SEGMENT_64, b"__TEXT")
        self.assert_fault(with_number(self.helper, text + 56, "<I", 7),
                          "__TEXT can be written and executed")
        self.assert_fault(with_number(self.helper, text + 60, "<I", 1),
                          "__TEXT is not read and execute")

    def test_a_library_that_is_not_the_systems_is_told(self):
        self.assert_fault(replaced(self.helper, b"/usr/lib/libobjc.A", b"/usr/loc/libobjc.A"),
                          "/usr/loc/libobjc.A.dylib is not the system's",
                          *["nobody has read"] * len({symbol for library, symbol
                                                      in self.image.imports()
                                                      if "libobjc" in library}))

    def test_a_symbol_that_nobody_has_read_is_told(self):
        self.assert_fault(replaced(self.helper, b"_setattrlistat\0", b"_setattrlistax\0"),
                          "has _setattrlistax in 10.13")

    def test_a_canary_that_is_not_the_systems_is_told(self):
        self.assert_fault(
            replaced(self.helper, b"___stack_chk_guard\0", b"___stack_chk_gUard\0"),
            "has ___stack_chk_gUard", "___stack_chk_guard is not the system's")

    def test_a_canary_of_its_own_is_told(self):
        # A name of something that is defined, of the canary's length.
        table, count, names, _ = struct.unpack_from("<4I", self.helper,
                                                    command(self.helper, macho.LC_SYMTAB) + 8)
        places = {}
        for index in range(count):
            name, kind, section = struct.unpack_from("<IBB", self.helper, table + index * 16)
            text = self.helper[names + name:self.helper.index(b"\0", names + name)]
            places[text] = (table + index * 16, kind, section)
        defined = next(place for place, kind, section in places.values()
                       if kind & 0xE0 == 0 and kind & 0x0E == 0x0E and section)
        guard = struct.unpack_from("<I", self.helper, places[b"___stack_chk_guard"][0])[0]
        self.assert_fault(with_number(self.helper, defined, "<I", guard),
                          "___stack_chk_guard is its own")

    def test_a_changed_property_list_is_told(self):
        for section, file_name in inspection.PROPERTY_LISTS.items():
            place = self.image.section("__TEXT", section).offset
            self.assert_fault(with_number(self.helper, place + 3, "B", 0x20),
                              f"its section {section} is not {file_name}")
        self.assert_fault(replaced(self.helper, b"__launchd_plist\0", b"__launchd_plisT\0"),
                          "its section __launchd_plist is not launchd.plist")

    def test_fields_over_the_class_pointer_are_told(self):
        record = self.image.place(self.image.classes()["ZELExportedHelper"].record)
        self.assert_fault(with_number(self.helper, record + 4, "<I", 0),
                          "ZELExportedHelper begins within the class pointer, at 0")
        self.assert_fault(with_number(self.helper, record + 8, "<I", 16),
                          "has 24 bytes of fields, and 16 in all")
        fields = self.image.pointer(self.image.classes()["ZELExportedHelper"].record + 48)
        offset = self.image.place(self.image.pointer(fields + 8))
        self.assert_fault(with_number(self.helper, offset, "<I", 0), "has _helper at 0")

    def test_another_superclass_is_told(self):
        found = inspection.faults(
            replaced(self.helper, b"_OBJC_CLASS_$_NSObject\0", b"_OBJC_CLASS_$_NSObjecT\0"),
            inspection.HELPER)
        self.assertIn("ZELExportedHelper is a NSObjecT", found)

    def test_another_selector_is_told(self):
        self.assert_fault(
            replaced(self.helper, b"\0registerClientWithPID:\0", b"\0registerClientWithPId:\0"),
            "the methods of ZELPrivilegedHelperProtocol are")

    def test_another_order_is_told(self):
        record = self.image.protocols()["ZELPrivilegedHelperProtocol"].record
        methods = self.image.place(self.image.pointer(record + 24)) + 8
        first, second = self.helper[methods:methods + 24], self.helper[methods + 24:methods + 48]
        self.assert_fault(self.helper[:methods] + second + first + self.helper[methods + 48:],
                          "the methods of ZELPrivilegedHelperProtocol are")

    def test_other_types_are_told(self):
        self.assert_fault(
            replaced(self.helper, b'@?<v@?@"NSError">48\0', b'@?<v@?@"NSErroR">48\0'),
            "the methods of ZELPrivilegedHelperProtocol are")
        record = self.image.protocols()["ZELPrivilegedHelperProtocol"].record
        place = self.image.place(record + 72)
        self.assert_fault(with_number(self.helper, place, "<Q", 0),
                          "the methods of ZELPrivilegedHelperProtocol are",
                          "the optional methods of ZELPrivilegedHelperProtocol are")

    def test_a_protocol_that_adopts_another_one_is_told(self):
        protocols = self.image.protocols()
        service = protocols["ZELPrivilegedHelperService"].record
        place = self.image.place(self.image.pointer(service + 16) + 16)
        other = protocols["ZELPrivilegedHelperProtocol"].record
        self.assert_fault(with_number(self.helper, place, "<Q", other),
                          "ZELPrivilegedHelperService adopts")

    def test_a_protocol_that_nobody_serves_is_told(self):
        record = self.image.classes()["ZELExportedHelper"].record
        self.assert_fault(with_number(self.helper, self.image.place(record + 40), "<Q", 0),
                          "ZELExportedHelper does not serve ZELPrivilegedHelperService")

    def test_a_method_that_the_class_does_not_have_is_told(self):
        record = self.image.classes()["ZELExportedHelper"].record
        methods = self.image.place(self.image.pointer(record + 32))
        count = struct.unpack_from("<I", self.helper, methods + 4)[0]
        self.assert_fault(with_number(self.helper, methods + 4, "<I", count - 1),
                          "ZELExportedHelper has no queryAuthorization")


if __name__ == "__main__":
    unittest.main()
