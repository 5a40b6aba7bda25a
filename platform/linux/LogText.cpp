#include "platform/linux/LogText.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <unistd.h>

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
  unsigned char previous = 0;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    // U+0080 to U+009F are control characters too, two bytes long in UTF-8.
    const bool isControl =
        byte < 0x20 || byte == 0x7f || (previous == 0xc2 && byte >= 0x80 && byte <= 0x9f);
    previous = byte;
    if (!isControl) {
      line += character;
    } else {
      line += "\\x";
      line += digits[byte >> 4];
      line += digits[byte & 0xf];
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
