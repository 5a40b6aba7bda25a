#ifndef CORVANE_PLATFORM_TASK_H
#define CORVANE_PLATFORM_TASK_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/FileHandle.h"

namespace corvane {

/// The name of the exception that a task raises when its program cannot be launched.
inline constexpr const char* NSInvalidArgumentException = "NSInvalidArgumentException";

/// One program to be run as a child of this process, once.
///
/// The child has its three standard streams and no other descriptor, the default action for every
/// signal and none blocked, and the environment of platform/ChildEnvironment.h. Its name for itself
/// (argument 0) is its launch path.
///
/// Set up and waited for by one thread at a time; `terminate`, `interrupt` and `kill` by any.
class Task {
 public:
  using Handles = std::vector<std::shared_ptr<FileHandle>>;

  static std::shared_ptr<Task> init();

  virtual ~Task() = default;

  /// The child's ends of its pipes. The task lets go of them once the program is launched.
  virtual void setStandardInput(std::shared_ptr<FileHandle> reading) = 0;
  virtual void setStandardOutput(std::shared_ptr<FileHandle> writing) = 0;
  virtual void setStandardError(std::shared_ptr<FileHandle> writing) = 0;
  virtual void setLaunchPath(std::string path) = 0;
  /// Without the call there are none.
  virtual void setArguments(std::vector<std::string> arguments) = 0;

  /// Starts the program. Raises NSInvalidArgumentException with the reason if it cannot be started.
  virtual void launch() = 0;

  /// After the launch: waits until something can be read from some of `handles`, or they are at
  /// their end, and returns these; or until the program has ended, and returns none.
  virtual Handles waitForDataOrTermination(const Handles& handles) = 0;
  /// After the launch: waits for the end of the program. Its exit status, or the number of the
  /// signal that ended it.
  virtual std::int32_t terminationStatus() = 0;

  /// Ask the program to end, or interrupt it. One that is not running is left alone.
  virtual void terminate() = 0;
  virtual void interrupt() = 0;
  /// Ends the program, whether it wants to or not.
  virtual void kill() = 0;
};

}  // namespace corvane

#endif
