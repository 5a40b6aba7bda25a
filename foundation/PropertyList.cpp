#include "foundation/PropertyList.h"

#include <algorithm>
#include <cctype>

#include "foundation/PropertyListFormats.h"
#include "foundation/Unicode.h"

// Property lists come from clients, and from users' files, to a process of root's. The library that
// there is for them, libplist 2.2.0, takes damaged values for others without a word, needs time
// quadratic in the entities of a list, and crashes on 300,000 arrays inside each other. So the
// readers and writers are our own, over Expat for XML.

namespace corvane {

namespace {

constexpr std::string_view spaces = " \t\r\n";

/// The old-style form begins with an angle bracket too, but only hexadecimal digits follow it.
bool looksLikeXML(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  if (text.starts_with(std::string_view("\xFE\xFF\0<", 4)) ||
      text.starts_with(std::string_view("\xFF\xFE<\0", 4))) {
    return true;
  }
  const std::size_t bracket = text.find_first_not_of(spaces);
  if (bracket == std::string_view::npos || text[bracket] != '<') return false;
  const auto isOfData = [](unsigned char character) {
    return std::isxdigit(character) != 0 || std::isspace(character) != 0;
  };
  const auto* other = std::find_if_not(text.begin() + bracket + 1, text.end(), isOfData);
  return other != text.end() && *other != '>';
}

Result<Value> readAs(PropertyListFormat format, std::span<const std::byte> bytes) {
  switch (format) {
    case PropertyListFormat::XML:
      return readXMLPropertyList(bytes);
    case PropertyListFormat::Binary:
      return readBinaryPropertyList(bytes);
    case PropertyListFormat::OldStyle:
      break;
  }
  return readOldStylePropertyList(bytes);
}

/// Counts the values below `value` down from the bounds, and tells what cannot be written.
class Inspector {
 public:
  /// Why `value` cannot be written, or null.
  const char* objection(const Value& value) {
    if (_values-- == 0) return "The value holds too many values.";
    if (value.error() != nullptr) return "An error has no place in a property list.";
    if (const std::string* text = value.string()) return objection(*text);
    if (const Data* data = value.data()) return take(data->size());
    if (const Array* array = value.array()) {
      return inside(*array, [this](const Value& item) { return objection(item); });
    }
    if (const Dictionary* dictionary = value.dictionary()) {
      return inside(*dictionary, [this](const Dictionary::Entry& entry) {
        const char* reason = objection(entry.first);
        return reason != nullptr ? reason : objection(entry.second);
      });
    }
    return nullptr;
  }

 private:
  const char* objection(const std::string& text) {
    return isUTF8(text) ? take(text.size()) : "A text is not well-formed UTF-8.";
  }

  const char* take(std::size_t bytes) {
    if (bytes > _bytes) return "The texts and data of the value are too large.";
    _bytes -= bytes;
    return nullptr;
  }

  template <typename Container, typename Check>
  const char* inside(const Container& container, Check check) {
    if (_depth == 0) return "The value is nested too deeply.";
    --_depth;
    for (const auto& element : container) {
      if (const char* reason = check(element)) return reason;
    }
    ++_depth;
    return nullptr;
  }

  std::size_t _depth = propertyListMaximumDepth;
  std::size_t _values = propertyListMaximumValues;
  std::size_t _bytes = propertyListMaximumBytes;
};

}  // namespace

Result<PropertyList> readPropertyList(std::span<const std::byte> bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (bytes.size() > propertyListMaximumBytes) {
    return propertyListReadError("The property list is too large.");
  }
  const PropertyListFormat format = text.starts_with("bplist") ? PropertyListFormat::Binary
                                    : looksLikeXML(text)       ? PropertyListFormat::XML
                                                               : PropertyListFormat::OldStyle;
  Result<Value> root = readAs(format, bytes);
  if (!root) return root.error();
  return PropertyList{std::move(*root), format};
}

Result<Dictionary> readDictionary(std::span<const std::byte> bytes) {
  Result<PropertyList> list = readPropertyList(bytes);
  if (!list) return list.error();
  auto* dictionary = list->root.as<Dictionary>();
  if (dictionary == nullptr) return propertyListReadError("The property list is no dictionary.");
  return std::move(*dictionary);
}

Result<Data> writePropertyList(const Value& root, PropertyListFormat format) {
  if (const char* reason = Inspector().objection(root)) return propertyListWriteError(reason);
  Result<Data> written = propertyListWriteError("The old-style form is not written.");
  if (format == PropertyListFormat::XML) written = writeXMLPropertyList(root);
  if (format == PropertyListFormat::Binary) written = writeBinaryPropertyList(root);
  if (written && written->size() > propertyListMaximumBytes) {
    return propertyListWriteError("The property list is too large.");
  }
  return written;
}

Error propertyListReadError(std::string description) {
  return {NSCocoaErrorDomain, NSPropertyListReadCorruptError,
          Dictionary{{NSLocalizedDescriptionKey, std::move(description)}}};
}

Error propertyListWriteError(std::string description) {
  return {NSCocoaErrorDomain, NSPropertyListWriteInvalidError,
          Dictionary{{NSLocalizedDescriptionKey, std::move(description)}}};
}

}  // namespace corvane
