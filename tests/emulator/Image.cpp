#include "tests/emulator/Image.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include <sys/mman.h>

#include "tests/emulator/Objects.h"
#include "tests/emulator/Symbols.h"

namespace emulator {

namespace {

constexpr std::uint32_t magic64 = 0xfeedfacf;
constexpr std::uint32_t commandSegment = 0x19;
constexpr std::uint32_t commandSymbols = 0x2;
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

std::vector<std::unique_ptr<Image>>& images() {
  static auto* const images = new std::vector<std::unique_ptr<Image>>;
  return *images;
}

std::span<const std::byte> part(std::span<const std::byte> file, std::size_t place) {
  const auto at = read<std::uint32_t>(file, place);
  const auto size = read<std::uint32_t>(file, place + 4);
  if (at > file.size() || file.size() - at < size) fail("the program ends early");
  return file.subspan(at, size);
}

}  // namespace

void fail(const std::string& message) {
  std::fprintf(stderr, "macos-emulator: %s\n", message.c_str());
  std::_Exit(126);
}

const std::vector<std::unique_ptr<Image>>& Image::all() {
  return images();
}

const Image& Image::program() {
  return *images().back();
}

const Image* Image::around(const void* address) {
  const auto place = reinterpret_cast<std::uint64_t>(address);
  for (const auto& image : images()) {
    for (const Segment& segment : image->_segments) {
      if (segment.name == "__PAGEZERO") continue;
      if (place >= segment.address && place - segment.address < segment.size) return image.get();
    }
  }
  return nullptr;
}

void Image::load(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) fail(path + " cannot be read");
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  auto image = std::make_unique<Image>();
  image->_path = path;
  image->readCommands(std::as_bytes(std::span(content)));
  image->protect();
  images().push_back(std::move(image));
  takeObjects(*images().back());
}

// A library is linked for address 0, where nothing can be.
void Image::choosePlace(std::span<const std::byte> file) {
  constexpr std::uint32_t typeLibrary = 6;
  constexpr std::size_t room = std::size_t{1} << 30;
  if (read<std::uint32_t>(file, 12) != typeLibrary) return;
  void* const place =
      ::mmap(nullptr, room, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (place == MAP_FAILED || ::munmap(place, room) != 0) fail("there is no memory");
  _slide = reinterpret_cast<std::uint64_t>(place);
}

void Image::readCommands(std::span<const std::byte> file) {
  if (read<std::uint32_t>(file, 0) != magic64) fail("it is no program for macOS");
  choosePlace(file);
  const auto count = read<std::uint32_t>(file, 16);
  std::size_t binds = 0;
  std::size_t offset = 32;
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto command = read<std::uint32_t>(file, offset);
    if (command == commandSegment) map(file, offset);
    if (command == commandSymbols) readSymbols(file, offset);
    if (command == commandBinds) binds = offset;
    if (command == commandMain) _entry = _header + read<std::uint64_t>(file, offset + 8);
    offset += read<std::uint32_t>(file, offset + 4);
  }
  if (binds == 0 || (_entry == 0 && _slide == 0)) fail("it is no program that begins with main");
  if (_slide != 0) rebase(part(file, binds + 8));
  // What several images may define is each image's own.
  bind(part(file, binds + 16), false);
  bind(part(file, binds + 32), true);
}

void Image::map(std::span<const std::byte> file, std::size_t command) {
  const Segment segment = {
      fixedText(file, command + 8), read<std::uint64_t>(file, command + 24) + _slide,
      read<std::uint64_t>(file, command + 32), read<std::uint32_t>(file, command + 60)};
  if (segment.name == "__TEXT") _header = segment.address;
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
                         read<std::uint64_t>(file, section + 32) + _slide,
                         read<std::uint64_t>(file, section + 40),
                         read<std::uint32_t>(file, section + 64) & sectionTypeMask});
  }
}

void Image::readSymbols(std::span<const std::byte> file, std::size_t command) {
  constexpr std::size_t entrySize = 16;
  constexpr std::uint8_t outside = 0x1;
  constexpr std::uint8_t typeMask = 0xee;
  constexpr std::uint8_t inSection = 0xe;
  const auto entries = read<std::uint32_t>(file, command + 8);
  const auto count = read<std::uint32_t>(file, command + 12);
  const auto names = part(file, command + 16);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t entry = entries + i * entrySize;
    const auto type = read<std::uint8_t>(file, entry + 4);
    if ((type & outside) == 0 || (type & typeMask) != inSection) continue;
    const auto name = read<std::uint32_t>(file, entry);
    if (name >= names.size()) fail("the program ends early");
    const char* const text = reinterpret_cast<const char*>(names.data() + name);
    _symbols.emplace(std::string(text, ::strnlen(text, names.size() - name)),
                     read<std::uint64_t>(file, entry + 8) + _slide);
  }
}

void* Image::symbol(const std::string& name) const {
  const auto found = _symbols.find(name);
  return found != _symbols.end() ? pointer(found->second) : nullptr;
}

// The opcodes of both kinds are instructions of a small machine: these make addresses in the image
// those of its place.
void Image::rebase(std::span<const std::byte> opcodes) const {
  std::uint64_t address = 0;
  const auto move = [&](std::uint64_t count, std::uint64_t skip) {
    for (; count > 0; --count) {
      std::uint64_t value = 0;
      std::memcpy(&value, pointer(address), sizeof value);
      value += _slide;
      std::memcpy(pointer(address), &value, sizeof value);
      address += sizeof value + skip;
    }
  };
  while (!opcodes.empty()) {
    const auto byte = read<std::uint8_t>(opcodes, 0);
    const unsigned immediate = byte & 0x0f;
    opcodes = opcodes.subspan(1);
    switch (byte & 0xf0) {
      case 0x00:
        return;
      case 0x10:
        break;
      case 0x20:
        address = _segments.at(immediate).address + takeNumber(opcodes);
        break;
      case 0x30:
        address += takeNumber(opcodes);
        break;
      case 0x40:
        address += immediate * sizeof address;
        break;
      case 0x50:
        move(immediate, 0);
        break;
      case 0x60:
        move(takeNumber(opcodes), 0);
        break;
      case 0x70:
        move(1, takeNumber(opcodes));
        break;
      case 0x80: {
        const std::uint64_t count = takeNumber(opcodes);
        move(count, takeNumber(opcodes));
        break;
      }
      default:
        fail("an opcode is not known: " + std::to_string(byte));
    }
  }
}

// And these store the addresses of symbols.
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
      case 0x30:
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
  return pointer(_header);
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
  for (const auto& image : images()) {
    for (const Section& section : image->_sections) {
      if (section.type != sectionOfInitializers) continue;
      using Initializer = void (*)(int, char**, char**);
      const auto* const begin = reinterpret_cast<const Initializer*>(pointer(section.address));
      for (const Initializer initialize : std::span(begin, section.size / sizeof(Initializer))) {
        initialize(argc, argv, environment);
      }
    }
  }
  auto* const main = pointer(program()._entry);
  return reinterpret_cast<int (*)(int, char**, char**)>(main)(argc, argv, environment);
}

}  // namespace emulator
