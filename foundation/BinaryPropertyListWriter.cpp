#include <algorithm>
#include <bit>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "foundation/BinaryPropertyList.h"
#include "foundation/PropertyListFormats.h"
#include "foundation/Unicode.h"

namespace corvane {

namespace {

using namespace binary_property_list;

/// The number of a dictionary that stands for the UID of a keyed archive, else null.
const Number* uidOf(const Dictionary& dictionary) {
  if (dictionary.size() != 1 || dictionary.begin()->first != propertyListUIDKey) return nullptr;
  const Number* number = dictionary.begin()->second.number();
  const bool isUID = number != nullptr && !number->isBoolean() && !number->isDouble() &&
                     (number->isUnsigned() || number->longLongValue() >= 0);
  return isUID ? number : nullptr;
}

/// The least number of bytes, a power of two, that holds `value`.
std::size_t sizeOf(std::uint64_t value) {
  return value <= UINT8_MAX ? 1 : value <= UINT16_MAX ? 2 : value <= UINT32_MAX ? 4 : 8;
}

class Writer {
 public:
  Data write(const Value& root) {
    add(root);
    _referenceSize = sizeOf(_objects.size());
    append(signature);
    std::vector<std::uint64_t> offsets;
    offsets.reserve(_objects.size());
    for (const Object& object : _objects) {
      offsets.push_back(_bytes.size());
      append(object);
    }
    const std::uint64_t table = _bytes.size();
    const std::size_t offsetSize = sizeOf(table);
    for (const std::uint64_t offset : offsets) append(offset, offsetSize);
    append(0, 6);
    append(offsetSize, 1);
    append(_referenceSize, 1);
    append(_objects.size(), 8);
    append(0, 8);  // the root is the first object
    append(table, 8);
    return std::move(_bytes);
  }

 private:
  /// One object of the file: a key or other text, or the value; and what it refers to.
  struct Object {
    const std::string* text;
    const Value* value;
    std::vector<std::uint64_t> references;
  };

  std::uint64_t add(const std::string& text) {
    std::uint64_t& known = _knownTexts[std::hash<std::string>()(text) % _knownTexts.size()];
    if (known >= _objects.size() || _objects[known].text == nullptr ||
        *_objects[known].text != text) {
      known = _objects.size();
      _objects.push_back({&text, nullptr, {}});
    }
    return known;
  }

  std::uint64_t add(const Value& value) {
    if (const std::string* text = value.string()) return add(*text);
    const std::uint64_t reference = _objects.size();
    _objects.push_back({nullptr, &value, {}});
    std::vector<std::uint64_t> references;
    if (const Array* array = value.array()) {
      for (const Value& item : *array) references.push_back(add(item));
    } else if (const Dictionary* dictionary = value.dictionary();
               dictionary != nullptr && uidOf(*dictionary) == nullptr) {
      for (const auto& [key, item] : *dictionary) references.push_back(add(key));
      for (const auto& [key, item] : *dictionary) references.push_back(add(item));
    }
    _objects[reference].references = std::move(references);
    return reference;
  }

  void append(std::string_view bytes) {
    const auto* begin = reinterpret_cast<const std::byte*>(bytes.data());
    _bytes.insert(_bytes.end(), begin, begin + bytes.size());
  }
  void append(std::uint64_t value, std::size_t size) {
    for (std::size_t i = size; i-- > 0;) {
      _bytes.push_back(i < 8 ? static_cast<std::byte>(value >> 8 * i & 0xFFU) : std::byte{0});
    }
  }
  void appendMarker(Kind kind, std::size_t information) {
    append(static_cast<std::uint64_t>(kind) << 4U | information, 1);
  }
  void appendInteger(std::uint64_t value, std::size_t size) {
    appendMarker(Integer, static_cast<std::size_t>(std::countr_zero(size)));
    append(value, size);
  }
  void appendHead(Kind kind, std::size_t count) {
    appendMarker(kind, std::min<std::size_t>(count, countFollows));
    if (count >= countFollows) appendInteger(count, sizeOf(count));
  }

  void append(const Object& object) {
    if (object.text != nullptr) return appendText(*object.text);
    if (const Number* number = object.value->number()) {
      appendNumber(*number);
    } else if (const Date* date = object.value->date()) {
      appendMarker(DateKind, 3);
      append(std::bit_cast<std::uint64_t>(date->secondsSinceReference), 8);
    } else if (const Data* data = object.value->data()) {
      appendHead(Blob, data->size());
      append(stringFromData(*data));
    } else if (object.value->array() != nullptr) {
      appendHead(ArrayKind, object.references.size());
    } else if (const Number* uid = uidOf(*object.value->dictionary())) {
      const std::size_t size = sizeOf(uid->unsignedLongLongValue());
      appendMarker(UID, size - 1);
      append(uid->unsignedLongLongValue(), size);
    } else {
      appendHead(DictionaryKind, object.references.size() / 2);
    }
    for (const std::uint64_t reference : object.references) append(reference, _referenceSize);
  }

  void appendText(const std::string& text) {
    const auto isASCII = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    if (std::all_of(text.begin(), text.end(), isASCII)) {
      appendHead(ASCIIText, text.size());
      append(text);
      return;
    }
    const std::u16string units = *utf16FromString(text);
    appendHead(UTF16Text, units.size());
    for (const char16_t unit : units) append(unit, 2);
  }

  void appendNumber(const Number& number) {
    if (number.isBoolean()) {
      appendMarker(Simple, number.boolValue() ? True : False);
    } else if (number.isDouble()) {
      appendMarker(Real, 3);
      append(std::bit_cast<std::uint64_t>(number.doubleValue()), 8);
    } else {
      const std::uint64_t value = number.unsignedLongLongValue();
      // Eight bytes are read as signed, so a larger number takes sixteen.
      appendInteger(value, number.isUnsigned() ? 16 : sizeOf(value));
    }
  }

  std::vector<Object> _objects;
  /// Where texts that were added before are, by their hashes, so that a text that comes again is
  /// written only once. Each place is for one text, and a later one with the same place takes it:
  /// some texts are then written twice, but no choice of texts can make looking one up slow.
  std::vector<std::uint64_t> _knownTexts = std::vector<std::uint64_t>(4096, UINT64_MAX);
  std::size_t _referenceSize = 0;
  Data _bytes;
};

}  // namespace

Data writeBinaryPropertyList(const Value& root) {
  return Writer().write(root);
}

}  // namespace corvane
