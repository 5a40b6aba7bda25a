#ifndef CORVANE_FOUNDATION_UNICODE_H
#define CORVANE_FOUNDATION_UNICODE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

/// What stands for what is no character.
constexpr char32_t replacementCharacter = 0xFFFD;

/// Takes one character off the front of `text`; nothing, and `text` as it was, if it does not begin
/// with well-formed UTF-8 (no overlong form, no surrogate, nothing above U+10FFFF).
std::optional<char32_t> takeUTF8Character(std::string_view& text);
/// Takes one character off the front of `text`, which has one: U+FFFD for a byte that begins none.
char32_t takeCharacter(std::string_view& text);
bool isUTF8(std::string_view text);
/// Whether `byte`, which follows `previous`, is or ends a control character of UTF-8: U+0000 to
/// U+001F, U+007F, and U+0080 to U+009F, which are two bytes long.
bool endsControlCharacter(char previous, char byte);
/// Appends a character that is not a surrogate.
void appendUTF8(std::string& text, char32_t character);

/// The UTF-8 form of UTF-16; nothing if a surrogate stands alone.
std::optional<std::string> stringFromUTF16(std::u16string_view units);
/// The UTF-16 form of well-formed UTF-8; nothing if it is not.
std::optional<std::u16string> utf16FromString(std::string_view text);

}  // namespace corvane

#endif
