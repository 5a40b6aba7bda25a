#include "platform/Environment.h"

#include <algorithm>
#include <mutex>
#include <string_view>

#include <unistd.h>

namespace corvane {

namespace {

struct Variables {
  std::mutex mutex;
  std::vector<std::string> entries;

  Variables() {
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
      entries.emplace_back(*entry);
    }
  }

  auto find(std::string_view name) {
    return std::find_if(entries.begin(), entries.end(), [name](std::string_view entry) {
      return entry.starts_with(name) && entry.substr(name.size()).starts_with('=');
    });
  }
};

Variables& variables() {
  // Never destroyed: a thread may start a program while the process ends.
  static Variables& shared = *new Variables;
  return shared;
}

}  // namespace

int setenv(const char* name, const char* value, int overwrite) {
  Variables& all = variables();
  const std::lock_guard lock(all.mutex);
  const auto entry = all.find(name);
  if (entry == all.entries.end()) {
    all.entries.push_back(std::string(name) + '=' + value);
  } else if (overwrite != 0) {
    *entry = std::string(name) + '=' + value;
  }
  return 0;
}

int unsetenv(const char* name) {
  Variables& all = variables();
  const std::lock_guard lock(all.mutex);
  for (auto entry = all.find(name); entry != all.entries.end(); entry = all.find(name)) {
    all.entries.erase(entry);
  }
  return 0;
}

std::vector<std::string> environment() {
  Variables& all = variables();
  const std::lock_guard lock(all.mutex);
  return all.entries;
}

}  // namespace corvane
