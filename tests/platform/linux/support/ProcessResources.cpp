#include "tests/process/ProcessResources.h"

#include <filesystem>
#include <string>
#include <thread>

#include <sched.h>
#include <unistd.h>

namespace corvane::tests {

namespace {

std::size_t countOf(const char* folder) {
  const std::filesystem::directory_iterator all(folder);
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// The threads of the process before a test makes any. The first thread that is made may bring
// another one with it that stays, of a sanitizer.
const std::size_t threadsAtStart = [] {
  pid_t first = 0;
  std::thread([&first] { first = gettid(); }).join();
  while (std::filesystem::exists("/proc/self/task/" + std::to_string(first))) sched_yield();
  return threads();
}();

}  // namespace

std::size_t openDescriptors() {
  return countOf("/proc/self/fd");
}

std::size_t threads() {
  return countOf("/proc/self/task");
}

void waitForThreads() {
  while (threads() > threadsAtStart) sched_yield();
}

}  // namespace corvane::tests
