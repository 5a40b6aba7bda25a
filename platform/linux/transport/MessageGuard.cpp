#include "platform/linux/transport/MessageGuard.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <string_view>

#include <sys/socket.h>

#include "platform/linux/transport/DescriptorReceiver.h"
#include "platform/linux/transport/PeerBus.h"
#include "platform/linux/transport/RequestHeader.h"

namespace corvane {

namespace {

constexpr std::size_t maximumHandshakeSize = 4096;
constexpr std::chrono::seconds messageTimeout{30};

// Receives without room for descriptors. The kernel drops those that are there, and sets
// `hasDescriptors`; a byte that is only looked at keeps its own.
ssize_t receiveBytes(int socket, void* bytes, std::size_t size, int flags, bool& hasDescriptors) {
  iovec portion{bytes, size};
  msghdr message{};
  message.msg_iov = &portion;
  message.msg_iovlen = 1;
  const ssize_t received = ::recvmsg(socket, &message, MSG_DONTWAIT | flags);
  hasDescriptors = received >= 0 && (message.msg_flags & MSG_CTRUNC) != 0;
  return received;
}

MessageGuard::Result resultOfFailedRead() {
  return errno == EAGAIN || errno == EINTR ? MessageGuard::Result::Waiting
                                           : MessageGuard::Result::Closed;
}

}  // namespace

MessageGuard::MessageGuard(int socket, FileDescriptor forward, PeerLimits::Share& share)
    : _socket(socket),
      _forward(std::move(forward)),
      _share(&share),
      _deadline(Clock::now() + handshakeTimeout) {}

MessageGuard::Result MessageGuard::pump() {
  return isInHandshake() ? pumpHandshake() : pumpMessage();
}

// The handshake is lines that end in "\r\n", the last of them "BEGIN". What is passed on at
// once ends with that line at the latest: what follows it is the first message.
MessageGuard::Result MessageGuard::pumpHandshake() {
  const ssize_t peeked =
      ::recv(_socket, _buffer.data(), maximumHandshakeSize, MSG_PEEK | MSG_DONTWAIT);
  if (peeked < 0) return resultOfFailedRead();
  if (peeked == 0) return Result::Closed;
  const auto available = static_cast<std::size_t>(peeked);

  std::size_t used = 0;
  bool isLineComplete = false;
  while (used < available && !isLineComplete) {
    const char character = static_cast<char>(_buffer[used++]);
    // The byte before the first line is a zero, and the only one.
    if (_handshakeSize++ == 0) {
      if (character != 0) return Result::Refused;
      continue;
    }
    if (_lineLength < _line.size()) _line[_lineLength] = character;
    ++_lineLength;
    isLineComplete = character == '\n' && _lineLength >= 2 && _previous == '\r';
    _previous = character;
  }
  if (_handshakeSize > maximumHandshakeSize) return Result::Refused;
  if (isLineComplete) {
    if (std::string_view(_line.data(), std::min(_lineLength, _line.size())) == "BEGIN\r\n") {
      _phase = Phase::Header;
      _deadline.reset();
    }
    _lineLength = 0;
  }
  // Descriptors that come with the handshake are dropped by the kernel: there is no room for them.
  const ssize_t taken = ::recv(_socket, _buffer.data(), used, MSG_DONTWAIT);
  if (taken != static_cast<ssize_t>(used)) return Result::Closed;
  _filled = used;
  return flush();
}

// Reads exactly the header and then the rest, so that a descriptor is never passed on with bytes
// of another message than its own.
MessageGuard::Result MessageGuard::pumpMessage() {
  if (_phase == Phase::Header) {
    const Result result = _filled == 0 ? beginMessage() : receive(fixedHeaderSize - _filled);
    if (result != Result::Passed) return result;
    if (!_deadline) _deadline = Clock::now() + messageTimeout;
    if (_filled < fixedHeaderSize) return Result::Passed;
    if (!acceptHeader()) return Result::Refused;
    _phase = Phase::Body;
  }
  if (_bodyLeft > 0) {
    const std::size_t before = _filled;
    const Result result = receive(std::min(_bodyLeft, _buffer.size() - _filled));
    if (result != Result::Passed) return result;
    _bodyLeft -= _filled - before;
    if (_bodyLeft > 0 && _filled < _buffer.size()) return Result::Passed;
  }
  if (_bodyLeft == 0) {
    _phase = Phase::Header;
    _deadline.reset();
  }
  return flush();
}

// Looks at the first bytes without taking them: reading the first one without room for its
// descriptors would drop these.
MessageGuard::Result MessageGuard::beginMessage() {
  bool hasDescriptors = false;
  const ssize_t peeked =
      receiveBytes(_socket, _buffer.data(), fixedHeaderSize, MSG_PEEK, hasDescriptors);
  if (peeked < 0) return resultOfFailedRead();
  return hasDescriptors ? takeDescriptors() : receive(fixedHeaderSize);
}

// Takes the first byte of a message, which may bring descriptors only if the whole header is there.
// It is, for every peer that sends header and descriptors in one call, as libraries do.
MessageGuard::Result MessageGuard::takeDescriptors() {
  std::array<std::byte, maximumRequestHeaderSize> bytes{};
  bool hasDescriptors = false;
  const ssize_t peeked =
      receiveBytes(_socket, bytes.data(), bytes.size(), MSG_PEEK, hasDescriptors);
  if (peeked < static_cast<ssize_t>(fixedHeaderSize)) return Result::Refused;
  const std::span there(bytes.data(), static_cast<std::size_t>(peeked));
  const auto sizes = messageSizes(there.first<fixedHeaderSize>());
  if (!sizes || sizes->fields > there.size()) return Result::Refused;
  const std::size_t size = fixedHeaderSize + sizes->rest() - sizes->body;
  if (size > there.size()) return Result::Refused;
  const auto count = announcedDescriptors(there.first(size));
  if (!count) return Result::Refused;
  auto descriptors = corvane::takeDescriptors(_socket, *count, _share->account());
  if (!descriptors) return Result::Refused;
  _descriptors = *std::move(descriptors);
  _buffer[0] = bytes[0];
  _filled = 1;
  return Result::Passed;
}

bool MessageGuard::acceptHeader() {
  const auto sizes = messageSizes(std::span(_buffer).first<fixedHeaderSize>());
  if (!sizes) return false;
  _bodyLeft = sizes->rest();
  return fixedHeaderSize + _bodyLeft <= maximumMessageSize &&
         _share->takeMessage(fixedHeaderSize + _bodyLeft);
}

// Appends up to `size` bytes to the buffer.
MessageGuard::Result MessageGuard::receive(std::size_t size) {
  bool hasDescriptors = false;
  const ssize_t received = receiveBytes(_socket, &_buffer[_filled], size, 0, hasDescriptors);
  if (received < 0) return resultOfFailedRead();
  if (hasDescriptors) return Result::Refused;
  if (received == 0) return Result::Closed;
  _filled += static_cast<std::size_t>(received);
  return Result::Passed;
}

// Passes the buffer on. The library reads all of it before more is read from the peer, so there
// is always room.
MessageGuard::Result MessageGuard::flush() {
  iovec portion{_buffer.data(), _filled};
  alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int) * maximumMessageDescriptors)>
      control{};
  msghdr message{};
  message.msg_iov = &portion;
  message.msg_iovlen = 1;
  if (!_descriptors.empty()) {
    message.msg_control = control.data();
    message.msg_controllen = CMSG_SPACE(sizeof(int) * _descriptors.size());
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int) * _descriptors.size());
    for (std::size_t i = 0; i < _descriptors.size(); ++i) {
      const int descriptor = _descriptors[i].get();
      std::memcpy(CMSG_DATA(header) + i * sizeof(int), &descriptor, sizeof(int));
    }
  }
  const ssize_t sent = ::sendmsg(_forward.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
  const bool isComplete = sent == static_cast<ssize_t>(_filled);
  _descriptors.clear();
  _filled = 0;
  return isComplete ? Result::Passed : Result::Refused;
}

}  // namespace corvane
