#include "foundation/Unicode.h"

#include <algorithm>

namespace corvane {

namespace {

constexpr char32_t highSurrogates = 0xD800;
constexpr char32_t lowSurrogates = 0xDC00;
constexpr char32_t surrogatesEnd = 0xE000;
constexpr char32_t supplementary = 0x10000;
constexpr char32_t charactersEnd = 0x110000;

bool isSurrogate(char32_t character) {
  return character >= highSurrogates && character < surrogatesEnd;
}

}  // namespace

std::optional<char32_t> takeUTF8Character(std::string_view& text) {
  if (text.empty()) return std::nullopt;
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) {
    text.remove_prefix(1);
    return lead;
  }
  std::size_t length = 0;
  char32_t least = 0;
  char32_t character = 0;
  if ((lead & 0xE0U) == 0xC0) {
    length = 2, least = 0x80, character = lead & 0x1FU;
  } else if ((lead & 0xF0U) == 0xE0) {
    length = 3, least = 0x800, character = lead & 0x0FU;
  } else if ((lead & 0xF8U) == 0xF0) {
    length = 4, least = supplementary, character = lead & 0x07U;
  } else {
    return std::nullopt;
  }
  if (text.size() < length) return std::nullopt;
  for (const char next : text.substr(1, length - 1)) {
    const auto byte = static_cast<unsigned char>(next);
    if ((byte & 0xC0U) != 0x80) return std::nullopt;
    character = character << 6U | (byte & 0x3FU);
  }
  if (character < least || character >= charactersEnd || isSurrogate(character)) {
    return std::nullopt;
  }
  text.remove_prefix(length);
  return character;
}

char32_t takeCharacter(std::string_view& text) {
  const std::optional<char32_t> character = takeUTF8Character(text);
  if (!character) text.remove_prefix(1);
  return character.value_or(replacementCharacter);
}

bool isUTF8(std::string_view text) {
  const auto isASCII = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  for (;;) {
    const auto* other = std::find_if_not(text.begin(), text.end(), isASCII);
    text.remove_prefix(static_cast<std::size_t>(other - text.begin()));
    if (text.empty()) return true;
    if (!takeUTF8Character(text)) return false;
  }
}

bool endsControlCharacter(char previous, char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return value < 0x20 || value == 0x7f ||
         (static_cast<unsigned char>(previous) == 0xc2 && value >= 0x80 && value <= 0x9f);
}

void appendUTF8(std::string& text, char32_t character) {
  const auto append = [&text](char32_t byte) { text += static_cast<char>(byte); };
  const auto continuation = [&](unsigned shift) { append(0x80U | (character >> shift & 0x3FU)); };
  if (character < 0x80) {
    append(character);
  } else if (character < 0x800) {
    append(0xC0U | character >> 6U);
    continuation(0);
  } else if (character < supplementary) {
    append(0xE0U | character >> 12U);
    continuation(6);
    continuation(0);
  } else {
    append(0xF0U | character >> 18U);
    continuation(12);
    continuation(6);
    continuation(0);
  }
}

std::optional<std::string> stringFromUTF16(std::u16string_view units) {
  std::string text;
  text.reserve(units.size());
  for (std::size_t i = 0; i < units.size(); ++i) {
    auto character = static_cast<char32_t>(units[i]);
    if (isSurrogate(character)) {
      if (character >= lowSurrogates || i + 1 == units.size()) return std::nullopt;
      const auto low = static_cast<char32_t>(units[++i]);
      if (low < lowSurrogates || low >= surrogatesEnd) return std::nullopt;
      character = supplementary + ((character - highSurrogates) << 10U) + (low - lowSurrogates);
    }
    appendUTF8(text, character);
  }
  return text;
}

std::optional<std::u16string> utf16FromString(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());
  while (!text.empty()) {
    const std::optional<char32_t> character = takeUTF8Character(text);
    if (!character) return std::nullopt;
    if (*character < supplementary) {
      units += static_cast<char16_t>(*character);
    } else {
      const char32_t offset = *character - supplementary;
      units += static_cast<char16_t>(highSurrogates + (offset >> 10U));
      units += static_cast<char16_t>(lowSurrogates + (offset & 0x3FFU));
    }
  }
  return units;
}

}  // namespace corvane
