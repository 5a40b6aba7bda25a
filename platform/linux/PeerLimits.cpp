#include "platform/linux/PeerLimits.h"

namespace corvane {

PeerLimits::Share::~Share() {
  const std::lock_guard lock(_limits->_mutex);
  const auto entry = _limits->_usage.find(_user);
  if (entry == _limits->_usage.end()) return;
  entry->second.connections -= _connections;
  entry->second.bytes -= _bytes;
  if (entry->second.connections == 0) _limits->_usage.erase(entry);
}

bool PeerLimits::Share::takeConnection() {
  const std::lock_guard lock(_limits->_mutex);
  Usage& usage = _limits->_usage[_user];
  if (_user != 0 && usage.connections >= maximumConnectionsPerUser) return false;
  ++usage.connections;
  ++_connections;
  return true;
}

bool PeerLimits::Share::takeMessage(std::size_t size) {
  if (size <= uncountedMessageSize) size = 0;
  if (size == _bytes) return true;
  const std::lock_guard lock(_limits->_mutex);
  Usage& usage = _limits->_usage[_user];
  usage.bytes -= _bytes;
  _bytes = 0;
  if (_user != 0 && usage.bytes + size > maximumMessageBytesPerUser) return false;
  usage.bytes += size;
  _bytes = size;
  return true;
}

}  // namespace corvane
