#ifndef CORVANE_PROCESS_ZELTASKEXECUTORDELEGATE_H
#define CORVANE_PROCESS_ZELTASKEXECUTORDELEGATE_H

#include <optional>

#include "foundation/Value.h"

namespace corvane {

class ZELTaskExecutor;

/// Receives the output of a program that an executor runs. Raises nothing.
class ZELTaskExecutorDelegate {
 public:
  virtual ~ZELTaskExecutorDelegate() = default;

  /// A chunk of the program's standard output or, if `isError` is true, of its standard error; may
  /// be empty. Called on a thread of the executor, one call after the other. The program waits
  /// while the delegate takes its time.
  virtual void receiveTaskOutput(std::optional<Data> chunk, std::optional<Number> isError) = 0;

  /// Right before and right after the launch, on the thread that starts the program.
  virtual void taskWillExecute(ZELTaskExecutor& /*executor*/) {}
  virtual void taskDidLaunch(ZELTaskExecutor& /*executor*/) {}
};

}  // namespace corvane

#endif
