#include "platform/linux/authorization/ProcessIdentity.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
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
               {{std::string(NSLocalizedDescriptionKey), description}});
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

}  // namespace

ProcessIdentity ProcessIdentity::ofThisProcess() {
  return {::getpid(), ::geteuid(), processStartTime(::getpid()).value_or(0)};
}

bool ProcessIdentity::isRunning() const {
  return processStartTime(pid) == startTime;
}

std::variant<WatchedProcess, Error> WatchedProcess::ofPeer(int socket) {
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
  std::array<char, 32> path = {"/proc/"};
  char* end = std::to_chars(path.data() + 6, path.data() + path.size(), pid).ptr;
  std::string_view("/stat").copy(end, 5);
  const FileDescriptor file(::open(path.data(), O_RDONLY | O_CLOEXEC));
  if (!file) return std::nullopt;
  std::array<char, 1024> buffer{};
  const ssize_t length = ::read(file.get(), buffer.data(), buffer.size());
  if (length <= 0) return std::nullopt;

  // "pid (name) state ...": the name may hold anything, parentheses and spaces too; what follows
  // its last parenthesis is numbers but for the state. The start time is the 20th of these fields.
  std::string_view text(buffer.data(), static_cast<std::size_t>(length));
  const std::size_t name = text.rfind(") ");
  if (name == std::string_view::npos) return std::nullopt;
  text.remove_prefix(name + 2);
  if (text.starts_with('Z') || text.starts_with('X')) return std::nullopt;
  for (int field = 1; field < 20; ++field) {
    const std::size_t space = text.find(' ');
    if (space == std::string_view::npos) return std::nullopt;
    text.remove_prefix(space + 1);
  }
  std::uint64_t startTime = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), startTime);
  if (result.ec != std::errc()) return std::nullopt;
  return startTime;
}

}  // namespace corvane
