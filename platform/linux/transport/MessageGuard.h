#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_MESSAGEGUARD_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_MESSAGEGUARD_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "foundation/FileDescriptor.h"
#include "platform/linux/transport/PeerLimits.h"

namespace corvane {

/// Stands between a peer's socket and the bus library. It passes the bytes on unchanged, in
/// portions that end where the handshake or a message ends, and refuses a peer that exceeds a
/// limit. It is for what a peer without any authorization could do to everybody:
///
///     attacker  announces a message of 100 MiB, or begins one and stops
///     library   would make room for it, and wait; here it is refused, or given up after a while
///
///     attacker  sends descriptors with a message that the library finds fault with: four with one
///               that announces two, or with the serial 0; then the next
///     library   drops such a message and forgets its descriptors, which stay open; here it
///               gets none that does not come with a header in which nothing is wrong
///
///     attacker  sends a descriptor that cannot be closed; see DescriptorReceiver.h
///
/// So everything is received without room for descriptors, which makes the kernel drop them, and
/// say so: who sends them with anything but the first byte of a request that may bring them is
/// refused.
class MessageGuard {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Result {
    Passed,   ///< bytes were passed on; more may be waiting
    Waiting,  ///< nothing to read at the moment
    Closed,   ///< the peer has closed its side
    Refused,  ///< the peer broke a limit or the protocol; nothing more may be passed on
  };

  /// Reads from `socket`, which stays the caller's, and passes on to `forward`.
  MessageGuard(int socket, FileDescriptor forward, PeerLimits::Share& share);

  /// Reads once, without waiting.
  Result pump();

  /// True until the peer's last line of the handshake has been passed on.
  bool isInHandshake() const { return _phase == Phase::Handshake; }
  /// When the handshake or message that has begun must be complete; nothing between messages.
  std::optional<Clock::time_point> deadline() const { return _deadline; }

 private:
  enum class Phase { Handshake, Header, Body };

  Result pumpHandshake();
  Result pumpMessage();
  Result beginMessage();
  Result takeDescriptors();
  Result receive(std::size_t size);
  Result flush();
  bool acceptHeader();

  int _socket;
  FileDescriptor _forward;
  PeerLimits::Share* _share;
  Phase _phase = Phase::Handshake;
  std::optional<Clock::time_point> _deadline;

  std::size_t _handshakeSize = 0;
  std::size_t _lineLength = 0;
  char _previous = 0;
  std::array<char, 16> _line{};

  std::size_t _bodyLeft = 0;
  /// Of the message that is being passed on, until its first portion has been.
  std::vector<FileDescriptor> _descriptors;
  std::size_t _filled = 0;
  std::array<std::byte, 16384> _buffer;
};

}  // namespace corvane

#endif
