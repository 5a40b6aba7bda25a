#ifndef CORVANE_TESTS_PROCESS_PROCESSRESOURCES_H
#define CORVANE_TESTS_PROCESS_PROCESSRESOURCES_H

#include <cstddef>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"

namespace corvane::tests {

inline std::size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

inline std::size_t threads() {
  const std::filesystem::directory_iterator all("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

/// The threads of the process before a test makes any. The first thread that is made may bring
/// another one with it that stays, of a sanitizer.
inline const std::size_t threadsAtStart = [] {
  pid_t first = 0;
  std::thread([&first] { first = gettid(); }).join();
  while (std::filesystem::exists("/proc/self/task/" + std::to_string(first))) sched_yield();
  return threads();
}();

/// Waits until no more threads are left than the process began with: the last one of a run is a
/// moment behind its result. A thread that stays makes the test time out.
inline void waitForThreads() {
  while (threads() > threadsAtStart) sched_yield();
}

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
