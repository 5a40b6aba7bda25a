#ifndef CORVANE_TESTS_PROCESS_PROCESSRESOURCES_H
#define CORVANE_TESTS_PROCESS_PROCESSRESOURCES_H

#include <cstddef>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"

namespace corvane::tests {

/// How many descriptors and how many threads this process has.
std::size_t openDescriptors();
std::size_t threads();

/// Waits until no more threads are left than the process began with: the last one of a run is a
/// moment behind its result. A thread that stays makes the test time out.
void waitForThreads();

/// True if the process has a child, ended or not.
inline bool hasChildren() {
  siginfo_t info{};
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

/// True where address sanitizer keeps freed memory for a while.
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool freedMemoryIsKept = true;
#else
inline constexpr bool freedMemoryIsKept = false;
#endif

/// True where the undefined-behaviour sanitizer, which comes with address sanitizer here, looks at
/// objects through pipes: it takes them for none when there are no descriptors left.
inline constexpr bool objectsTakeDescriptors = freedMemoryIsKept;

/// Leaves this process `count` descriptors until the end of the scope.
class FewDescriptors {
 public:
  explicit FewDescriptors(int count) {
    getrlimit(RLIMIT_NOFILE, &_before);
    rlimit few = _before;
    few.rlim_cur = 64;
    setrlimit(RLIMIT_NOFILE, &few);
    for (int taken = dup(STDERR_FILENO); taken >= 0; taken = dup(STDERR_FILENO)) {
      _taken.emplace_back(taken);
    }
    for (int i = 0; i < count; ++i) _taken.pop_back();
  }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &_before); }

 private:
  rlimit _before{};
  std::vector<FileDescriptor> _taken;
};

}  // namespace corvane::tests

#endif
