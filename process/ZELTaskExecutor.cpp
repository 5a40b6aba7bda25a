#include "process/ZELTaskExecutor.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "foundation/Exception.h"
#include "foundation/Path.h"
#include "platform/Pipe.h"
#include "platform/StandardLog.h"
#include "process/NSProcessInfoZELAdditions.h"

namespace corvane {

namespace {

// 10.11.0: from this version of the system on the descriptor of a handle is closed, not the handle.
constexpr std::int64_t firstCodeClosingDescriptors = 0x10B0;

// Between two reads of a stream that cannot be read.
constexpr std::chrono::milliseconds pauseAfterFailure{10};

// The status of a run whose delegate did not take all output, whatever the program's own status is.
constexpr std::int32_t statusOfLostOutput = -1;

constexpr mode_t writableByGroupOrOthers = S_IWGRP | S_IWOTH;

bool isSafe(const struct stat& attributes) {
  return attributes.st_uid == 0 && attributes.st_gid == 0 &&
         (attributes.st_mode & writableByGroupOrOthers) == 0;
}

std::optional<std::string> pathWithoutSymbolicLinks(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr),
                                                             &std::free);
  if (!resolved) return std::nullopt;
  return resolved.get();
}

// Runs an operation on a handle; false if it raised something.
template <typename Operation>
bool guarded(const Operation& operation) {
  try {
    operation();
    return true;
  } catch (const Exception& exception) {
    if (exception.name() != NSFileHandleOperationException) {
      NSLog("Handled unexpected exception '%s' (%s)!\n", exception.name().c_str(),
            exception.reason().c_str());
    }
  } catch (const std::exception& exception) {
    NSLog("Handled unexpected exception '%s' (%s)!\n", "std::exception", exception.what());
  }
  return false;
}

// Writes all of `data`; what cannot be written is lost.
void writeToDescriptor(int descriptor, const Data& data) {
  std::size_t written = 0;
  while (written < data.size()) {
    const ssize_t count = write(descriptor, data.data() + written, data.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    written += static_cast<std::size_t>(count);
  }
}

}  // namespace

std::shared_ptr<ZELTaskExecutor> ZELTaskExecutor::init() {
  return std::shared_ptr<ZELTaskExecutor>(new ZELTaskExecutor);
}

bool ZELTaskExecutor::hasExecutableSafePermissionsAtPath(const std::string& path) {
  if (path.empty() || path.find('\0') != std::string::npos) return false;
  const auto resolved = pathWithoutSymbolicLinks(path);
  if (!resolved) return false;
  struct stat file {};
  if (stat(resolved->c_str(), &file) != 0 || S_ISDIR(file.st_mode)) return false;
  if (!isSafe(file)) return false;
  struct stat folder {};
  if (stat(deletingLastPathComponent(*resolved).c_str(), &folder) != 0) return false;
  return S_ISDIR(folder.st_mode) && isSafe(folder);
}

void ZELTaskExecutor::setDelegate(std::weak_ptr<ZELTaskExecutorDelegate> delegate) {
  _delegate.store(std::move(delegate));
}

std::int32_t ZELTaskExecutor::executeProgramAtPath(const std::optional<std::string>& path,
                                                   const std::optional<Arguments>& arguments) {
  const auto end = std::make_shared<std::promise<std::int32_t>>();
  std::future<std::int32_t> status = end->get_future();
  const bool started = executeProgramAtPath(
      path, arguments, [end](bool /*interrupted*/, std::int32_t terminationStatus) {
        end->set_value(terminationStatus);
      });
  return started ? status.get() : -1;
}

bool ZELTaskExecutor::executeProgramAtPath(const std::optional<std::string>& path,
                                           const std::optional<Arguments>& arguments,
                                           CompletionHandler completionHandler) {
  const auto delegate = this->delegate();
  const std::string name = path ? lastPathComponent(*path) : "(null)";
  auto task = Task::init();
  if (!path || !arguments || !_runningTask.storeIfEmpty(task)) {
    NSLog(
        "FAILURE: Execution of the program '%s' was rejected due to invalid arguments or "
        "status.\n",
        name.c_str());
    return false;
  }
  const auto input = Pipe::pipe();
  const auto output = Pipe::pipe();
  const auto error = Pipe::pipe();
  if (!input || !output || !error) {
    NSLog(
        "FAILURE: The program '%s' cannot be executed because the system is running out of file "
        "handles.\n",
        name.c_str());
    return false;
  }
  task->setStandardInput(input->fileHandleForReading);
  task->setStandardOutput(output->fileHandleForWriting);
  task->setStandardError(error->fileHandleForWriting);
  _subTaskOutputHandle.store(output->fileHandleForReading);
  _subTaskErrorHandle.store(error->fileHandleForReading);
  _subTaskInputHandle.store(input->fileHandleForWriting);

  // The thread is there before the program is: nothing that has been launched goes unattended.
  std::promise<bool> launched;
  try {
    std::thread([self = shared_from_this(), task, launch = launched.get_future(),
                 handler = std::move(completionHandler)]() mutable {
      if (launch.get()) self->attendTask(std::move(task), handler);
    }).detach();
  } catch (const std::system_error& exception) {
    throw Exception(NSInvalidArgumentException,
                    "No thread to attend the program '" + name + "': " + exception.what());
  }
  try {
    if (delegate) delegate->taskWillExecute(*this);
    task->setLaunchPath(*path);
    if (!arguments->empty()) task->setArguments(*arguments);
    task->launch();
  } catch (...) {
    launched.set_value(false);
    throw;
  }
  launched.set_value(true);
  if (delegate) delegate->taskDidLaunch(*this);
  return true;
}

bool ZELTaskExecutor::canInterruptProgram() const {
  return _runningTask.load() != nullptr;
}

void ZELTaskExecutor::interruptProgramUsingTerminationRequest(bool terminationRequest) {
  const auto task = _runningTask.load();
  if (!task) return;
  _hasInterrupted = true;
  if (terminationRequest) {
    task->terminate();
  } else {
    task->interrupt();
  }
}

void ZELTaskExecutor::killProgram() {
  const auto task = _runningTask.load();
  if (!task) return;
  _hasInterrupted = true;
  task->kill();
}

void ZELTaskExecutor::attendTask(std::shared_ptr<Task> task,
                                 const CompletionHandler& completionHandler) {
  Task::Handles awaited = {_subTaskOutputHandle.load(), _subTaskErrorHandle.load()};
  for (;;) {
    Task::Handles ready;
    if (!guarded([&] { ready = task->waitForDataOrTermination(awaited); })) {
      // Memory that cannot be had now may be there in a while.
      std::this_thread::sleep_for(pauseAfterFailure);
      continue;
    }
    if (ready.empty()) break;
    for (const Handle& handle : ready) {
      // A stream at its end would be ready again and again.
      if (!receiveOutputFromSubTask(handle)) std::erase(awaited, handle);
    }
  }
  taskDidTerminate(std::move(task), completionHandler);
}

void ZELTaskExecutor::taskDidTerminate(std::shared_ptr<Task> task,
                                       const CompletionHandler& completionHandler) {
  const std::int32_t status = task->terminationStatus();
  _endOfLinger = FileHandle::Clock::now() + lingerTime;
  processIncomingDataUpToEnd(true, false);
  processIncomingDataUpToEnd(true, true);
  closeFileHandle(_subTaskOutputHandle.load(), false);
  closeFileHandle(_subTaskErrorHandle.load(), false);
  closeFileHandle(_subTaskInputHandle.load(), true);
  _subTaskOutputHandle.store(nullptr);
  _subTaskErrorHandle.store(nullptr);
  _subTaskInputHandle.store(nullptr);
  _runningTask.store(nullptr);
  // Whoever waits for the completion finds nothing of the run open any more.
  task.reset();
  completionHandler(_hasInterrupted, _hasLostOutput ? statusOfLostOutput : status);
}

// False once there is nothing more to come from the handle.
bool ZELTaskExecutor::receiveOutputFromSubTask(const Handle& handle) {
  if (handle == _subTaskOutputHandle.load()) return processIncomingDataUpToEnd(false, false);
  if (handle == _subTaskErrorHandle.load()) return processIncomingDataUpToEnd(false, true);
  return false;
}

// Delivers one chunk or, with `upToEnd`, all that is left, in chunks of which only the last may be
// shorter than one read gives. False if nothing more is to be read.
bool ZELTaskExecutor::processIncomingDataUpToEnd(bool upToEnd, bool asError) {
  const auto delegate = this->delegate();
  const Handle handle = asError ? _subTaskErrorHandle.load() : _subTaskOutputHandle.load();
  if (!handle) return false;

  // What the program itself wrote is in the pipe by now and is read however long that takes.
  std::size_t owed = 0;
  if (upToEnd && !guarded([&] { owed = handle->availableLength(); })) return false;
  for (;;) {
    Data chunk;
    if (!guarded([&] {
          chunk = upToEnd ? handle->readDataUntil(_endOfLinger) : handle->availableData();
        })) {
      if (upToEnd) return false;
      // The chunk is lost, but more may come. The pause is for a stream that fails each time: it is
      // always ready, and this would be called again at once.
      std::this_thread::sleep_for(pauseAfterFailure);
      return true;
    }
    const std::size_t length = chunk.size();
    if (!delegate) {
      writeToDescriptor(asError ? STDERR_FILENO : STDOUT_FILENO, chunk);
    } else if (!guarded([&] { delegate->receiveTaskOutput(std::move(chunk), Number(asError)); })) {
      _hasLostOutput = true;
    }
    if (!upToEnd) return length > 0;
    owed -= std::min(owed, length);
    const bool isOver = owed == 0 && FileHandle::Clock::now() >= _endOfLinger;
    if (length < FileHandle::maximumReadLength || isOver) return false;
  }
}

void ZELTaskExecutor::closeFileHandle(const Handle& handle, bool /*usedForWriting*/) {
  if (!handle) return;
  if (operatingSystemVersionCode() < firstCodeClosingDescriptors) {
    handle->closeFile();
  } else {
    guarded([&] { handle->releaseFileDescriptor().reset(); });
  }
}

}  // namespace corvane
