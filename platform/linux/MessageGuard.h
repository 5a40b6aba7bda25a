#ifndef CORVANE_PLATFORM_LINUX_MESSAGEGUARD_H
#define CORVANE_PLATFORM_LINUX_MESSAGEGUARD_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "foundation/FileDescriptor.h"
#include "platform/linux/PeerLimits.h"

namespace corvane {

/// Stands between a peer's socket and the bus library, which would buffer whatever size a message
/// claims to have. It passes the bytes on unchanged, in portions that end where the handshake or a
/// message ends, and refuses a peer that exceeds a limit.
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
  std::vector<FileDescriptor> _descriptors;
  int _descriptorsOfMessage = 0;
  std::size_t _filled = 0;
  std::array<std::byte, 16384> _buffer;
};

}  // namespace corvane

#endif
