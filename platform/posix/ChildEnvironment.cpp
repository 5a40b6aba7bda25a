#include "platform/ChildEnvironment.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "foundation/NoDestructor.h"

// No header of POSIX declares it.
extern char** environ;  // NOLINT(readability-redundant-declaration)

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
  static NoDestructor<Variables> shared;
  return *shared;
}

}  // namespace

void ChildEnvironment::set(std::string_view name, std::string_view value) {
  std::string text(name);
  text.append("=").append(value);
  Variables& all = variables();
  const std::lock_guard lock(all.mutex);
  const auto entry = all.find(name);
  if (entry == all.entries.end()) {
    all.entries.push_back(std::move(text));
  } else {
    *entry = std::move(text);
  }
}

void ChildEnvironment::remove(std::string_view name) {
  Variables& all = variables();
  const std::lock_guard lock(all.mutex);
  for (auto entry = all.find(name); entry != all.entries.end(); entry = all.find(name)) {
    all.entries.erase(entry);
  }
}

std::vector<std::string> ChildEnvironment::entries() {
  Variables& all = variables();
  const std::lock_guard lock(all.mutex);
  return all.entries;
}

}  // namespace corvane
