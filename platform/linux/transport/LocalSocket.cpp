#include "platform/linux/transport/LocalSocket.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "foundation/Exception.h"
#include "foundation/POSIXError.h"

namespace corvane {

using Clock = std::chrono::steady_clock;

std::pair<FileDescriptor, FileDescriptor> connectedSockets() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
    throw Exception("NSFileHandleOperationException",
                    "No socket pair: " + posixDescription(posixCodeFromHost(errno)));
  }
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

Result<FileDescriptor> connectedTo(const std::string& path, Clock::time_point deadline) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty()) return posixError(POSIXErrorCode::NoEntry);
  if (path.size() >= sizeof(address.sun_path)) return posixError(POSIXErrorCode::NameTooLong);
  path.copy(address.sun_path, path.size());
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket) return posixErrorFromHost(errno);
  do {
    // To the kernel a limit of zero means none.
    const auto left =
        std::max(std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()),
                 std::chrono::milliseconds(1));
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    const timeval limit = {seconds.count(), std::chrono::microseconds(left - seconds).count()};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      ::fcntl(socket.get(), F_SETFL, O_NONBLOCK);
      return socket;
    }
  } while (errno == EINTR);
  return posixErrorFromHost(errno == EAGAIN ? ETIMEDOUT : errno);
}

bool waitFor(int descriptor, short events, Clock::time_point deadline) {
  pollfd poller{descriptor, events, 0};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    const int ready =
        ::poll(&poller, 1, static_cast<int>(std::clamp<long long>(left.count(), 0, 3'600'000)));
    if (ready > 0) return true;
    if (ready == 0 && Clock::now() >= deadline) return false;
    if (ready < 0 && errno != EINTR) return false;
  }
}

}  // namespace corvane
