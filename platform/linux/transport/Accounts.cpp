#include "platform/linux/transport/Accounts.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>

#include <fcntl.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"

namespace corvane {

namespace {

// Some ten thousand lines.
constexpr std::size_t maximumFileSize = std::size_t{1} << 20;

std::string beginningOfFile(const std::string& path) {
  std::string text;
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return text;
  text.resize(maximumFileSize);
  std::size_t length = 0;
  while (length < text.size()) {
    const ssize_t count = ::read(file.get(), &text[length], text.size() - length);
    if (count <= 0) break;
    length += static_cast<std::size_t>(count);
  }
  text.resize(length);
  return text;
}

// Calls `take` with the fields of each line that has at least three.
template <typename Take>
void forEachLine(std::string_view text, const Take& take) {
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    std::array<std::string_view, 3> fields;
    std::size_t count = 0;
    for (; count < fields.size(); ++count) {
      fields[count] = line.substr(0, line.find(':'));
      if (fields[count].size() == line.size())
        line = {};
      else
        line.remove_prefix(fields[count].size() + 1);
    }
    take(fields);
  }
}

std::optional<std::uint32_t> number(std::string_view text) {
  std::uint32_t value = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isWhole = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
  return isWhole && !text.empty() ? std::optional(value) : std::nullopt;
}

auto identityOf(const struct stat& status) {
  return std::tuple(status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                    status.st_mtim.tv_nsec, status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
}

}  // namespace

Accounts::Accounts(std::string subordinateUsersPath, std::string usersPath)
    : _subordinateUsersPath(std::move(subordinateUsersPath)), _usersPath(std::move(usersPath)) {}

uid_t Accounts::accountOf(uid_t user) {
  if (user == 0) return user;
  const std::lock_guard lock(_mutex);
  readIfChanged();
  const auto range = std::find_if(_ranges.begin(), _ranges.end(), [user](const Range& candidate) {
    return candidate.first <= user && user <= candidate.last;
  });
  return range == _ranges.end() ? user : range->account;
}

void Accounts::readIfChanged() {
  struct stat status {};
  // A file that is missing is noted as all zeros, as is one that has not been looked for yet:
  // neither has any ranges.
  if (::stat(_subordinateUsersPath.c_str(), &status) != 0) status = {};
  if (identityOf(status) == identityOf(_seen)) return;
  _seen = status;
  _ranges.clear();
  // Not through the system's name service: who connects must not wait for a network.
  std::map<std::string, uid_t, std::less<>> users;
  forEachLine(beginningOfFile(_usersPath), [&users](const auto& fields) {
    if (const auto user = number(fields[2])) users.emplace(fields[0], *user);
  });
  forEachLine(beginningOfFile(_subordinateUsersPath), [&](const auto& fields) {
    const auto first = number(fields[1]);
    const auto count = number(fields[2]);
    if (!first || !count || *count == 0 || *count - 1 > UINT32_MAX - *first) return;
    const auto named = users.find(fields[0]);
    const uid_t account = named != users.end() ? named->second : number(fields[0]).value_or(*first);
    if (account != 0) _ranges.push_back({*first, *first + (*count - 1), account});
  });
}

}  // namespace corvane
