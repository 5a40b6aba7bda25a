#ifndef CORVANE_PLATFORM_LINUX_PEERLIMITS_H
#define CORVANE_PLATFORM_LINUX_PEERLIMITS_H

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include <sys/types.h>

namespace corvane {

/// The largest message a peer may send.
inline constexpr std::size_t maximumMessageSize = std::size_t{16} << 20;
/// Messages up to this size are not counted: a connection holds one at a time.
inline constexpr std::size_t uncountedMessageSize = std::size_t{64} << 10;
/// Descriptors that may travel with one message; the protocol needs one.
inline constexpr std::size_t maximumMessageDescriptors = 4;
/// What all connections of one user may hold together. Root is not limited, and is served whatever
/// others do.
inline constexpr int maximumConnectionsPerUser = 128;
inline constexpr std::size_t maximumMessageBytesPerUser = std::size_t{32} << 20;
/// What those of all users but root may hold together.
inline constexpr int maximumConnections = 2048;
inline constexpr std::size_t maximumMessageBytes = std::size_t{256} << 20;

/// Keeps what the connections of each user hold, and those of all users but root, so that one
/// user's connections cannot use up what others need, nor those of many users the helper. Any
/// thread.
class PeerLimits {
 public:
  /// One connection's part of its user's share; gives it back at the end.
  class Share {
   public:
    Share(std::shared_ptr<PeerLimits> limits, uid_t user)
        : _limits(std::move(limits)), _user(user) {}
    Share(const Share&) = delete;
    Share& operator=(const Share&) = delete;
    ~Share();

    uid_t user() const { return _user; }

    /// False if the user, or all together, have all the connections they may have; then nothing is
    /// taken.
    bool takeConnection();
    /// Takes `size` bytes for a message on its way, in the place of what was taken before; false,
    /// with nothing taken, if the user, or all together, would hold too many.
    bool takeMessage(std::size_t size);

   private:
    std::shared_ptr<PeerLimits> _limits;
    uid_t _user;
    int _connections = 0;
    std::size_t _bytes = 0;
  };

 private:
  struct Usage {
    int connections = 0;
    std::size_t bytes = 0;
  };

  bool mayConnect(uid_t user, const Usage& usage) const;
  bool mayHold(uid_t user, const Usage& usage, std::size_t size) const;

  std::mutex _mutex;
  std::map<uid_t, Usage> _usage;
  /// Of all users but root.
  Usage _total;
};

}  // namespace corvane

#endif
