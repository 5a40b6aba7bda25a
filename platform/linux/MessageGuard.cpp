#include "platform/linux/MessageGuard.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <sys/socket.h>

#include "platform/linux/Bus.h"

namespace corvane {

namespace {

constexpr std::size_t headerSize = 16;
constexpr std::size_t maximumHandshakeSize = 4096;
constexpr std::chrono::seconds messageTimeout{30};

// A D-Bus message starts with its byte order ('l' or 'B'), type, flags and version, followed by
// the length of its body, its serial and the length of its header fields, 4 bytes each.
std::uint32_t numberAt(const std::byte* bytes, bool isLittleEndian) {
  std::uint32_t number = 0;
  for (int i = 0; i < 4; ++i) {
    const int shift = isLittleEndian ? 8 * i : 8 * (3 - i);
    number |= std::to_integer<std::uint32_t>(bytes[i]) << shift;
  }
  return number;
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

// The handshake is lines that end in "\r\n", the last of them "BEGIN". Not a byte beyond it may
// reach the library in the same portion.
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
    const Result result = receive(headerSize - _filled);
    if (result != Result::Passed) return result;
    if (!_deadline) _deadline = Clock::now() + messageTimeout;
    if (_filled < headerSize) return Result::Passed;
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
    _descriptorsOfMessage = 0;
    _deadline.reset();
  }
  return flush();
}

bool MessageGuard::acceptHeader() {
  const auto order = std::to_integer<char>(_buffer[0]);
  if (order != 'l' && order != 'B') return false;
  const std::size_t bodySize = numberAt(&_buffer[4], order == 'l');
  const std::size_t fieldsSize = numberAt(&_buffer[12], order == 'l');
  if (bodySize > maximumMessageSize || fieldsSize > maximumMessageSize) return false;
  _bodyLeft = (fieldsSize + 7) / 8 * 8 + bodySize;
  return headerSize + _bodyLeft <= maximumMessageSize &&
         _share->takeMessage(headerSize + _bodyLeft);
}

// Appends up to `size` bytes to the buffer, and the descriptors that come with them to the list.
MessageGuard::Result MessageGuard::receive(std::size_t size) {
  iovec portion{&_buffer[_filled], size};
  // The most that the kernel attaches to one portion (SCM_MAX_FD).
  constexpr std::size_t kernelMaximum = 253;
  alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int) * kernelMaximum)> control;
  msghdr message{};
  message.msg_iov = &portion;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  const ssize_t received = ::recvmsg(_socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (received < 0) return resultOfFailedRead();
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
       header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int descriptor = -1;
      std::memcpy(&descriptor, CMSG_DATA(header) + i * sizeof(int), sizeof(int));
      _descriptors.emplace_back(descriptor);
      ++_descriptorsOfMessage;
    }
  }
  if (received == 0) return Result::Closed;
  if (_descriptorsOfMessage > maximumMessageDescriptors) return Result::Refused;
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
