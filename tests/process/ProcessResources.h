#ifndef CORVANE_TESTS_PROCESS_PROCESSRESOURCES_H
#define CORVANE_TESTS_PROCESS_PROCESSRESOURCES_H

#include <cstddef>
#include <filesystem>

#include <sched.h>
#include <sys/wait.h>

namespace corvane::tests {

inline std::size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

inline std::size_t threads() {
  const std::filesystem::directory_iterator all("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

/// Waits until no more than `count` threads are left: the last one of a run is a moment behind its
/// result. A thread that stays makes the test time out.
inline void waitForThreads(std::size_t count) {
  while (threads() > count) sched_yield();
}

/// True if the process has a child, ended or not.
inline bool hasChildren() {
  siginfo_t info{};
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

}  // namespace corvane::tests

#endif
