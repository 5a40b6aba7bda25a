#include "platform/linux/transport/RequestHeader.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/HelperMessages.h"

namespace corvane {

namespace {

// The values that the fields of a request have, by their codes: path, interface, member, signature.
struct TextField {
  std::uint8_t code;
  char type;
  std::string_view value;
};
constexpr std::array<TextField, 4> textFields{{{1, 'o', helperObjectPath},
                                               {2, 's', helperInterface},
                                               {3, 's', performMember.name},
                                               {8, 'g', performMember.call}}};
constexpr std::uint8_t descriptorsField = 9;

constexpr std::uint8_t methodCall = 1;
constexpr std::uint8_t protocolVersion = 1;

// Reads one piece after the other; what is not there, or not as it must be, makes it fail for good.
class Reader {
 public:
  Reader(std::span<const std::byte> bytes, bool isLittleEndian)
      : _bytes(bytes), _isLittleEndian(isLittleEndian) {}

  bool hasFailed() const { return _hasFailed; }
  bool isAtEnd() const { return _position == _bytes.size(); }

  /// Filling is of zeros.
  void align(std::size_t alignment) {
    while (!_hasFailed && _position % alignment != 0) expect(0);
  }
  void expect(std::uint8_t value) {
    if (byte() != value) _hasFailed = true;
  }
  std::uint8_t byte() {
    if (_hasFailed || _position >= _bytes.size()) {
      _hasFailed = true;
      return 0;
    }
    return std::to_integer<std::uint8_t>(_bytes[_position++]);
  }
  std::uint32_t number() {
    align(4);
    std::uint32_t number = 0;
    for (int i = 0; i < 4; ++i) {
      const int shift = _isLittleEndian ? 8 * i : 8 * (3 - i);
      number |= std::uint32_t{byte()} << shift;
    }
    return number;
  }
  /// A variant's signature of one basic type.
  void expectType(char type) {
    expect(1);
    expect(static_cast<std::uint8_t>(type));
    expect(0);
  }
  /// A text with its length before it, which a signature has in one byte, and a zero behind it.
  void expectText(char type, std::string_view text) {
    const std::size_t size = type == 'g' ? byte() : number();
    if (size != text.size()) _hasFailed = true;
    for (const char character : text) {
      if (_hasFailed) return;
      expect(static_cast<std::uint8_t>(character));
    }
    expect(0);
  }

 private:
  std::span<const std::byte> _bytes;
  std::size_t _position = 0;
  bool _isLittleEndian;
  bool _hasFailed = false;
};

}  // namespace

// Byte order ('l' or 'B'), type, flags and version, one byte each; then the length of the body, the
// serial and the length of the fields, four bytes each.
std::optional<MessageSizes> messageSizes(std::span<const std::byte, fixedHeaderSize> header) {
  const auto order = std::to_integer<char>(header[0]);
  if (order != 'l' && order != 'B') return std::nullopt;
  Reader reader(header, order == 'l');
  for (int i = 0; i < 4; ++i) reader.byte();
  const std::size_t body = reader.number();
  reader.number();
  return MessageSizes{.fields = reader.number(), .body = body};
}

std::optional<std::uint32_t> announcedDescriptors(std::span<const std::byte> header) {
  if (header.size() < fixedHeaderSize) return std::nullopt;
  const auto sizes = messageSizes(header.first<fixedHeaderSize>());
  if (!sizes || header.size() - fixedHeaderSize != sizes->rest() - sizes->body) return std::nullopt;

  const bool isLittleEndian = std::to_integer<char>(header[0]) == 'l';
  Reader fixed(header, isLittleEndian);
  fixed.byte();
  fixed.expect(methodCall);
  fixed.byte();  // flags
  fixed.expect(protocolVersion);
  fixed.number();
  const std::uint32_t serial = fixed.number();
  if (fixed.hasFailed() || serial == 0) return std::nullopt;

  // The fields begin at a multiple of eight, so that they are aligned as the whole message is.
  Reader reader(header.subspan(fixedHeaderSize, sizes->fields), isLittleEndian);
  std::array<bool, textFields.size()> isThere{};
  std::optional<std::uint32_t> descriptors;
  while (!reader.hasFailed() && !reader.isAtEnd()) {
    reader.align(8);
    const std::uint8_t code = reader.byte();
    if (code == descriptorsField) {
      if (descriptors) return std::nullopt;
      reader.expectType('u');
      descriptors = reader.number();
      continue;
    }
    const auto* const field = std::ranges::find(textFields, code, &TextField::code);
    if (field == textFields.end()) return std::nullopt;
    if (std::exchange(isThere[static_cast<std::size_t>(field - textFields.begin())], true)) {
      return std::nullopt;
    }
    reader.expectType(field->type);
    reader.expectText(field->type, field->value);
  }
  const auto filling = header.subspan(fixedHeaderSize + sizes->fields);
  const bool isWhole = !reader.hasFailed() &&
                       std::ranges::all_of(isThere, [](bool there) { return there; }) &&
                       std::ranges::all_of(filling, [](std::byte b) { return b == std::byte{0}; });
  return isWhole ? descriptors : std::nullopt;
}

}  // namespace corvane
