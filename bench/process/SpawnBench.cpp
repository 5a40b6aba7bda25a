// Starting a program: the executor against a bare posix_spawn and wait, by turns in one run.

#include <memory>
#include <optional>
#include <stdexcept>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/support/Program.h"
#include "bench/support/Rounds.h"
#include "process/ZELTaskExecutor.h"

namespace corvane {
namespace {

constexpr const char* program = "/bin/true";
constexpr int rounds = 20;
constexpr int startsARound = 50;

// Takes what there is, which is nothing.
struct Sink : ZELTaskExecutorDelegate {
  void receiveTaskOutput(std::optional<Data>, std::optional<Number>) override {}
};

void startBare() {
  pid_t pid = 0;
  char* const arguments[] = {const_cast<char*>(program), nullptr};
  int status = 0;
  if (posix_spawn(&pid, program, nullptr, nullptr, arguments, environ) != 0 ||
      waitpid(pid, &status, 0) != pid || status != 0) {
    throw std::runtime_error("the program failed");
  }
}

void startWithExecutor() {
  const auto sink = std::make_shared<Sink>();
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(sink);
  if (executor->executeProgramAtPath(program, ZELTaskExecutor::Arguments{}) != 0) {
    throw std::runtime_error("the program failed");
  }
}

void measure() {
  bench::compare(
      bench::perCall("start of /bin/true by the executor", startsARound, &startWithExecutor),
      bench::perCall("posix_spawn and wait", startsARound, &startBare), rounds, "us a start", 1.3);
}

}  // namespace
}  // namespace corvane

int main() {
  return corvane::bench::runProgram(&corvane::measure);
}
