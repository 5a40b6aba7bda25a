#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <expat.h>

#include "foundation/PropertyListFormats.h"

namespace corvane {

namespace {

enum class Element { List, Dictionary, Array, Key, String, Integer, Real, True, False, Date, Data };

constexpr std::pair<std::string_view, Element> elements[] = {
    {"plist", Element::List}, {"dict", Element::Dictionary}, {"array", Element::Array},
    {"key", Element::Key},    {"string", Element::String},   {"integer", Element::Integer},
    {"real", Element::Real},  {"true", Element::True},       {"false", Element::False},
    {"date", Element::Date},  {"data", Element::Data},
};

constexpr std::string_view spaces = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(spaces);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(spaces) - begin + 1);
}

/// The whole of `text` as a number, without a sign.
template <typename T, typename... Format>
std::optional<T> number(std::string_view text, Format... format) {
  T value{};
  const char* end = text.data() + text.size();
  const auto [rest, failure] = std::from_chars(text.data(), end, value, format...);
  if (failure != std::errc() || rest != end) return std::nullopt;
  return value;
}

std::optional<Value> integerFrom(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal) text.remove_prefix(2);
  const auto magnitude = number<std::uint64_t>(text, isHexadecimal ? 16 : 10);
  constexpr std::uint64_t signBit = std::uint64_t{1} << 63U;
  if (!magnitude || (isNegative && *magnitude > signBit)) return std::nullopt;
  if (isNegative) return Value(static_cast<std::int64_t>(0 - *magnitude));
  if (*magnitude < signBit) return Value(static_cast<std::int64_t>(*magnitude));
  return Value(*magnitude);
}

std::optional<Value> realFrom(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  const auto value = number<double>(text, std::chars_format::general);
  if (!value) return std::nullopt;
  return Value(*value);
}

/// "2001-01-01T00:00:00Z", or less of it: the smaller units may be missing, the "Z" may not.
std::optional<Value> dateFrom(std::string_view text) {
  constexpr std::string_view shape = "0000-00-00T00:00:00";
  if (!text.ends_with('Z')) return std::nullopt;
  text.remove_suffix(1);
  const auto matches = [](char character, char expected) {
    return expected == '0' ? character >= '0' && character <= '9' : character == expected;
  };
  const bool endsWithUnit = text.size() >= 4 && text.size() % 3 == 1;
  if (!endsWithUnit || text.size() > shape.size() ||
      !std::equal(text.begin(), text.end(), shape.begin(), matches)) {
    return std::nullopt;
  }
  const auto field = [text](std::size_t position, std::size_t length, unsigned missing) {
    return position < text.size() ? *number<unsigned>(text.substr(position, length), 10) : missing;
  };
  using namespace std::chrono;
  const year_month_day day{year(static_cast<int>(field(0, 4, 0))), month(field(5, 2, 1)),
                           std::chrono::day(field(8, 2, 1))};
  const unsigned hour = field(11, 2, 0);
  const unsigned minute = field(14, 2, 0);
  const unsigned second = field(17, 2, 0);
  if (!day.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  const auto days = sys_days(day) - sys_days(year(2001) / January / 1);
  const seconds time = days + hours(hour) + minutes(minute) + seconds(second);
  return Value(Date{static_cast<double>(time.count())});
}

/// Base64 with white space anywhere. Our own, here and in the writer: for these few lines
/// everything that is built on this library would have to be linked with libsodium.
std::optional<Value> dataFrom(std::string_view text) {
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  static const std::array<std::int8_t, 256> values = [alphabet] {
    std::array<std::int8_t, 256> table{};
    table.fill(-1);
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
      table[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
    }
    return table;
  }();

  Data bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t group = 0;
  unsigned digits = 0;
  unsigned padding = 0;
  for (const char character : text) {
    if (spaces.find(character) != std::string_view::npos) continue;
    if (character == '=') {
      ++padding;
      continue;
    }
    const std::int8_t value = values[static_cast<unsigned char>(character)];
    if (value < 0 || padding > 0) return std::nullopt;
    group = group << 6U | static_cast<std::uint32_t>(value);
    if (++digits % 4 == 0) {
      for (const unsigned shift : {16U, 8U, 0U}) {
        bytes.push_back(static_cast<std::byte>(group >> shift & 0xFFU));
      }
      group = 0;
    }
  }
  const unsigned rest = digits % 4;
  if (rest == 1 || padding != (rest == 0 ? 0 : 4 - rest)) return std::nullopt;
  if (rest >= 2) bytes.push_back(static_cast<std::byte>(group >> (rest == 2 ? 4U : 10U) & 0xFFU));
  if (rest == 3) bytes.push_back(static_cast<std::byte>(group >> 2U & 0xFFU));
  return Value(std::move(bytes));
}

class Reader {
 public:
  Result<Value> read(std::span<const std::byte> bytes) {
    if (_parser == nullptr) return propertyListReadError("Out of memory.");
    XML_SetUserData(_parser.get(), this);
    XML_SetElementHandler(_parser.get(), started, ended);
    XML_SetCharacterDataHandler(_parser.get(), characters);
    XML_SetEntityDeclHandler(_parser.get(), declared);
    XML_SetSkippedEntityHandler(_parser.get(), skipped);
    const XML_Status status = XML_Parse(_parser.get(), reinterpret_cast<const char*>(bytes.data()),
                                        static_cast<int>(bytes.size()), XML_TRUE);
    if (_failure.empty() && status != XML_STATUS_OK) {
      _failure = XML_ErrorString(XML_GetErrorCode(_parser.get()));
    }
    if (_failure.empty() && !_root) _failure = "there is no value";
    if (!_failure.empty()) {
      return propertyListReadError("Line " +
                                   std::to_string(XML_GetCurrentLineNumber(_parser.get())) + ": " +
                                   _failure + ".");
    }
    return std::move(*_root);
  }

 private:
  /// A dictionary or array whose end is still to come.
  struct Container {
    std::variant<Dictionary, Array> value;
    std::optional<std::string> key;
  };

  static void XMLCALL started(void* self, const XML_Char* name, const XML_Char** /*attributes*/) {
    static_cast<Reader*>(self)->start(name);
  }
  static void XMLCALL ended(void* self, const XML_Char* /*name*/) {
    static_cast<Reader*>(self)->end();
  }
  static void XMLCALL characters(void* self, const XML_Char* text, int length) {
    static_cast<Reader*>(self)->add({text, static_cast<std::size_t>(length)});
  }
  static void XMLCALL declared(void* self, const XML_Char* /*name*/, int /*isParameter*/,
                               const XML_Char* /*value*/, int /*length*/, const XML_Char* /*base*/,
                               const XML_Char* /*system*/, const XML_Char* /*public*/,
                               const XML_Char* /*notation*/) {
    static_cast<Reader*>(self)->fail("a property list declares no entities");
  }

  static void XMLCALL skipped(void* self, const XML_Char* name, int /*isParameter*/) {
    static_cast<Reader*>(self)->fail("there is no entity &" + std::string(name) + ";");
  }

  void fail(std::string reason) {
    // The parser still delivers what it has at hand after it was told to stop.
    if (_failure.empty()) _failure = std::move(reason);
    XML_StopParser(_parser.get(), XML_FALSE);
  }

  static bool isLeaf(Element element) {
    return element != Element::List && element != Element::Dictionary && element != Element::Array;
  }
  Dictionary* openDictionary() {
    return _containers.empty() ? nullptr : std::get_if<Dictionary>(&_containers.back().value);
  }

  void start(std::string_view name) {
    if (!_failure.empty()) return;
    const auto* known = std::find_if(std::begin(elements), std::end(elements),
                                     [name](const auto& entry) { return entry.first == name; });
    if (known == std::end(elements)) return fail("there is no element <" + std::string(name) + ">");
    const Element element = known->second;
    if (!_open.empty() && isLeaf(_open.back())) {
      return fail("<" + std::string(name) + "> stands inside of a plain value");
    }
    const Dictionary* dictionary = openDictionary();
    const bool wantsKey = dictionary != nullptr && !_containers.back().key;
    if (element == Element::List) {
      if (!_open.empty()) return fail("<plist> stands inside of another element");
    } else if ((element == Element::Key) != wantsKey) {
      return fail(wantsKey ? "a value has no key" : "a key stands where a value belongs");
    } else if (_containers.empty() && _root) {
      return fail("there is more than one value");
    } else if (element != Element::Key && _values++ == propertyListMaximumValues) {
      return fail("there are too many values");
    }
    if (element == Element::Dictionary || element == Element::Array) {
      if (_containers.size() == propertyListMaximumDepth) {
        return fail("values are nested too deeply");
      }
      _containers.emplace_back();
      if (element == Element::Array) _containers.back().value = Array();
    }
    _open.push_back(element);
    _text.clear();
  }

  void add(std::string_view text) {
    if (!_failure.empty()) return;
    if (!_open.empty() && isLeaf(_open.back())) {
      // UTF-8 may take more bytes than the encoding of the file.
      if (text.size() > _remaining) return fail("the texts are too large");
      _remaining -= text.size();
      _text += text;
    } else if (!trimmed(text).empty()) {
      fail("there is text outside of the values");
    }
  }

  void end() {
    if (!_failure.empty()) return;
    const Element element = _open.back();
    _open.pop_back();
    if (element == Element::List) return;
    if (element == Element::Key) {
      _containers.back().key = std::move(_text);
      _text.clear();
      return;
    }
    if (isLeaf(element)) {
      if (std::optional<Value> value = leaf(element)) {
        add(std::move(*value));
      } else {
        fail("a value is not what its element says");
      }
      return;
    }
    Container container = std::move(_containers.back());
    _containers.pop_back();
    if (container.key) return fail("a key has no value");
    if (auto* array = std::get_if<Array>(&container.value)) return add(Value(std::move(*array)));
    auto& dictionary = std::get<Dictionary>(container.value);
    if (const std::string* key = dictionary.duplicateKey()) {
      return fail("the key \"" + *key + "\" occurs twice");
    }
    add(Value(std::move(dictionary)));
  }

  std::optional<Value> leaf(Element element) {
    switch (element) {
      case Element::String:
        return Value(std::exchange(_text, std::string()));
      case Element::Integer:
        return integerFrom(trimmed(_text));
      case Element::Real:
        return realFrom(trimmed(_text));
      case Element::Date:
        return dateFrom(trimmed(_text));
      case Element::Data:
        return dataFrom(_text);
      default:
        if (!trimmed(_text).empty()) return std::nullopt;
        return Value(element == Element::True);
    }
  }

  void add(Value value) {
    if (_containers.empty()) {
      _root = std::move(value);
    } else if (Dictionary* dictionary = openDictionary()) {
      dictionary->append(std::move(*_containers.back().key), std::move(value));
      _containers.back().key.reset();
    } else {
      std::get<Array>(_containers.back().value).push_back(std::move(value));
    }
  }

  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> _parser{
      XML_ParserCreate(nullptr), XML_ParserFree};
  std::vector<Element> _open;
  std::vector<Container> _containers;
  std::string _text;
  std::optional<Value> _root;
  std::size_t _values = 0;
  std::size_t _remaining = propertyListMaximumBytes;
  std::string _failure;
};

}  // namespace

Result<Value> readXMLPropertyList(std::span<const std::byte> bytes) {
  return Reader().read(bytes);
}

}  // namespace corvane
