#include "platform/linux/transport/SubordinateUsers.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string_view>

#include "platform/linux/processes/UserDatabase.h"

namespace corvane {

namespace {

std::optional<std::uint64_t> numberIn(std::string_view text) {
  std::uint64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = result.ec == std::errc() && result.ptr == text.data() + text.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

std::string_view takeField(std::string_view& line) {
  const std::size_t end = std::min(line.find(':'), line.size());
  const std::string_view field = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return field;
}

/// A user's name, or number, to the user's number.
std::optional<uid_t> userCalled(std::string_view name) {
  if (const auto user = userNamed(std::string(name))) return user->uid;
  const auto number = numberIn(name);
  return number ? std::optional(static_cast<uid_t>(*number)) : std::nullopt;
}

}  // namespace

uid_t ownerOfSubordinateUser(uid_t user, const std::string& file) {
  std::ifstream ranges(file);
  for (std::string text; std::getline(ranges, text);) {
    std::string_view line = text;
    const std::string_view owner = takeField(line);
    const auto first = numberIn(takeField(line));
    const auto count = numberIn(takeField(line));
    if (!first || !count || user < *first || user - *first >= *count) continue;
    // Root gives ranges to containers that it runs. Their users are not root, and do not count as
    // root, which is not limited.
    const std::optional<uid_t> found = userCalled(owner);
    if (found && *found != 0) return *found;
  }
  return user;
}

}  // namespace corvane
