#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "foundation/PropertyListFormats.h"
#include "foundation/Unicode.h"

namespace corvane {

namespace {

constexpr std::string_view lineSeparator = "\xE2\x80\xA8";
constexpr std::string_view paragraphSeparator = "\xE2\x80\xA9";

/// The escapes of one letter, and what they stand for.
constexpr std::pair<char, char> escapes[] = {
    {'a', '\a'}, {'b', '\b'}, {'f', '\f'},  {'n', '\n'},  {'r', '\r'}, {'t', '\t'},
    {'v', '\v'}, {'"', '"'},  {'\'', '\''}, {'\\', '\\'}, {'/', '/'},  {'\n', '\n'},
};

/// The characters of the codes above ASCII, in the encoding of the systems that the form comes
/// from; the last two have none.
constexpr unsigned firstCode = 0x80;
constexpr char16_t charactersOfCodes[] = {
    0x00A0, 0x00C0, 0x00C1, 0x00C2, 0x00C3, 0x00C4, 0x00C5, 0x00C7, 0x00C8, 0x00C9, 0x00CA, 0x00CB,
    0x00CC, 0x00CD, 0x00CE, 0x00CF, 0x00D0, 0x00D1, 0x00D2, 0x00D3, 0x00D4, 0x00D5, 0x00D6, 0x00D9,
    0x00DA, 0x00DB, 0x00DC, 0x00DD, 0x00DE, 0x00B5, 0x00D7, 0x00F7, 0x00A9, 0x00A1, 0x00A2, 0x00A3,
    0x2044, 0x00A5, 0x0192, 0x00A7, 0x00A4, 0x2019, 0x201C, 0x00AB, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x00AE, 0x2013, 0x2020, 0x2021, 0x00B7, 0x00A6, 0x00B6, 0x2022, 0x201A, 0x201E, 0x201D, 0x00BB,
    0x2026, 0x2030, 0x00AC, 0x00BF, 0x00B9, 0x02CB, 0x00B4, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9,
    0x00A8, 0x00B2, 0x02DA, 0x00B8, 0x00B3, 0x02DD, 0x02DB, 0x02C7, 0x2014, 0x00B1, 0x00BC, 0x00BD,
    0x00BE, 0x00E0, 0x00E1, 0x00E2, 0x00E3, 0x00E4, 0x00E5, 0x00E7, 0x00E8, 0x00E9, 0x00EA, 0x00EB,
    0x00EC, 0x00C6, 0x00ED, 0x00AA, 0x00EE, 0x00EF, 0x00F0, 0x00F1, 0x0141, 0x00D8, 0x0152, 0x00BA,
    0x00F2, 0x00F3, 0x00F4, 0x00F5, 0x00F6, 0x00E6, 0x00F9, 0x00FA, 0x00FB, 0x0131, 0x00FC, 0x00FD,
    0x0142, 0x00F8, 0x0153, 0x00DF, 0x00FE, 0x00FF,
};

bool isSpace(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

/// The characters of a string that needs no quotes.
bool isPlain(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') ||
         std::string_view("_$/:.-").find(character) != std::string_view::npos;
}

/// The value of a digit of `base` (8 or 16).
std::optional<unsigned> digit(char character, unsigned base) {
  const auto value = [character]() -> unsigned {
    if (character >= '0' && character <= '9') return static_cast<unsigned>(character - '0');
    if (character >= 'a' && character <= 'f') return static_cast<unsigned>(character - 'a') + 10;
    if (character >= 'A' && character <= 'F') return static_cast<unsigned>(character - 'A') + 10;
    return 16;
  }();
  return value < base ? std::optional(value) : std::nullopt;
}

/// The text as UTF-8, from UTF-16 where it has that byte order mark.
std::optional<std::string> decoded(std::span<const std::byte> bytes) {
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  const bool isBigEndian = text.starts_with("\xFE\xFF");
  if (isBigEndian || text.starts_with("\xFF\xFE")) {
    if (text.size() % 2 != 0) return std::nullopt;
    std::u16string units;
    units.reserve(text.size() / 2);
    for (std::size_t i = 2; i < text.size(); i += 2) {
      const auto high = static_cast<unsigned char>(text[isBigEndian ? i : i + 1]);
      const auto low = static_cast<unsigned char>(text[isBigEndian ? i + 1 : i]);
      units += static_cast<char16_t>(high << 8U | low);
    }
    return stringFromUTF16(units);
  }
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  return isUTF8(text) ? std::optional<std::string>(text) : std::nullopt;
}

class Reader {
 public:
  explicit Reader(std::string_view text) : _all(text), _text(text) {}

  Result<Value> read() {
    std::optional<Value> root = document();
    if (!root) {
      const auto line =
          std::count(_all.begin(), _all.end() - static_cast<long>(_text.size()), '\n');
      return propertyListReadError("Line " + std::to_string(line + 1) + ": " + _failure + ".");
    }
    return std::move(*root);
  }

 private:
  std::nullopt_t fail(std::string reason) {
    if (_failure.empty()) _failure = std::move(reason);
    return std::nullopt;
  }

  /// Skips white space and comments; false if a comment has no end.
  bool skipSpace() {
    for (;;) {
      if (_text.empty()) return true;
      if (isSpace(_text[0])) {
        _text.remove_prefix(1);
      } else if (_text.starts_with(lineSeparator) || _text.starts_with(paragraphSeparator)) {
        _text.remove_prefix(lineSeparator.size());
      } else if (_text.starts_with("//")) {
        _text.remove_prefix(std::min(_text.find_first_of("\r\n"), _text.size()));
      } else if (_text.starts_with("/*")) {
        const std::size_t end = _text.find("*/", 2);
        if (end == std::string_view::npos) {
          fail("a comment has no end");
          return false;
        }
        _text.remove_prefix(end + 2);
      } else {
        return true;
      }
    }
  }

  /// Skips white space and then `character`, if it is there.
  bool take(char character) {
    if (!skipSpace() || !_text.starts_with(character)) return false;
    _text.remove_prefix(1);
    return true;
  }

  std::optional<Value> document() {
    if (!skipSpace()) return std::nullopt;
    if (_text.empty()) return Value(Dictionary());  // a strings table without entries
    const std::string_view start = _text;
    std::optional<Value> root = value();
    if (!root || !skipSpace()) return std::nullopt;
    if (_text.empty()) return root;
    if ((_text[0] != '=' && _text[0] != ';') || root->string() == nullptr) {
      return fail("there is more than one value");
    }
    // A strings table: the entries of a dictionary without its braces. It counts as the one value
    // that its first key was taken for.
    _text = start;
    return inside([this] { return entries([this] { return _text.empty(); }); });
  }

  std::optional<Value> value() {
    if (!skipSpace()) return std::nullopt;
    if (_values++ == propertyListMaximumValues) return fail("there are too many values");
    if (take('(')) return inside([this] { return array(); });
    if (take('{')) {
      return inside([this] { return entries([this] { return take('}'); }); });
    }
    if (take('<')) return data();
    std::optional<std::string> text = string();
    if (!text) return std::nullopt;
    return Value(std::move(*text));
  }

  template <typename Content>
  std::optional<Value> inside(Content content) {
    if (_depth == propertyListMaximumDepth) return fail("values are nested too deeply");
    ++_depth;
    std::optional<Value> value = content();
    --_depth;
    return value;
  }

  std::optional<Value> array() {
    Array array;
    while (!take(')')) {
      std::optional<Value> item = value();
      if (!item) return std::nullopt;
      array.push_back(std::move(*item));
      if (take(',')) continue;
      if (take(')')) break;
      return fail("an array lacks \",\" or \")\"");
    }
    return Value(std::move(array));
  }

  /// "key = value;", or "key;" for one that is its own value, until `atEnd`.
  template <typename AtEnd>
  std::optional<Value> entries(AtEnd atEnd) {
    Dictionary dictionary;
    for (;;) {
      if (!skipSpace()) return std::nullopt;
      if (atEnd()) break;
      std::optional<std::string> key = string();
      if (!key) return std::nullopt;
      std::optional<Value> value;
      if (take('=')) {
        value = this->value();
      } else if (!skipSpace() || !_text.starts_with(';')) {
        return fail("a key lacks \"=\"");
      } else if (_values++ == propertyListMaximumValues) {
        return fail("there are too many values");
      } else {
        value = Value(*key);
      }
      if (!value) return std::nullopt;
      if (!take(';')) return fail("an entry lacks \";\"");
      dictionary.append(std::move(*key), std::move(*value));
    }
    if (const std::string* key = dictionary.duplicateKey()) {
      return fail("the key \"" + *key + "\" occurs twice");
    }
    return Value(std::move(dictionary));
  }

  std::optional<Value> data() {
    Data data;
    for (;;) {
      while (!_text.empty() && isSpace(_text[0])) _text.remove_prefix(1);
      if (_text.starts_with('>')) break;
      const auto high = _text.empty() ? std::nullopt : digit(_text[0], 16);
      const auto low = _text.size() < 2 ? std::nullopt : digit(_text[1], 16);
      if (!high || !low) return fail("data is not pairs of hexadecimal digits");
      data.push_back(static_cast<std::byte>(*high << 4U | *low));
      _text.remove_prefix(2);
    }
    _text.remove_prefix(1);
    return Value(std::move(data));
  }

  std::optional<std::string> string() {
    if (_text.starts_with('"') || _text.starts_with('\'')) return quoted();
    const auto* end = std::find_if_not(_text.begin(), _text.end(), isPlain);
    const auto length = static_cast<std::size_t>(end - _text.begin());
    if (length == 0) {
      return fail(_text.empty() ? "the text ends too early" : "a character needs quotes");
    }
    std::string text(_text.substr(0, length));
    _text.remove_prefix(length);
    return text;
  }

  std::optional<std::string> quoted() {
    const char quote = _text[0];
    _text.remove_prefix(1);
    const std::array<char, 2> special = {quote, '\\'};
    std::string text;
    for (;;) {
      const std::size_t length =
          _text.find_first_of(std::string_view(special.data(), special.size()));
      if (length == std::string_view::npos) return fail("a quoted string has no end");
      text += _text.substr(0, length);
      const char found = _text[length];
      _text.remove_prefix(length + 1);
      if (found == quote) return text;
      if (!takeEscape(text)) return std::nullopt;
    }
  }

  /// Appends what the escape after a backslash stands for.
  bool takeEscape(std::string& text) {
    const char letter = _text.empty() ? '\0' : _text[0];
    const auto* escape =
        std::find_if(std::begin(escapes), std::end(escapes),
                     [letter](const auto& known) { return known.first == letter; });
    if (escape != std::end(escapes)) {
      text += escape->second;
      _text.remove_prefix(1);
      return true;
    }
    if (letter == 'U') {
      _text.remove_prefix(1);
      return takeUnits(text);
    }
    unsigned code = 0;
    std::size_t digits = 0;
    while (digits < 3 && digits < _text.size() && digit(_text[digits], 8)) {
      code = code * 8 + *digit(_text[digits++], 8);
    }
    if (digits == 0 || code >= firstCode + std::size(charactersOfCodes)) {
      fail("there is no such escape");
      return false;
    }
    appendUTF8(
        text, code < firstCode ? code : static_cast<char32_t>(charactersOfCodes[code - firstCode]));
    _text.remove_prefix(digits);
    return true;
  }

  /// The UTF-16 unit after "\U", and the second of a surrogate pair with its own "\U".
  bool takeUnits(std::string& text) {
    std::u16string units;
    do {
      unsigned unit = 0;
      std::size_t digits = 0;
      while (digits < 4 && digits < _text.size() && digit(_text[digits], 16)) {
        unit = unit << 4U | *digit(_text[digits++], 16);
      }
      if (digits == 0) {
        fail("\\U lacks its hexadecimal digits");
        return false;
      }
      _text.remove_prefix(digits);
      units += static_cast<char16_t>(unit);
    } while (units.size() == 1 && units[0] >= 0xD800 && units[0] < 0xDC00 && takeUnitMark());
    const std::optional<std::string> characters = stringFromUTF16(units);
    if (!characters) {
      fail("half a character is missing");
      return false;
    }
    text += *characters;
    return true;
  }

  bool takeUnitMark() {
    if (!_text.starts_with("\\U")) return false;
    _text.remove_prefix(2);
    return true;
  }

  const std::string_view _all;
  /// What is still to be read.
  std::string_view _text;
  std::size_t _depth = 0;
  std::size_t _values = 0;
  std::string _failure;
};

}  // namespace

Result<Value> readOldStylePropertyList(std::span<const std::byte> bytes) {
  const std::optional<std::string> text = decoded(bytes);
  if (!text) return propertyListReadError("The text is neither UTF-8 nor UTF-16.");
  // UTF-8 may take more bytes than UTF-16.
  if (text->size() > propertyListMaximumBytes) {
    return propertyListReadError("The property list is too large.");
  }
  return Reader(*text).read();
}

}  // namespace corvane
