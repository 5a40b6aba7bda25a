#include "platform/linux/authorization/IssuerSocket.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <sys/socket.h>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "platform/linux/transport/LocalSocket.h"

namespace corvane {

namespace {

using Clock = std::chrono::steady_clock;

Error issuerError(const std::string& socketPath, const Error& reason) {
  return Error(reason.domain(), reason.code(), {{NSFilePathErrorKey, socketPath}});
}

std::chrono::milliseconds timeLeft(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return std::max(left, std::chrono::milliseconds(0));
}

}  // namespace

Result<AuthorizationExternalForm> requestAuthorizationExternalForm(
    const std::string& socketPath, std::chrono::milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  const Result<FileDescriptor> socket = connectedTo(socketPath, deadline);
  if (!socket) return issuerError(socketPath, socket.error());
  const auto failure = [&socketPath](int hostErrno) {
    return issuerError(socketPath, posixErrorFromHost(hostErrno));
  };

  AuthorizationExternalForm form = {};
  std::size_t received = 0;
  while (received < sizeof form.bytes) {
    pollfd waiting = {socket->get(), POLLIN, 0};
    const int ready = ::poll(&waiting, 1, static_cast<int>(timeLeft(deadline).count()));
    if (ready == 0) return failure(ETIMEDOUT);
    const ssize_t count = ready < 0 ? -1
                                    : ::recv(socket->get(), form.bytes + received,
                                             sizeof form.bytes - received, MSG_DONTWAIT);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count < 0) return failure(errno);
    if (count == 0) return failure(ECONNRESET);
    received += static_cast<std::size_t>(count);
  }
  return form;
}

}  // namespace corvane
