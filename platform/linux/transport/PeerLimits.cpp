#include "platform/linux/transport/PeerLimits.h"

#include <algorithm>

namespace corvane {

PeerLimits::Share::~Share() {
  const std::lock_guard lock(_limits->_mutex);
  const auto entry = _limits->_usage.find(_account);
  if (entry == _limits->_usage.end()) return;
  entry->second.connections -= _connections;
  entry->second.bytes -= _bytes;
  if (entry->second.connections == 0 && entry->second.bytes == 0) _limits->_usage.erase(entry);
  if (_account == 0) return;
  _limits->_total.connections -= _connections;
  _limits->_total.bytes -= _bytes;
}

bool PeerLimits::hasConnections() {
  const std::lock_guard lock(_mutex);
  return std::ranges::any_of(_usage,
                             [](const auto& entry) { return entry.second.connections > 0; });
}

bool PeerLimits::mayConnect(uid_t account, const Usage& usage) const {
  if (account == 0) return true;
  const int reserved = usage.connections < fewConnections ? 0 : reservedConnections;
  return usage.connections < maximumConnectionsPerUser &&
         _total.connections < maximumConnections - reserved;
}

bool PeerLimits::mayHoldMore(uid_t account, const Usage& usage, std::size_t size) const {
  if (account == 0) return true;
  const std::size_t reserved = usage.bytes + size <= fewMessageBytes ? 0 : reservedMessageBytes;
  return usage.bytes + size <= maximumMessageBytesPerUser &&
         _total.bytes + size <= maximumMessageBytes - reserved;
}

bool PeerLimits::Share::takeConnection() {
  const std::lock_guard lock(_limits->_mutex);
  Usage& usage = _limits->_usage[_account];
  if (!_limits->mayConnect(_account, usage)) return false;
  ++usage.connections;
  ++_connections;
  if (_account != 0) ++_limits->_total.connections;
  return true;
}

bool PeerLimits::Share::takeMessage(std::size_t size) {
  if (size == _bytes) return true;
  const std::lock_guard lock(_limits->_mutex);
  Usage& usage = _limits->_usage[_account];
  usage.bytes -= _bytes;
  if (_account != 0) _limits->_total.bytes -= _bytes;
  _bytes = 0;
  return take(size);
}

bool PeerLimits::Share::takeMore(std::size_t size) {
  const std::lock_guard lock(_limits->_mutex);
  return take(size);
}

bool PeerLimits::Share::take(std::size_t size) {
  Usage& usage = _limits->_usage[_account];
  if (!_limits->mayHoldMore(_account, usage, size)) return false;
  usage.bytes += size;
  if (_account != 0) _limits->_total.bytes += size;
  _bytes += size;
  return true;
}

}  // namespace corvane
