#include "platform/linux/processes/ForkedChild.h"

#include <algorithm>
#include <csignal>

#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace corvane {

void leaveParentBehind(int oneDescriptor, int otherDescriptor) {
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  const auto closeFrom = [](unsigned first, unsigned end) {
    if (first < end) ::syscall(SYS_close_range, first, end - 1, 0U);
  };
  const auto low = static_cast<unsigned>(std::min(oneDescriptor, otherDescriptor));
  const auto high = static_cast<unsigned>(std::max(oneDescriptor, otherDescriptor));
  closeFrom(0, low);
  closeFrom(low + 1, high);
  closeFrom(high + 1, ~0U);
  // The child may take on a user's rights, but has the daemon's memory: that user must not be able
  // to trace it.
  ::prctl(PR_SET_DUMPABLE, 0);
  ::umask(0);
}

}  // namespace corvane
