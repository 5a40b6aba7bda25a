#include "platform/posix/TaskSystem.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace corvane {

void giveStandardStreamsOnly(posix_spawn_file_actions_t& actions, short& /*flags*/) {
  // Succeeds, or is out of memory as the actions before it.
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

FileDescriptor endOfChild(pid_t pid) {
  return FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
}

}  // namespace corvane
