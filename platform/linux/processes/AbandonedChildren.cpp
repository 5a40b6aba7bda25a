#include "platform/linux/processes/AbandonedChildren.h"

#include <algorithm>
#include <csignal>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "platform/posix/TaskSystem.h"

namespace corvane {

namespace {

/// How long a killed child, in milliseconds, is waited for.
constexpr int killTimeout = 1000;

}  // namespace

bool AbandonedChildren::end(pid_t child, uid_t user) {
  ::kill(child, SIGKILL);
  // It cannot end while it waits for a file system that does not answer.
  const FileDescriptor ended = endOfChild(child);
  pollfd descriptor{ended.get(), POLLIN, 0};
  ::poll(&descriptor, 1, killTimeout);
  if (::waitpid(child, nullptr, WNOHANG) != 0) return true;
  add(child, user);
  return false;
}

void AbandonedChildren::add(pid_t child, uid_t user) {
  const std::lock_guard lock(_mutex);
  _children.push_back({child, user});
}

bool AbandonedChildren::mayStart(uid_t user) {
  const std::lock_guard lock(_mutex);
  std::erase_if(_children,
                [](const Child& child) { return ::waitpid(child.process, nullptr, WNOHANG) != 0; });
  const auto ofRoot = static_cast<std::size_t>(std::ranges::count(_children, 0U, &Child::user));
  const auto ofUser = static_cast<std::size_t>(std::ranges::count(_children, user, &Child::user));
  return ofUser < _mostOfOneUser && (user == 0 || _children.size() - ofRoot < _most);
}

}  // namespace corvane
