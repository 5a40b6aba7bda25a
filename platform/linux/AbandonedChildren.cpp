#include "platform/linux/AbandonedChildren.h"

#include <sys/wait.h>

namespace corvane {

void AbandonedChildren::add(pid_t child) {
  const std::lock_guard lock(_mutex);
  _children.push_back(child);
}

bool AbandonedChildren::collect() {
  const std::lock_guard lock(_mutex);
  std::erase_if(_children, [](pid_t child) { return ::waitpid(child, nullptr, WNOHANG) != 0; });
  return _children.size() < most;
}

}  // namespace corvane
