#include "platform/linux/transport/CurrentPeer.h"

#include <utility>

#include <unistd.h>

#include "platform/CurrentClient.h"

namespace corvane {

namespace {

thread_local const Peer* current = nullptr;

}  // namespace

const Peer* currentPeer() {
  return current;
}

std::uint32_t userOfCurrentClient() {
  return current != nullptr ? current->uid : ::geteuid();
}

CurrentPeerScope::CurrentPeerScope(const Peer& peer) : _previous(std::exchange(current, &peer)) {}

CurrentPeerScope::~CurrentPeerScope() {
  current = _previous;
}

}  // namespace corvane
