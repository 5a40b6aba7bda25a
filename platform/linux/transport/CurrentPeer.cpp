#include "platform/linux/transport/CurrentPeer.h"

#include <utility>

namespace corvane {

namespace {

thread_local const Peer* current = nullptr;

}  // namespace

const Peer* currentPeer() {
  return current;
}

CurrentPeerScope::CurrentPeerScope(const Peer& peer) : _previous(std::exchange(current, &peer)) {}

CurrentPeerScope::~CurrentPeerScope() {
  current = _previous;
}

}  // namespace corvane
