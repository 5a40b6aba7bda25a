// The output of a child: counted by a delegate of the executor against `wc -c`, by turns in one
// run.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <sys/resource.h>

#include "bench/support/Rounds.h"
#include "process/ZELTaskExecutor.h"

namespace {

using corvane::bench::median;
using Clock = std::chrono::steady_clock;
using Arguments = corvane::ZELTaskExecutor::Arguments;

constexpr const char* shell = "/bin/sh";
constexpr const char* child = "head -c 1G /dev/zero";
constexpr std::uint64_t length = std::uint64_t{1} << 30U;
constexpr int rounds = 7;

struct Counter : corvane::ZELTaskExecutorDelegate {
  void receiveTaskOutput(std::optional<corvane::Data> chunk,
                         std::optional<corvane::Number>) override {
    bytes += chunk->size();
    if (bytes == chunk->size()) first = *chunk;
  }
  std::uint64_t bytes = 0;
  corvane::Data first;
};

corvane::Data run(const std::string& script, std::uint64_t expected) {
  const auto counter = std::make_shared<Counter>();
  const auto executor = corvane::ZELTaskExecutor::init();
  executor->setDelegate(counter);
  if (executor->executeProgramAtPath(shell, Arguments{"-c", script}) != 0) std::abort();
  if (expected != 0 && counter->bytes != expected) std::abort();
  return counter->first;
}

double countWithWc() {
  const auto begin = Clock::now();
  const auto answer = run(std::string(child) + " | wc -c", 0);
  if (corvane::stringFromData(answer) != std::to_string(length) + "\n") std::abort();
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

double countWithDelegate() {
  const auto begin = Clock::now();
  run(child, length);
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

}  // namespace

int main() {
  std::vector<double> wc;
  std::vector<double> delegate;
  for (int i = 0; i < rounds; ++i) {
    wc.push_back(countWithWc());
    delegate.push_back(countWithDelegate());
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("1 GiB of output, %d rounds\n", rounds);
  std::printf("wc -c:           median %.3f s\n", median(wc));
  std::printf("ZELTaskExecutor: median %.3f s\n", median(delegate));
  std::printf("throughput ratio: %.2f; peak memory %.1f MiB\n", median(wc) / median(delegate),
              static_cast<double>(usage.ru_maxrss) / 1024);
  return 0;
}
