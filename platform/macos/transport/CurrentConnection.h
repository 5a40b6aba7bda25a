#ifndef CORVANE_PLATFORM_MACOS_TRANSPORT_CURRENTCONNECTION_H
#define CORVANE_PLATFORM_MACOS_TRANSPORT_CURRENTCONNECTION_H

#include <optional>

#include <sys/types.h>

namespace corvane {

/// The other end of a connection, by the word of the system.
struct Peer {
  pid_t pid;
  uid_t uid;
};

/// That of the connection whose message the calling thread handles; nothing outside of a message.
std::optional<Peer> currentPeer();

}  // namespace corvane

#endif
