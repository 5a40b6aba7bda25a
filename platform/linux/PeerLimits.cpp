#include "platform/linux/PeerLimits.h"

namespace corvane {

PeerLimits::Share::~Share() {
  const std::lock_guard lock(_limits->_mutex);
  const auto entry = _limits->_usage.find(_user);
  if (entry == _limits->_usage.end()) return;
  entry->second.connections -= _connections;
  entry->second.bytes -= _bytes;
  if (entry->second.connections == 0) _limits->_usage.erase(entry);
  if (_user == 0) return;
  _limits->_total.connections -= _connections;
  _limits->_total.bytes -= _bytes;
}

bool PeerLimits::mayConnect(uid_t user, const Usage& usage) const {
  return user == 0 ||
         (usage.connections < maximumConnectionsPerUser && _total.connections < maximumConnections);
}

bool PeerLimits::mayHold(uid_t user, const Usage& usage, std::size_t size) const {
  return user == 0 || (usage.bytes + size <= maximumMessageBytesPerUser &&
                       _total.bytes + size <= maximumMessageBytes);
}

bool PeerLimits::Share::takeConnection() {
  const std::lock_guard lock(_limits->_mutex);
  Usage& usage = _limits->_usage[_user];
  if (!_limits->mayConnect(_user, usage)) return false;
  ++usage.connections;
  ++_connections;
  if (_user != 0) ++_limits->_total.connections;
  return true;
}

bool PeerLimits::Share::takeMessage(std::size_t size) {
  if (size <= uncountedMessageSize) size = 0;
  if (size == _bytes) return true;
  const std::lock_guard lock(_limits->_mutex);
  Usage& usage = _limits->_usage[_user];
  Usage& total = _limits->_total;
  usage.bytes -= _bytes;
  if (_user != 0) total.bytes -= _bytes;
  _bytes = 0;
  if (!_limits->mayHold(_user, usage, size)) return false;
  usage.bytes += size;
  if (_user != 0) total.bytes += size;
  _bytes = size;
  return true;
}

}  // namespace corvane
