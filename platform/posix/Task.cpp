#include "platform/Task.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>
#include <optional>
#include <utility>

#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/Exception.h"
#include "foundation/POSIXError.h"
#include "platform/ChildEnvironment.h"
#include "platform/posix/TaskSystem.h"

namespace corvane {

namespace {

// Between two looks at a child for whose end there is no descriptor.
constexpr int pollIntervalWithoutDescriptor = 20;

constexpr std::int32_t unknownStatus = -1;

// What a program is started with. Everything here succeeds or is out of memory.
class SpawnSettings {
 public:
  SpawnSettings(int input, int output, int error) {
    posix_spawn_file_actions_init(&_actions);
    posix_spawn_file_actions_adddup2(&_actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&_actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&_actions, error, STDERR_FILENO);
    short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
    giveStandardStreamsOnly(_actions, flags);
    // sigfillset may leave out signals that the C library keeps for itself, and these would then be
    // ignored by the program.
    sigset_t all;
    std::memset(&all, 0xff, sizeof all);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_init(&_attributes);
    posix_spawnattr_setsigdefault(&_attributes, &all);
    posix_spawnattr_setsigmask(&_attributes, &none);
    posix_spawnattr_setflags(&_attributes, flags);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&_actions);
    posix_spawnattr_destroy(&_attributes);
  }

  const posix_spawn_file_actions_t* actions() const { return &_actions; }
  const posix_spawnattr_t* attributes() const { return &_attributes; }

 private:
  posix_spawn_file_actions_t _actions{};
  posix_spawnattr_t _attributes{};
};

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  result.reserve(strings.size() + 1);
  for (std::string& string : strings) result.push_back(string.data());
  result.push_back(nullptr);
  return result;
}

class ChildProcess : public Task {
 public:
  void setStandardInput(std::shared_ptr<FileHandle> reading) override {
    _input = std::move(reading);
  }
  void setStandardOutput(std::shared_ptr<FileHandle> writing) override {
    _output = std::move(writing);
  }
  void setStandardError(std::shared_ptr<FileHandle> writing) override {
    _error = std::move(writing);
  }
  void setLaunchPath(std::string path) override { _launchPath = std::move(path); }
  void setArguments(std::vector<std::string> arguments) override {
    _arguments = std::move(arguments);
  }

  void launch() override;
  Handles waitForDataOrTermination(const Handles& handles) override;
  std::int32_t terminationStatus() override;
  void terminate() override { send(SIGTERM); }
  void interrupt() override { send(SIGINT); }
  void kill() override { send(SIGKILL); }

 private:
  [[noreturn]] void refuse(const std::string& reason) const {
    throw Exception(NSInvalidArgumentException, "The program '" + std::string(_launchPath.c_str()) +
                                                    "' could not be launched: " + reason);
  }
  bool hasEnded() const;
  void send(int signal);

  std::shared_ptr<FileHandle> _input;
  std::shared_ptr<FileHandle> _output;
  std::shared_ptr<FileHandle> _error;
  std::string _launchPath;
  std::vector<std::string> _arguments;

  // Guards what follows against a signal to a number that is no longer this child's.
  std::mutex _mutex;
  pid_t _pid = 0;
  std::optional<std::int32_t> _status;

  FileDescriptor _end;
};

void ChildProcess::launch() {
  const auto holdsZero = [](const std::string& text) {
    return text.find('\0') != std::string::npos;
  };
  if (holdsZero(_launchPath)) refuse("its path holds a zero byte");
  const auto broken = std::find_if(_arguments.begin(), _arguments.end(), holdsZero);
  if (broken != _arguments.end()) {
    refuse("its argument " + std::to_string(broken - _arguments.begin() + 1) +
           " holds a zero byte");
  }

  _arguments.insert(_arguments.begin(), _launchPath);
  std::vector<std::string> variables = ChildEnvironment::entries();
  const SpawnSettings settings(_input->fileDescriptor(), _output->fileDescriptor(),
                               _error->fileDescriptor());
  {
    // A signal that is sent meanwhile waits until there is a child to take it.
    const std::lock_guard lock(_mutex);
    pid_t pid = 0;
    const int result =
        posix_spawn(&pid, _launchPath.c_str(), settings.actions(), settings.attributes(),
                    pointers(_arguments).data(), pointers(variables).data());
    if (result != 0) refuse(posixDescription(posixCodeFromHost(result)));
    _pid = pid;
  }

  // The child has them now; while they are open here as well, its streams would never end.
  _input.reset();
  _output.reset();
  _error.reset();
  _end = endOfChild(_pid);
}

bool ChildProcess::hasEnded() const {
  siginfo_t info{};
  const int result = waitid(P_PID, static_cast<id_t>(_pid), &info, WEXITED | WNOHANG | WNOWAIT);
  return result != 0 || info.si_pid != 0;
}

Task::Handles ChildProcess::waitForDataOrTermination(const Handles& handles) {
  std::vector<pollfd> entries;
  entries.reserve(handles.size() + 1);
  for (const auto& handle : handles) entries.push_back({handle->fileDescriptor(), POLLIN, 0});
  // An entry with a negative descriptor is never ready.
  entries.push_back({_end.get(), POLLIN, 0});
  const int timeout = _end ? -1 : pollIntervalWithoutDescriptor;

  for (;;) {
    const int ready = poll(entries.data(), static_cast<nfds_t>(entries.size()), timeout);
    // The end comes first: a descendant that keeps writing must not hide it.
    if (entries.back().revents != 0 || (!_end && hasEnded())) return {};
    if (ready <= 0) continue;
    Handles result;
    for (std::size_t i = 0; i < handles.size(); ++i) {
      if (entries[i].revents != 0) result.push_back(handles[i]);
    }
    return result;
  }
}

std::int32_t ChildProcess::terminationStatus() {
  if (_status) return *_status;
  siginfo_t info{};
  const auto id = static_cast<id_t>(_pid);
  while (waitid(P_PID, id, &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) continue;
  // It has ended and keeps its number until it is collected, so the lock is held for a moment only.
  const std::lock_guard lock(_mutex);
  // A process that ignores the ends of its children never learns their statuses.
  _status = waitid(P_PID, id, &info, WEXITED) == 0 ? info.si_status : unknownStatus;
  return *_status;
}

void ChildProcess::send(int signal) {
  const std::lock_guard lock(_mutex);
  if (_pid != 0 && !_status) ::kill(_pid, signal);
}

}  // namespace

std::shared_ptr<Task> Task::init() {
  return std::make_shared<ChildProcess>();
}

}  // namespace corvane
