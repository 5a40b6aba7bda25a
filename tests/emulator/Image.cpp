#include "tests/emulator/Image.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include <sys/mman.h>

#include "tests/emulator/Symbols.h"

namespace emulator {

namespace {

constexpr std::uint32_t magic64 = 0xfeedfacf;
constexpr std::uint32_t commandSegment = 0x19;
constexpr std::uint32_t commandBinds = 0x80000022;
constexpr std::uint32_t commandMain = 0x80000028;
constexpr std::uint32_t sectionTypeMask = 0xff;
constexpr std::uint32_t sectionOfInitializers = 0x9;

template <typename T>
T read(std::span<const std::byte> bytes, std::size_t offset) {
  if (offset > bytes.size() || bytes.size() - offset < sizeof(T)) fail("the program ends early");
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

std::string fixedText(std::span<const std::byte> bytes, std::size_t offset) {
  constexpr std::size_t length = 16;
  if (offset + length > bytes.size()) fail("the program ends early");
  const char* const text = reinterpret_cast<const char*>(bytes.data() + offset);
  return {text, ::strnlen(text, length)};
}

std::uint64_t takeNumber(std::span<const std::byte>& opcodes) {
  std::uint64_t value = 0;
  for (unsigned shift = 0;; shift += 7) {
    const auto byte = read<std::uint8_t>(opcodes, 0);
    opcodes = opcodes.subspan(1);
    value |= static_cast<std::uint64_t>(byte & 0x7f) << shift;
    if (byte < 0x80) return value;
  }
}

std::byte* pointer(std::uint64_t address) {
  return reinterpret_cast<std::byte*>(address);  // NOLINT(performance-no-int-to-ptr)
}

int hostProtection(std::uint32_t protection) {
  return ((protection & 1) != 0 ? PROT_READ : 0) | ((protection & 2) != 0 ? PROT_WRITE : 0) |
         ((protection & 4) != 0 ? PROT_EXEC : 0);
}

Image& theImage() {
  static auto* const image = new Image;
  return *image;
}

}  // namespace

void fail(const std::string& message) {
  std::fprintf(stderr, "macos-emulator: %s\n", message.c_str());
  std::_Exit(126);
}

const Image& Image::loaded() {
  return theImage();
}

void Image::load(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) fail(path + " cannot be read");
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  theImage().readCommands(std::as_bytes(std::span(content)));
  theImage().protect();
}

void Image::readCommands(std::span<const std::byte> file) {
  if (read<std::uint32_t>(file, 0) != magic64) fail("it is no program for macOS");
  const auto count = read<std::uint32_t>(file, 16);
  std::size_t binds = 0;
  std::size_t offset = 32;
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto command = read<std::uint32_t>(file, offset);
    if (command == commandSegment) map(file, offset);
    if (command == commandBinds) binds = offset;
    if (command == commandMain) {
      _entry = _segments.at(1).address + read<std::uint64_t>(file, offset + 8);
    }
    offset += read<std::uint32_t>(file, offset + 4);
  }
  if (_entry == 0 || binds == 0) fail("it is no program that begins with main");
  // What several images may define is this image's own, as there is no other one.
  for (const auto& [place, isLazy] : {std::pair(16, false), std::pair(32, true)}) {
    const auto at = read<std::uint32_t>(file, binds + static_cast<std::size_t>(place));
    const auto size = read<std::uint32_t>(file, binds + static_cast<std::size_t>(place) + 4);
    if (at > file.size() || file.size() - at < size) fail("the program ends early");
    bind(file.subspan(at, size), isLazy);
  }
}

void Image::map(std::span<const std::byte> file, std::size_t command) {
  const Segment segment = {fixedText(file, command + 8), read<std::uint64_t>(file, command + 24),
                           read<std::uint64_t>(file, command + 32),
                           read<std::uint32_t>(file, command + 60)};
  _segments.push_back(segment);
  const auto offset = read<std::uint64_t>(file, command + 40);
  const auto fileSize = read<std::uint64_t>(file, command + 48);
  if (segment.name == "__PAGEZERO" || segment.size == 0) return;
  if (offset > file.size() || file.size() - offset < fileSize || fileSize > segment.size) {
    fail("the program ends early");
  }
  void* const place = ::mmap(pointer(segment.address), segment.size, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  if (place != pointer(segment.address)) fail("its addresses are taken");
  std::memcpy(place, file.data() + offset, fileSize);
  const auto count = read<std::uint32_t>(file, command + 64);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t section = command + 72 + i * 80;
    _sections.push_back({fixedText(file, section + 16), fixedText(file, section),
                         read<std::uint64_t>(file, section + 32),
                         read<std::uint64_t>(file, section + 40),
                         read<std::uint32_t>(file, section + 64) & sectionTypeMask});
  }
}

// The opcodes are instructions of a small machine, whose one effect is to store an address.
void Image::bind(std::span<const std::byte> opcodes, bool isLazy) const {
  std::string symbol;
  std::uint64_t address = 0;
  std::uint64_t addend = 0;
  const auto store = [&] {
    const std::uint64_t value = reinterpret_cast<std::uint64_t>(symbolNamed(symbol)) + addend;
    std::memcpy(pointer(address), &value, sizeof value);
    address += sizeof value;
  };
  while (!opcodes.empty()) {
    const auto byte = read<std::uint8_t>(opcodes, 0);
    const unsigned immediate = byte & 0x0f;
    opcodes = opcodes.subspan(1);
    switch (byte & 0xf0) {
      case 0x00:
        if (!isLazy) return;
        break;
      case 0x10:  // the library, of which all are one here
        break;
      case 0x20:
        takeNumber(opcodes);
        break;
      case 0x40: {
        const auto end = std::find(opcodes.begin(), opcodes.end(), std::byte{});
        symbol.assign(reinterpret_cast<const char*>(opcodes.data()),
                      static_cast<std::size_t>(end - opcodes.begin()));
        if (end == opcodes.end()) fail("the program ends early");
        opcodes = opcodes.subspan(symbol.size() + 1);
        break;
      }
      case 0x50:
        break;
      case 0x60:
        addend = takeNumber(opcodes);
        break;
      case 0x70:
        address = _segments.at(immediate).address + takeNumber(opcodes);
        break;
      case 0x80:
        address += takeNumber(opcodes);
        break;
      case 0x90:
        store();
        break;
      case 0xa0:
        store();
        address += takeNumber(opcodes);
        break;
      case 0xb0:
        store();
        address += immediate * sizeof address;
        break;
      case 0xc0: {
        const std::uint64_t count = takeNumber(opcodes);
        const std::uint64_t skip = takeNumber(opcodes);
        for (std::uint64_t i = 0; i < count; ++i) {
          store();
          address += skip;
        }
        break;
      }
      default:
        fail("an opcode is not known: " + std::to_string(byte));
    }
  }
}

void Image::protect() const {
  for (const Segment& segment : _segments) {
    if (segment.name == "__PAGEZERO" || segment.size == 0) continue;
    const int protection = hostProtection(segment.protection);
    if (::mprotect(pointer(segment.address), segment.size, protection) != 0) {
      fail(segment.name + " cannot be protected");
    }
  }
}

const void* Image::header() const {
  return pointer(_segments.at(1).address);
}

std::span<std::byte> Image::content(const std::string& segment, const std::string& name) const {
  for (const Section& section : _sections) {
    if (section.segment == segment && section.name == name) {
      return {pointer(section.address), section.size};
    }
  }
  return {};
}

Image::Arguments& Image::arguments() {
  static Arguments arguments;
  return arguments;
}

int Image::run(int argc, char** argv, char** environment) {
  arguments() = {argc, argv};
  for (const Section& section : theImage()._sections) {
    if (section.type != sectionOfInitializers) continue;
    using Initializer = void (*)(int, char**, char**);
    const auto* const begin = reinterpret_cast<const Initializer*>(pointer(section.address));
    for (const Initializer initialize : std::span(begin, section.size / sizeof(Initializer))) {
      initialize(argc, argv, environment);
    }
  }
  return reinterpret_cast<int (*)(int, char**, char**)>(pointer(theImage()._entry))(argc, argv,
                                                                                    environment);
}

}  // namespace emulator
