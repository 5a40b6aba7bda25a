#include "platform/AuthorizationIssuer.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "foundation/Value.h"

namespace corvane {

namespace {

using Clock = std::chrono::steady_clock;

Error issuerError(const std::string& socketPath, int hostErrno) {
  return Error(NSPOSIXErrorDomain, posixCodeFromHost(hostErrno),
               {{std::string(NSFilePathErrorKey), socketPath}});
}

std::chrono::milliseconds timeLeft(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return std::max(left, std::chrono::milliseconds(0));
}

/// 0, or the errno value of the failure. A queue that stays full is a time-out too.
int connectWithin(std::chrono::milliseconds patience, const FileDescriptor& socket,
                  const sockaddr_un& address) {
  // To the kernel a limit of zero means none.
  patience = std::max(patience, std::chrono::milliseconds(1));
  const auto seconds = std::chrono::floor<std::chrono::seconds>(patience);
  const timeval limit = {seconds.count(), std::chrono::microseconds(patience - seconds).count()};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return 0;
  }
  return errno == EAGAIN ? ETIMEDOUT : errno;
}

}  // namespace

std::variant<AuthorizationExternalForm, Error> requestAuthorizationExternalForm(
    const std::string& socketPath, std::chrono::milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (socketPath.empty() || socketPath.size() >= sizeof address.sun_path) {
    return issuerError(socketPath, socketPath.empty() ? ENOENT : ENAMETOOLONG);
  }
  socketPath.copy(address.sun_path, socketPath.size());

  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket) return issuerError(socketPath, errno);
  if (const int failure = connectWithin(patience, socket, address); failure != 0) {
    return issuerError(socketPath, failure);
  }

  AuthorizationExternalForm form = {};
  std::size_t received = 0;
  while (received < sizeof form.bytes) {
    pollfd waiting = {socket.get(), POLLIN, 0};
    const int ready = ::poll(&waiting, 1, static_cast<int>(timeLeft(deadline).count()));
    if (ready == 0) return issuerError(socketPath, ETIMEDOUT);
    const ssize_t count = ready < 0 ? -1
                                    : ::recv(socket.get(), form.bytes + received,
                                             sizeof form.bytes - received, MSG_DONTWAIT);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count < 0) return issuerError(socketPath, errno);
    if (count == 0) return issuerError(socketPath, ECONNRESET);
    received += static_cast<std::size_t>(count);
  }
  return form;
}

}  // namespace corvane
