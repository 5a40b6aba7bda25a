// Starting a program: the executor against a bare posix_spawn and wait, by turns in one run.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/support/Rounds.h"
#include "process/ZELTaskExecutor.h"

namespace {

using corvane::bench::median;
using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr const char* program = "/bin/true";
constexpr int rounds = 20;
constexpr int startsARound = 50;

// Takes what there is, which is nothing.
struct Sink : corvane::ZELTaskExecutorDelegate {
  void receiveTaskOutput(std::optional<corvane::Data>, std::optional<corvane::Number>) override {}
};

void startBare() {
  pid_t pid = 0;
  char* const arguments[] = {const_cast<char*>(program), nullptr};
  int status = 0;
  if (posix_spawn(&pid, program, nullptr, nullptr, arguments, environ) != 0 ||
      waitpid(pid, &status, 0) != pid || status != 0) {
    std::abort();
  }
}

void startWithExecutor() {
  const auto sink = std::make_shared<Sink>();
  const auto executor = corvane::ZELTaskExecutor::init();
  executor->setDelegate(sink);
  if (executor->executeProgramAtPath(program, corvane::ZELTaskExecutor::Arguments{}) != 0) {
    std::abort();
  }
}

double timeOfRound(void (*start)()) {
  const auto begin = Clock::now();
  for (int i = 0; i < startsARound; ++i) start();
  return Microseconds(Clock::now() - begin).count() / startsARound;
}

double sum(const std::vector<double>& values) {
  double total = 0;
  for (const double value : values) total += value;
  return total * startsARound / 1e6;
}

}  // namespace

int main() {
  timeOfRound(startBare);
  timeOfRound(startWithExecutor);
  std::vector<double> bare;
  std::vector<double> executor;
  for (int i = 0; i < rounds; ++i) {
    bare.push_back(timeOfRound(startBare));
    executor.push_back(timeOfRound(startWithExecutor));
  }
  std::printf("%d starts of %s\n", rounds * startsARound, program);
  std::printf("posix_spawn and wait: %7.3f s, median %6.0f us a start\n", sum(bare), median(bare));
  std::printf("ZELTaskExecutor:      %7.3f s, median %6.0f us a start\n", sum(executor),
              median(executor));
  std::printf("ratio:                %7.2f of the sums, %.2f of the medians (at most 1.30)\n",
              sum(executor) / sum(bare), median(executor) / median(bare));
  return 0;
}
