#include "platform/linux/processes/ProcessIdentity.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "foundation/Value.h"

// The kernel has it since 6.5, the C library's headers later.
#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif

namespace corvane {

namespace {

Error peerError(int hostErrno, const char* description) {
  return Error(NSPOSIXErrorDomain, posixCodeFromHost(hostErrno),
               {{NSLocalizedDescriptionKey, description}});
}

/// A descriptor that holds on to the peer's process, or to nothing if the process is gone. A kernel
/// that cannot tell which process connected is asked for the one that has its number now: should it
/// be another, the form names a process that did not ask, but still the user that did.
FileDescriptor processOfPeer(int socket, pid_t pid) {
  int descriptor = -1;
  socklen_t length = sizeof descriptor;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERPIDFD, &descriptor, &length) == 0) {
    return FileDescriptor(descriptor);
  }
  return FileDescriptor(errno == ENOPROTOOPT ? static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))
                                             : -1);
}

/// What /proc/PID/stat tells of a process that runs.
class ProcessFields {
 public:
  static std::optional<ProcessFields> of(pid_t pid) {
    std::array<char, 32> path = {"/proc/"};
    char* end = std::to_chars(path.data() + 6, path.data() + path.size(), pid).ptr;
    std::string_view("/stat").copy(end, 5);
    const FileDescriptor file(::open(path.data(), O_RDONLY | O_CLOEXEC));
    if (!file) return std::nullopt;
    ProcessFields fields;
    const ssize_t length = ::read(file.get(), fields._buffer.data(), fields._buffer.size());
    if (length <= 0) return std::nullopt;

    // "pid (name) state ...": the name may hold anything, parentheses and spaces too; what follows
    // its last parenthesis is numbers but for the state.
    const std::string_view text(fields._buffer.data(), static_cast<std::size_t>(length));
    const std::size_t name = text.rfind(") ");
    if (name == std::string_view::npos) return std::nullopt;
    fields._state = name + 2;
    fields._length = text.size();
    const bool hasEnded = fields.text().starts_with('Z') || fields.text().starts_with('X');
    return hasEnded ? std::nullopt : std::optional(fields);
  }

  /// The number that is the field `field`, counted from 1; those up to the state, the third, are
  /// none.
  std::optional<std::uint64_t> number(int field) const {
    std::string_view rest = text();
    for (int index = 3; index < field; ++index) {
      const std::size_t space = rest.find(' ');
      if (space == std::string_view::npos) return std::nullopt;
      rest.remove_prefix(space + 1);
    }
    std::uint64_t value = 0;
    const auto result = std::from_chars(rest.data(), rest.data() + rest.size(), value);
    return result.ec == std::errc() ? std::optional(value) : std::nullopt;
  }

 private:
  std::string_view text() const { return {_buffer.data() + _state, _length - _state}; }

  std::array<char, 1024> _buffer{};
  std::size_t _state = 0;
  std::size_t _length = 0;
};

}  // namespace

ProcessIdentity ProcessIdentity::ofThisProcess() {
  return {::getpid(), ::geteuid(), processStartTime(::getpid()).value_or(0)};
}

bool ProcessIdentity::isRunning() const {
  return processStartTime(pid) == startTime;
}

Result<WatchedProcess> WatchedProcess::ofPeer(int socket) {
  ucred credentials = {};
  socklen_t length = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
    return peerError(errno, "There is no connected socket.");
  }
  if (credentials.pid <= 0) {
    return peerError(ENOTSUP, "The process at the other end of the socket cannot be seen.");
  }
  // While the descriptor's process runs nobody else has its number, so what was read is its own.
  FileDescriptor descriptor = processOfPeer(socket, credentials.pid);
  const std::optional<std::uint64_t> startTime = processStartTime(credentials.pid);
  WatchedProcess process(std::move(descriptor),
                         {credentials.pid, credentials.uid, startTime.value_or(0)});
  if (!startTime || !process.isRunning()) {
    return peerError(ESRCH, "The process at the other end of the socket has ended.");
  }
  return process;
}

bool WatchedProcess::isRunning() const {
  // A process descriptor becomes readable when its process ends.
  pollfd waiting = {_descriptor.get(), POLLIN, 0};
  return _descriptor && ::poll(&waiting, 1, 0) == 0;
}

std::optional<std::uint64_t> processStartTime(pid_t pid) {
  const std::optional<ProcessFields> fields = ProcessFields::of(pid);
  return fields ? fields->number(22) : std::nullopt;
}

std::optional<RunningProgram> RunningProgram::of(pid_t pid) {
  struct stat status = {};
  if (::stat(("/proc/" + std::to_string(pid)).c_str(), &status) != 0) return std::nullopt;
  const std::optional<ProcessFields> fields = ProcessFields::of(pid);
  if (!fields) return std::nullopt;
  return RunningProgram{status.st_uid, fields->number(28).value_or(0)};
}

}  // namespace corvane
