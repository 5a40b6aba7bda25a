#ifndef CORVANE_PLATFORM_LINUX_PROCESSES_ABANDONEDCHILDREN_H
#define CORVANE_PLATFORM_LINUX_PROCESSES_ABANDONEDCHILDREN_H

#include <cstddef>
#include <mutex>
#include <vector>

#include <sys/types.h>

namespace corvane {

/// Child processes that were killed and have not ended since, because the kernel is waiting for a
/// file system on their behalf. Any thread may call any method.
class AbandonedChildren {
 public:
  /// With as many as these, on behalf of one user, or of all but root, no more children should be
  /// started.
  AbandonedChildren(std::size_t mostOfOneUser, std::size_t most)
      : _mostOfOneUser(mostOfOneUser), _most(most) {}

  /// Kills a child that has done its work on behalf of `user`, if it still runs. True if it has
  /// ended; otherwise it is added.
  bool end(pid_t child, uid_t user);
  /// Leaves a child to be collected whenever it ends.
  void add(pid_t child, uid_t user);
  /// Collects those that have ended. False if as many as may be are left.
  bool mayStart(uid_t user);

 private:
  struct Child {
    pid_t process;
    uid_t user;
  };

  const std::size_t _mostOfOneUser;
  const std::size_t _most;
  std::mutex _mutex;
  std::vector<Child> _children;
};

}  // namespace corvane

#endif
