#include "platform/linux/transport/ByteInput.h"

#include <array>
#include <cerrno>

#include <sys/socket.h>

#include "foundation/POSIXError.h"

namespace corvane {

// A message with a portion of a program's output goes through at once: this decides how fast output
// reaches the client.
constexpr std::size_t portionSize = 128 << 10;

ByteInput::ByteInput(int socket)
    : _socket(socket), _portion(std::make_unique_for_overwrite<std::byte[]>(portionSize)) {
  std::array<int, 2> ends{-1, -1};
  ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data());
  _forward.reset(ends[0]);
  // The kernel doubles it, for what it adds to each portion.
  const int size = portionSize;
  ::setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
  _readingEnd.reset(ends[1]);
}

Result<void> ByteInput::pump() const {
  iovec portion{_portion.get(), portionSize};
  msghdr message{};
  message.msg_iov = &portion;
  message.msg_iovlen = 1;
  // Without room for descriptors: the kernel drops them, and says so.
  const ssize_t received = ::recvmsg(_socket, &message, MSG_DONTWAIT);
  if (received < 0 && (errno == EAGAIN || errno == EINTR)) return {};
  if (received < 0) return posixErrorFromHost(errno);
  if ((message.msg_flags & MSG_CTRUNC) != 0) return posixErrorFromHost(EPROTO);
  if (received == 0) return posixErrorFromHost(ECONNRESET);
  const ssize_t sent = ::send(_forward.get(), _portion.get(), static_cast<std::size_t>(received),
                              MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent != received) return posixErrorFromHost(ECONNRESET);
  return {};
}

}  // namespace corvane
