#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_PEERLIMITS_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_PEERLIMITS_H

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <sys/types.h>

#include "platform/linux/transport/Accounts.h"
#include "platform/linux/transport/Turns.h"

namespace corvane {

/// The largest message a peer may send.
inline constexpr std::size_t maximumMessageSize = std::size_t{16} << 20;
/// Descriptors that may travel with one message; the protocol needs one.
inline constexpr std::size_t maximumMessageDescriptors = 4;
/// What all connections of one account may hold together: messages on their way, and what they were
/// turned into. Root is not limited, and is served whatever others do.
inline constexpr int maximumConnectionsPerUser = 128;
inline constexpr std::size_t maximumMessageBytesPerUser = std::size_t{64} << 20;
/// What those of all users but root may hold together. A connection costs up to eight descriptors,
/// so they take a quarter of what the service has at the most.
inline constexpr int maximumConnections = 1024;
inline constexpr std::size_t maximumMessageBytes = std::size_t{256} << 20;
/// How much of that is kept for accounts that hold little: no others may take the last of it.
inline constexpr int reservedConnections = 256;
inline constexpr int fewConnections = 8;
inline constexpr std::size_t reservedMessageBytes = std::size_t{32} << 20;
inline constexpr std::size_t fewMessageBytes = std::size_t{256} << 10;

/// Keeps what the connections of each account hold, and those of all users but root, so that one
/// person's connections cannot use up what others need, nor those of many the helper. Any thread.
class PeerLimits {
 public:
  PeerLimits() = default;
  /// With the files that say which accounts there are, as `Accounts` has them.
  PeerLimits(std::string subordinateUsersPath, std::string usersPath)
      : _accounts(std::move(subordinateUsersPath), std::move(usersPath)) {}

  /// Whether anybody has a connection, root included.
  bool hasConnections();

  /// One connection's part of its account's share; gives it back at the end.
  class Share {
   public:
    Share(std::shared_ptr<PeerLimits> limits, uid_t user)
        : _limits(std::move(limits)), _account(_limits->_accounts.accountOf(user)) {}
    Share(const Share&) = delete;
    Share& operator=(const Share&) = delete;
    ~Share();

    /// Whose share it is a part of.
    uid_t account() const { return _account; }
    /// False if the account, or all together, have all the connections they may have; then nothing
    /// is taken.
    bool takeConnection();
    /// Takes `size` bytes for a message on its way, in the place of what was taken before; false,
    /// with nothing taken, if the account, or all together, would hold too many.
    bool takeMessage(std::size_t size);
    /// Takes `size` bytes more for what the message is turned into; false, with no more taken.
    bool takeMore(std::size_t size);
    /// Waits until it is this account's connections' turn to use the processor, and takes it.
    Turns::Turn takeTurn() { return {_limits->_turns, _account}; }

   private:
    bool take(std::size_t size);

    std::shared_ptr<PeerLimits> _limits;
    uid_t _account;
    int _connections = 0;
    std::size_t _bytes = 0;
  };

 private:
  struct Usage {
    int connections = 0;
    std::size_t bytes = 0;
  };

  bool mayConnect(uid_t account, const Usage& usage) const;
  bool mayHoldMore(uid_t account, const Usage& usage, std::size_t size) const;

  Accounts _accounts;
  Turns _turns;
  std::mutex _mutex;
  std::map<uid_t, Usage> _usage;
  /// Of all users but root.
  Usage _total;
};

}  // namespace corvane

#endif
