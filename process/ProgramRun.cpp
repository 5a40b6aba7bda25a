#include "process/ProgramRun.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

namespace corvane {

namespace {

// Where the run's thread leaves the end of the program for the one that waits.
struct EndOfRun {
  std::mutex mutex;
  std::condition_variable_any changed;
  std::optional<ProgramEnd> end;
};

}  // namespace

ProgramEnd runProgram(ZELTaskExecutor& executor, const std::string& path,
                      const ZELTaskExecutor::Arguments& arguments, const std::stop_token& stop) {
  const auto run = std::make_shared<EndOfRun>();
  const bool isStarted =
      executor.executeProgramAtPath(path, arguments, [run](bool interrupted, std::int32_t status) {
        const std::lock_guard guard(run->mutex);
        run->end = ProgramEnd{interrupted, status};
        run->changed.notify_all();
      });
  if (!isStarted) return {};

  const auto hasEnded = [&run] { return run->end.has_value(); };
  std::unique_lock lock(run->mutex);
  if (!run->changed.wait(lock, stop, hasEnded)) {
    executor.interruptProgramUsingTerminationRequest(true);
    if (!run->changed.wait_for(lock, timeToEnd, hasEnded)) executor.killProgram();
    run->changed.wait(lock, hasEnded);
  }
  return *run->end;
}

}  // namespace corvane
