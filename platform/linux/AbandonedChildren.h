#ifndef CORVANE_PLATFORM_LINUX_ABANDONEDCHILDREN_H
#define CORVANE_PLATFORM_LINUX_ABANDONEDCHILDREN_H

#include <cstddef>
#include <mutex>
#include <vector>

#include <sys/types.h>

namespace corvane {

/// Child processes that were killed and have not ended since, because the kernel is waiting for a
/// file system on their behalf. Any thread may call any method.
class AbandonedChildren {
 public:
  /// With as many as these, what would start another child had better fail.
  static constexpr std::size_t most = 16;

  /// Leaves a child to be collected whenever it ends.
  void add(pid_t child);
  /// Collects those that have ended. False if as many as may be are left.
  bool collect();

 private:
  std::mutex _mutex;
  std::vector<pid_t> _children;
};

}  // namespace corvane

#endif
