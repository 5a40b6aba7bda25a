#include "platform/linux/transport/LocalSocket.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <sys/socket.h>

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
