#include <algorithm>
#include <bit>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "foundation/BinaryPropertyList.h"
#include "foundation/PropertyListFormats.h"
#include "foundation/Unicode.h"

namespace corvane {

namespace {

using namespace binary_property_list;

class Reader {
 public:
  explicit Reader(std::span<const std::byte> bytes) : _bytes(bytes) {}

  Result<Value> read() {
    std::optional<Value> root;
    if (readTrailer()) root = object(_top);
    if (!root) return propertyListReadError(_failure);
    return std::move(*root);
  }

 private:
  /// What an object begins with: its kind, its count, and where its content starts.
  struct Head {
    std::uint8_t kind;
    std::uint8_t information;
    std::uint64_t count;
    std::size_t content;
  };

  std::nullopt_t fail(const char* reason) {
    _failure = reason;
    return std::nullopt;
  }

  /// The big-endian number of `size` bytes (1 to 8) at `position`, which are there.
  std::uint64_t number(std::size_t position, std::size_t size) const {
    std::uint64_t value = 0;
    for (const std::byte byte : _bytes.subspan(position, size)) {
      value = value << 8U | std::to_integer<std::uint64_t>(byte);
    }
    return value;
  }

  bool readTrailer() {
    if (_bytes.size() < headSize + trailerSize) {
      fail("The binary property list is cut short.");
      return false;
    }
    const std::size_t trailer = _bytes.size() - trailerSize;
    _offsetSize = number(trailer + 6, 1);
    _referenceSize = number(trailer + 7, 1);
    _count = number(trailer + 8, 8);
    _top = number(trailer + 16, 8);
    const std::uint64_t table = number(trailer + 24, 8);
    const auto isSize = [](std::size_t size) { return size >= 1 && size <= 8; };
    if (!isSize(_offsetSize) || !isSize(_referenceSize) || table < headSize || table > trailer ||
        _count > (trailer - table) / _offsetSize || _top >= _count) {
      fail("The trailer of the binary property list is damaged.");
      return false;
    }
    _objectsEnd = table;
    _isOpen.assign(_count, false);
    return true;
  }

  /// True if `count` items of `size` bytes lie between `position` and the end of the objects.
  bool holds(std::size_t position, std::uint64_t count, std::size_t size) const {
    return position <= _objectsEnd && count <= (_objectsEnd - position) / size;
  }

  std::optional<Head> head(std::uint64_t reference) {
    if (reference >= _count) return fail("A reference leads to no object.");
    const std::uint64_t offset = number(_objectsEnd + reference * _offsetSize, _offsetSize);
    if (offset < headSize || offset >= _objectsEnd) return fail("An object lies outside the list.");
    const auto marker = std::to_integer<std::uint8_t>(_bytes[offset]);
    Head head{static_cast<std::uint8_t>(marker >> 4U), static_cast<std::uint8_t>(marker & 0xFU),
              static_cast<std::uint8_t>(marker & 0xFU), offset + 1};
    if (head.kind >= Blob && head.kind != UID && head.information == countFollows) {
      // The count is an integer object of its own.
      if (!holds(head.content, 1, 1)) return fail("An object is cut short.");
      const auto size = std::to_integer<std::uint8_t>(_bytes[head.content]);
      const std::size_t bytes = std::size_t{1} << (size & 0xFU);
      if (size >> 4U != Integer || bytes > 8 || !holds(head.content + 1, 1, bytes)) {
        return fail("The size of an object is damaged.");
      }
      head.count = number(head.content + 1, bytes);
      head.content += 1 + bytes;
    }
    return head;
  }

  std::optional<Value> object(std::uint64_t reference) {
    if (_values++ == propertyListMaximumValues) return fail("There are too many values.");
    const std::optional<Head> head = this->head(reference);
    if (!head) return std::nullopt;
    switch (head->kind) {
      case Simple:
        if (head->information != False && head->information != True) break;
        return Value(head->information == True);
      case Integer:
        return integer(*head);
      case Real:
        return real(*head);
      case DateKind:
        if (head->information != 3) break;
        if (!holds(head->content, 1, 8)) return fail("An object is cut short.");
        return Value(Date{std::bit_cast<double>(number(head->content, 8))});
      case Blob:
        return data(*head);
      case ASCIIText:
      case UTF16Text:
      case UTF8Text:
        if (std::optional<std::string> value = text(*head)) return Value(std::move(*value));
        return std::nullopt;
      case UID: {
        const std::size_t size = head->information + 1U;
        if (size > 8) break;
        if (!holds(head->content, 1, size)) return fail("An object is cut short.");
        return Value(
            Dictionary{{std::string(propertyListUIDKey), integer(number(head->content, size))}});
      }
      case ArrayKind:
      case DictionaryKind:
        return container(reference, *head);
      default:
        break;
    }
    return fail("An object is of an unknown kind.");
  }

  static Value integer(std::uint64_t value) {
    if (value >> 63U == 0) return static_cast<std::int64_t>(value);
    return value;
  }

  std::optional<Value> integer(const Head& head) {
    if (head.information > 4) return fail("An integer is too long.");
    const std::size_t size = std::size_t{1} << head.information;
    if (!holds(head.content, 1, size)) return fail("An object is cut short.");
    if (size < 8) return integer(number(head.content, size));
    const std::uint64_t low = number(head.content + size - 8, 8);
    // Eight bytes are signed; sixteen are written for what needs more.
    if (size == 8) return Value(static_cast<std::int64_t>(low));
    const std::uint64_t high = number(head.content, 8);
    if (high == 0) return integer(low);
    if (high == UINT64_MAX && low >> 63U == 1) return Value(static_cast<std::int64_t>(low));
    return fail("An integer is too large.");
  }

  std::optional<Value> real(const Head& head) {
    if (head.information != 2 && head.information != 3) return fail("A real is damaged.");
    const std::size_t size = std::size_t{1} << head.information;
    if (!holds(head.content, 1, size)) return fail("An object is cut short.");
    const std::uint64_t bits = number(head.content, size);
    if (size == 8) return Value(std::bit_cast<double>(bits));
    return Value(static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits))));
  }

  bool take(std::uint64_t bytes) {
    if (bytes > _remaining) {
      fail("The texts and data of the list are too large.");
      return false;
    }
    _remaining -= bytes;
    return true;
  }

  std::optional<Value> data(const Head& head) {
    if (!holds(head.content, head.count, 1)) return fail("An object is cut short.");
    if (!take(head.count)) return std::nullopt;
    const auto content = _bytes.subspan(head.content, head.count);
    return Value(Data(content.begin(), content.end()));
  }

  std::optional<std::string> text(const Head& head) {
    const std::size_t unit = head.kind == UTF16Text ? 2 : 1;
    if (!holds(head.content, head.count, unit)) return fail("An object is cut short.");
    if (head.kind == UTF16Text) {
      std::u16string units(head.count, u'\0');
      for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<char16_t>(number(head.content + 2 * i, 2));
      }
      std::optional<std::string> text = stringFromUTF16(units);
      if (!text) return fail("A text is not well-formed UTF-16.");
      // Counted as it is written, whatever the file holds.
      return take(text->size()) ? std::move(text) : std::nullopt;
    }
    if (!take(head.count)) return std::nullopt;
    const std::string_view bytes(reinterpret_cast<const char*>(_bytes.data()) + head.content,
                                 head.count);
    const auto isASCII = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    const bool isText =
        head.kind == UTF8Text ? isUTF8(bytes) : std::all_of(bytes.begin(), bytes.end(), isASCII);
    if (!isText) return fail("A text is not of its encoding.");
    return std::string(bytes);
  }

  std::optional<std::string> key(std::uint64_t reference) {
    const std::optional<Head> head = this->head(reference);
    if (!head) return std::nullopt;
    if (head->kind != ASCIIText && head->kind != UTF16Text && head->kind != UTF8Text) {
      return fail("A key is not a text.");
    }
    return text(*head);
  }

  std::optional<Value> container(std::uint64_t reference, const Head& head) {
    const bool isDictionary = head.kind == DictionaryKind;
    if (!holds(head.content, head.count, _referenceSize * (isDictionary ? 2 : 1))) {
      return fail("An object is cut short.");
    }
    if (_isOpen[reference]) return fail("A value contains itself.");
    if (_depth == propertyListMaximumDepth) return fail("Values are nested too deeply.");
    _isOpen[reference] = true;
    ++_depth;
    std::optional<Value> value = isDictionary ? dictionary(head) : array(head);
    --_depth;
    _isOpen[reference] = false;
    return value;
  }

  /// The `index`th reference of a container; of a dictionary the keys come first.
  std::uint64_t reference(const Head& head, std::uint64_t index) const {
    return number(head.content + index * _referenceSize, _referenceSize);
  }

  std::optional<Value> array(const Head& head) {
    Array array;
    for (std::uint64_t i = 0; i < head.count; ++i) {
      std::optional<Value> value = object(reference(head, i));
      if (!value) return std::nullopt;
      array.push_back(std::move(*value));
    }
    return Value(std::move(array));
  }

  std::optional<Value> dictionary(const Head& head) {
    Dictionary dictionary;
    for (std::uint64_t i = 0; i < head.count; ++i) {
      std::optional<std::string> key = this->key(reference(head, i));
      if (!key) return std::nullopt;
      std::optional<Value> value = object(reference(head, head.count + i));
      if (!value) return std::nullopt;
      dictionary.append(std::move(*key), std::move(*value));
    }
    if (dictionary.duplicateKey() != nullptr) return fail("A key occurs twice.");
    return Value(std::move(dictionary));
  }

  const std::span<const std::byte> _bytes;
  std::size_t _offsetSize = 0;
  std::size_t _referenceSize = 0;
  std::uint64_t _count = 0;
  std::uint64_t _top = 0;
  /// Where the objects end and the table of their offsets begins.
  std::size_t _objectsEnd = 0;
  /// The containers that are being read, by their references.
  std::vector<bool> _isOpen;
  std::size_t _depth = 0;
  std::size_t _values = 0;
  std::uint64_t _remaining = propertyListMaximumBytes;
  const char* _failure = "";
};

}  // namespace

Result<Value> readBinaryPropertyList(std::span<const std::byte> bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  // The last digit tells revisions apart that are read alike.
  const std::string_view version = text.substr(0, headSize);
  if (!version.starts_with(signature.substr(0, headSize - 1)) || version.size() < headSize ||
      version.back() < '0' || version.back() > '9') {
    return propertyListReadError("The binary property list is of an unknown version.");
  }
  return Reader(bytes).read();
}

}  // namespace corvane
