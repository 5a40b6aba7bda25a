#include "platform/linux/authorization/polkit/BusConnections.h"

#include <utility>

#include "foundation/POSIXError.h"

namespace corvane {

namespace {

constexpr std::size_t mostIdle = 4;

/// Handles what has come in meanwhile; false if the connection is no more.
bool isUsable(sd_bus* bus) {
  int progress = 0;
  do {
    progress = sd_bus_process(bus, nullptr);
  } while (progress > 0);
  return progress == 0 && sd_bus_is_ready(bus) > 0;
}

Result<Bus> connect(const std::string& address) {
  sd_bus* raw = nullptr;
  int result = sd_bus_new(&raw);
  Bus bus(raw);
  if (result >= 0) result = sd_bus_set_address(raw, address.c_str());
  if (result >= 0) result = sd_bus_set_bus_client(raw, 1);
  if (result >= 0) result = sd_bus_start(raw);
  if (result < 0) return posixErrorFromHost(-result);
  return bus;
}

}  // namespace

BusConnections::BusConnections(std::string address) : _address(std::move(address)) {}

Result<Bus> BusConnections::take() {
  for (;;) {
    Bus bus;
    {
      const std::lock_guard guard(_lock);
      if (_idle.empty()) break;
      bus = std::move(_idle.back());
      _idle.pop_back();
    }
    if (isUsable(bus.get())) return bus;
  }
  return connect(_address);
}

void BusConnections::giveBack(Bus bus) {
  const std::lock_guard guard(_lock);
  if (_idle.size() < mostIdle) _idle.push_back(std::move(bus));
}

}  // namespace corvane
