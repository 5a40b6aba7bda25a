"""What a program for macOS says of itself: reads the parts of a Mach-O file for x86_64, and what is in
it of Objective-C. Raises NotMachO for what is none, or is cut short."""

import dataclasses
import struct

LC_SYMTAB, LC_LOAD_DYLIB, LC_SEGMENT_64, LC_MAIN = 0x2, 0xC, 0x19, 0x80000028
LC_LOAD_WEAK_DYLIB, LC_REEXPORT_DYLIB, LC_RPATH = 0x80000018, 0x8000001F, 0x8000001C
LC_DYLD_INFO_ONLY, LC_DYLD_CHAINED_FIXUPS = 0x80000022, 0x80000034
LC_VERSION_MIN_MACOSX, LC_BUILD_VERSION = 0x24, 0x32
DYLIBS = (LC_LOAD_DYLIB, LC_LOAD_WEAK_DYLIB, LC_REEXPORT_DYLIB)

MH_EXECUTE, MH_TWOLEVEL, MH_PIE = 2, 0x80, 0x200000
READ, WRITE, EXECUTE = 1, 2, 4
PLATFORM_MACOS = 1


class NotMachO(Exception):
    """The file is not what this reads."""


@dataclasses.dataclass
class Section:
    segment: str
    name: str
    address: int
    size: int
    offset: int


@dataclasses.dataclass
class Segment:
    name: str
    address: int
    size: int
    offset: int
    file_size: int
    maximum_protection: int
    protection: int


@dataclasses.dataclass(frozen=True)
class Bind:
    """A pointer that the system fills in."""
    address: int
    library: str
    symbol: str
    is_weak: bool


@dataclasses.dataclass
class Protocol:
    name: str
    adopted: list
    required: list  # (selector, extended types) in their order
    optional: list
    record: int  # its address


@dataclasses.dataclass
class ObjectClass:
    name: str
    start: int  # of its own fields
    size: int
    superclass: str
    selectors: list
    protocols: list
    fields: list  # (name, offset, size)
    record: int  # its address


def version(number):
    major, minor = number >> 16, number >> 8 & 0xFF
    return f"{major}.{minor}"


class Image:
    """A program in the memory of this one."""

    def __init__(self, content):
        self.content = bytes(content)
        self.segments, self.sections, self.libraries, self.rpaths = [], [], [], []
        self.minimum = self.sdk = self.platform = None
        self.has_chained_fixups = False
        self._symbol_table = None
        self._bind_ranges = []
        magic, cpu, _, self.kind, count, size, self.flags, _ = self._unpack("<8I", 0)
        if magic != 0xFEEDFACF or cpu != 0x01000007:
            raise NotMachO("not a 64-bit Mach-O file for x86_64")
        offset = 32
        for _ in range(count):
            command, length = self._unpack("<2I", offset)
            if length < 8 or offset + length > 32 + size:
                raise NotMachO("a load command leaves its place")
            self._read_command(command, offset, length)
            offset += length
        self.binds = [bind for part in self._bind_ranges for bind in self._read_binds(*part)]
        self._bound = {bind.address: bind.symbol for bind in self.binds}

    def _unpack(self, form, offset):
        try:
            return struct.unpack_from(form, self.content, offset)
        except struct.error as error:
            raise NotMachO(f"it ends before {offset:#x}") from error

    def _text(self, offset, end=None):
        terminator = self.content.find(b"\0", offset, end)
        if terminator < 0:
            raise NotMachO(f"no text at {offset:#x}")
        return self.content[offset:terminator].decode("utf-8", "replace")

    def _fixed_text(self, offset):
        return self.content[offset:offset + 16].rstrip(b"\0").decode("ascii", "replace")

    def _read_command(self, command, offset, length):
        if command == LC_SEGMENT_64:
            self._read_segment(offset)
        elif command in DYLIBS:
            self.libraries.append(self._text(offset + self._unpack("<I", offset + 8)[0]))
        elif command == LC_RPATH:
            self.rpaths.append(self._text(offset + self._unpack("<I", offset + 8)[0]))
        elif command == LC_VERSION_MIN_MACOSX:
            self.platform = PLATFORM_MACOS
            self.minimum, self.sdk = map(version, self._unpack("<2I", offset + 8))
        elif command == LC_BUILD_VERSION:
            self.platform, minimum, sdk = self._unpack("<3I", offset + 8)
            self.minimum, self.sdk = version(minimum), version(sdk)
        elif command == LC_SYMTAB:
            self._symbol_table = self._unpack("<4I", offset + 8)
        elif command == LC_DYLD_INFO_ONLY:
            numbers = self._unpack("<10I", offset + 8)
            for index, is_lazy in ((2, False), (4, False), (6, True)):
                self._bind_ranges.append((numbers[index], numbers[index + 1], is_lazy, index == 4))
        elif command == LC_DYLD_CHAINED_FIXUPS:
            self.has_chained_fixups = True

    def _read_segment(self, offset):
        address, size, position, file_size, maximum, protection, count, _ = \
            self._unpack("<4Q4I", offset + 24)
        name = self._fixed_text(offset + 8)
        if position + file_size > len(self.content):
            raise NotMachO(f"it ends within {name}")
        self.segments.append(Segment(name, address, size, position, file_size, maximum, protection))
        for index in range(count):
            place = offset + 72 + index * 80
            address, size, position = self._unpack("<2QI", place + 32)
            self.sections.append(Section(self._fixed_text(place + 16), self._fixed_text(place),
                                         address, size, position))

    def _uleb(self, offset):
        result = shift = 0
        while True:
            (byte,) = self._unpack("B", offset)
            offset += 1
            result |= (byte & 0x7F) << shift
            shift += 7
            if byte < 0x80:
                return result, offset

    def _read_binds(self, offset, size, is_lazy, is_weak):
        """The binds of one stream of opcodes."""
        end = offset + size
        ordinal, symbol, address = 0, "", 0

        def bind():
            if not 1 <= ordinal <= len(self.libraries) and not is_weak:
                raise NotMachO(f"{symbol} is of no library that the program names")
            library = "" if is_weak else self.libraries[ordinal - 1]
            return Bind(address, library, symbol, is_weak)

        while offset < end:
            (byte,) = self._unpack("B", offset)
            offset += 1
            opcode, immediate = byte & 0xF0, byte & 0x0F
            if opcode == 0x00:  # done; in the lazy stream, with one bind
                if not is_lazy:
                    return
            elif opcode == 0x10:
                ordinal = immediate
            elif opcode == 0x20:
                ordinal, offset = self._uleb(offset)
            elif opcode == 0x40:
                symbol = self._text(offset, end)
                offset += len(symbol.encode()) + 1
            elif opcode == 0x50:
                if immediate != 1:
                    raise NotMachO(f"{symbol} is bound to something else than a pointer")
            elif opcode == 0x60:  # an addend, which moves nothing here
                _, offset = self._uleb(offset)
            elif opcode == 0x70:
                distance, offset = self._uleb(offset)
                if immediate >= len(self.segments):
                    raise NotMachO(f"{symbol} is bound outside of all segments")
                address = self.segments[immediate].address + distance
            elif opcode == 0x80:
                distance, offset = self._uleb(offset)
                address = (address + distance) & (1 << 64) - 1
            elif opcode == 0x90:
                yield bind()
                address += 8
            elif opcode == 0xA0:
                yield bind()
                distance, offset = self._uleb(offset)
                address = (address + 8 + distance) & (1 << 64) - 1
            elif opcode == 0xB0:
                yield bind()
                address += 8 + immediate * 8
            elif opcode == 0xC0:
                count, offset = self._uleb(offset)
                skip, offset = self._uleb(offset)
                for _ in range(count):
                    yield bind()
                    address += 8 + skip
            else:
                raise NotMachO(f"an opcode that is not known: {byte:#x}")

    def imports(self):
        """Every symbol that the system supplies, with the library that it is expected of."""
        return {(bind.library, bind.symbol) for bind in self.binds if not bind.is_weak}

    def section(self, segment, name):
        return next((section for section in self.sections
                     if (section.segment, section.name) == (segment, name)), None)

    def content_of(self, segment, name):
        """The bytes of a section; None if there is none."""
        section = self.section(segment, name)
        if section is None:
            return None
        return self.content[section.offset:section.offset + section.size]

    def defined_symbols(self):
        """The names of what is in the program itself."""
        if self._symbol_table is None:
            return set()
        table, count, names, _ = self._symbol_table
        defined = set()
        for index in range(count):
            name, kind, section = self._unpack("<IBB", table + index * 16)
            if kind & 0xE0 == 0 and kind & 0x0E == 0x0E and section != 0:
                defined.add(self._text(names + name))
        return defined

    # Objective-C, by the addresses that its records have in the program's memory.

    def place(self, address):
        """Where in the file is what will be at an address."""
        for segment in self.segments:
            if segment.address <= address < segment.address + segment.file_size:
                return segment.offset + address - segment.address
        raise NotMachO(f"nothing is at {address:#x}")

    def pointer(self, address):
        """The address that is at an address."""
        return self._unpack("<Q", self.place(address))[0]

    def _name(self, address):
        return self._text(self.place(address))

    def _pointers(self, section_name):
        for section in self.sections:
            if section.name == section_name:
                for address in range(section.address, section.address + section.size, 8):
                    yield self.pointer(address)

    def _methods(self, address):
        """(selector, types) of each."""
        if address == 0:
            return []
        size, count = self._unpack("<2I", self.place(address))
        places = [address + 8 + index * (size & 0xFFFC) for index in range(count)]
        return [(self._name(self.pointer(place)), self._name(self.pointer(place + 8)))
                for place in places]

    def _adopted(self, address):
        if address == 0:
            return []
        return [self._name(self.pointer(self.pointer(address + 8 + index * 8) + 8))
                for index in range(self.pointer(address))]

    def protocols(self):
        found = {}
        for address in self._pointers("__objc_protolist"):
            name, adopted, required, static, optional, _ = \
                [self.pointer(address + offset) for offset in range(8, 56, 8)]
            types = self.pointer(address + 72)
            required, optional = self._methods(required), self._methods(optional)
            skipped = len(self._methods(static))
            extended = [self._name(self.pointer(types + index * 8))
                        for index in range(len(required) + skipped + len(optional))] if types else \
                [None] * (len(required) + skipped + len(optional))
            found[self._name(name)] = Protocol(
                self._name(name), self._adopted(adopted),
                [(selector, text) for (selector, _), text in zip(required, extended)],
                [(selector, text) for (selector, _), text in
                 zip(optional, extended[len(required) + skipped:])], address)
        return found

    def classes(self):
        found = {}
        names = {}
        records = []
        for address in self._pointers("__objc_classlist"):
            record = self.pointer(address + 32) & ~7
            names[address] = self._name(self.pointer(record + 24))
            records.append((address, record))
        for address, record in records:
            start, size = self._unpack("<2I", self.place(record + 4))
            parent = self._bound.get(address + 8) or names.get(self.pointer(address + 8), "")
            fields = []
            variables = self.pointer(record + 48)
            if variables != 0:
                length, count = self._unpack("<2I", self.place(variables))
                for place in (variables + 8 + index * length for index in range(count)):
                    (offset,) = self._unpack("<I", self.place(self.pointer(place)))
                    (field_size,) = self._unpack("<I", self.place(place + 28))
                    fields.append((self._name(self.pointer(place + 8)), offset, field_size))
            found[names[address]] = ObjectClass(
                names[address], start, size, parent.removeprefix("_OBJC_CLASS_$_"),
                [selector for selector, _ in self._methods(self.pointer(record + 32))],
                self._adopted(self.pointer(record + 40)), fields, record)
        return found
