#include "platform/macos/transport/CurrentConnection.h"

#include <unistd.h>

#include "platform/CurrentClient.h"
#include "platform/macos/values/Guarded.h"

namespace corvane {

std::optional<Peer> currentPeer() {
  return guarded([]() -> std::optional<Peer> {
    NSXPCConnection* const connection = [NSXPCConnection currentConnection];
    if (connection == nil) return std::nullopt;
    return Peer{connection.processIdentifier, connection.effectiveUserIdentifier};
  });
}

std::uint32_t userOfCurrentClient() {
  const std::optional<Peer> peer = currentPeer();
  return peer ? peer->uid : ::geteuid();
}

}  // namespace corvane
