#include "platform/posix/LogText.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>

#include <unistd.h>

#include "foundation/Unicode.h"

namespace corvane {

std::string printfText(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  std::string text(256, '\0');  // long enough for most
  const int length = std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  const bool wasLongEnough = length <= static_cast<int>(text.size());
  text.resize(static_cast<std::size_t>(std::max(length, 0)));
  if (!wasLongEnough) std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

std::string singleLine(std::string_view text) {
  static constexpr std::string_view digits = "0123456789abcdef";
  std::string line;
  line.reserve(text.size());
  while (!text.empty()) {
    const std::string_view before = text;
    const std::optional<char32_t> character = takeUTF8Character(text);
    if (!character) text.remove_prefix(1);
    const std::string_view taken = before.substr(0, before.size() - text.size());
    if (character && !endsControlCharacter(taken.front(), taken.back())) {
      line += taken;
      continue;
    }
    for (const char byte : taken) {
      const auto value = static_cast<unsigned char>(byte);
      line += "\\x";
      line += digits[value >> 4];
      line += digits[value & 0xf];
    }
  }
  return line;
}

void writeToStandardError(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return;  // there is nowhere left to report to
    }
  }
}

}  // namespace corvane
