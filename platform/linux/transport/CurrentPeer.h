#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_CURRENTPEER_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_CURRENTPEER_H

#include <sys/types.h>

namespace corvane {

class WatchedProcess;

/// The other end of a connection, as the kernel vouches for it.
struct Peer {
  pid_t pid;
  uid_t uid;
  gid_t gid;
  /// The connected socket, borrowed: it hangs up when the peer goes away. -1 if there is none.
  int connection = -1;
  /// The process that connected, borrowed; null if nothing more than its number is known.
  const WatchedProcess* process = nullptr;
};

/// The peer whose message this thread is handling, or null outside of a message.
const Peer* currentPeer();

/// Makes `peer` the current peer of this thread for as long as the scope lives. Scopes nest.
class CurrentPeerScope {
 public:
  /// `peer` is borrowed and must outlive the scope.
  explicit CurrentPeerScope(const Peer& peer);
  CurrentPeerScope(const CurrentPeerScope&) = delete;
  CurrentPeerScope& operator=(const CurrentPeerScope&) = delete;
  ~CurrentPeerScope();

 private:
  const Peer* _previous;
};

}  // namespace corvane

#endif
