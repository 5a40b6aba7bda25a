#include "tests/process/ProcessResources.h"

#include <fcntl.h>
#include <libproc.h>
#include <sched.h>

namespace corvane::tests {

namespace {

const std::size_t threadsAtStart = threads();

}  // namespace

std::size_t openDescriptors() {
  std::size_t count = 0;
  for (int descriptor = 0; descriptor < getdtablesize(); ++descriptor) {
    if (fcntl(descriptor, F_GETFD, 0) >= 0) ++count;
  }
  return count;
}

std::size_t threads() {
  proc_taskinfo task{};
  const int size = proc_pidinfo(getpid(), PROC_PIDTASKINFO, 0, &task, sizeof task);
  return size == sizeof task ? static_cast<std::size_t>(task.pti_threadnum) : 0;
}

void waitForThreads() {
  while (threads() > threadsAtStart) sched_yield();
}

}  // namespace corvane::tests
