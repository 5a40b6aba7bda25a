#include "platform/linux/authorization/Authority.h"

#include <algorithm>

namespace corvane {

namespace {

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

}  // namespace

bool isRightName(std::string_view text) {
  return !text.empty() && text.size() <= 200 && isLetterOrDigit(text.front()) &&
         std::all_of(text.begin(), text.end(),
                     [](char c) { return isLetterOrDigit(c) || c == '.' || c == '-'; });
}

}  // namespace corvane
