#ifndef CORVANE_PROCESS_ZELTASKEXECUTOR_H
#define CORVANE_PROCESS_ZELTASKEXECUTOR_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Atomic.h"
#include "platform/FileHandle.h"
#include "platform/Task.h"
#include "process/ZELTaskExecutorDelegate.h"

namespace corvane {

/// Runs one program at a time with its standard streams connected to pipes, hands its output to a
/// delegate while it runs and once more when it has ended, and reports its status.
///
/// Each run has a thread of its own, which reads the output, calls the delegate and keeps the
/// executor alive until the program has ended. Nothing is ever written to the program's standard
/// input; it ends with the run. Output is read as fast as the delegate takes it and not kept: a
/// delegate that is slow slows its own program down and nothing else.
///
/// A stream that the program closes before it ends is told by one empty chunk. When the program has
/// ended, the rest of its output is read, then that of its error output, so that the delegate is
/// called at least once more for each, with an empty chunk if nothing is left. A descendant of the
/// program that lives on may still hold a stream open. The end of the streams is waited for no
/// longer than `lingerTime` after the program's own end; everything that was written by then is
/// delivered, and the run is over. What descendants write later finds a closed pipe. They are not
/// ended.
///
/// Any thread may call any method.
class ZELTaskExecutor : public std::enable_shared_from_this<ZELTaskExecutor> {
 public:
  using Arguments = std::vector<std::string>;
  /// Told whether an interruption was requested, and the exit status of the program or the number
  /// of the signal that ended it. Called on the run's thread; a new run may start then.
  using CompletionHandler = std::function<void(bool interrupted, std::int32_t status)>;

  static constexpr std::chrono::milliseconds lingerTime{1000};

  static std::shared_ptr<ZELTaskExecutor> init();

  /// True if the program file at `path` and its folder belong to user and group 0 and nobody else
  /// may write to them. A symbolic link is judged by its target and the target's folder.
  static bool hasExecutableSafePermissionsAtPath(const std::string& path);

  /// Where the output goes; not kept alive. Without a delegate it goes to the process's own
  /// standard output and error.
  std::shared_ptr<ZELTaskExecutorDelegate> delegate() const { return _delegate.load().lock(); }
  void setDelegate(std::weak_ptr<ZELTaskExecutorDelegate> delegate);

  /// Runs the program to its end: its status, or -1 if the start was refused. The form below says
  /// when that is, and what is raised.
  std::int32_t executeProgramAtPath(const std::optional<std::string>& path,
                                    const std::optional<Arguments>& arguments);

  /// Starts the program and returns at once. False if the path or the arguments are absent, if a
  /// program is running, or if no descriptors are left; the standard log says which. Raises
  /// NSInvalidArgumentException if the program cannot be launched. After these last two the
  /// executor refuses every further start.
  bool executeProgramAtPath(const std::optional<std::string>& path,
                            const std::optional<Arguments>& arguments,
                            CompletionHandler completionHandler);

  /// True from the start of a program to its end.
  bool canInterruptProgram() const;
  /// Asks the program to end (true) or interrupts it (false). Without a program nothing happens.
  void interruptProgramUsingTerminationRequest(bool terminationRequest);
  /// Ends the program, whether it wants to or not. Without a program nothing happens.
  void killProgram();

 private:
  using Handle = std::shared_ptr<FileHandle>;

  ZELTaskExecutor() = default;

  void attendTask(std::shared_ptr<Task> task, const CompletionHandler& completionHandler);
  void taskDidTerminate(std::shared_ptr<Task> task, const CompletionHandler& completionHandler);
  bool receiveOutputFromSubTask(const Handle& handle);
  bool processIncomingDataUpToEnd(bool upToEnd, bool asError);
  void closeFileHandle(const Handle& handle, bool usedForWriting);

  Atomic<Handle> _subTaskInputHandle;
  Atomic<std::shared_ptr<Task>> _runningTask;
  Atomic<Handle> _subTaskOutputHandle;
  Atomic<Handle> _subTaskErrorHandle;
  std::atomic<bool> _hasInterrupted = false;
  Atomic<std::weak_ptr<ZELTaskExecutorDelegate>> _delegate;

  /// Whether the delegate raised something instead of taking a chunk.
  bool _hasLostOutput = false;
  /// When waiting for the end of the streams is over; set when the program has ended.
  FileHandle::Clock::time_point _endOfLinger;
};

}  // namespace corvane

#endif
