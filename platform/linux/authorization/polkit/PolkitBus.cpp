#include "platform/linux/authorization/polkit/PolkitBus.h"

#include <utility>

namespace corvane {

namespace {

BusMessage newCall(sd_bus* bus, const char* interface, const char* member) {
  sd_bus_message* message = nullptr;
  sd_bus_message_new_method_call(bus, &message, "org.freedesktop.PolicyKit1",
                                 "/org/freedesktop/PolicyKit1/Authority", interface, member);
  return BusMessage(message);
}

}  // namespace

BusMessage newPolkitCall(sd_bus* bus, const char* member) {
  return newCall(bus, polkitAuthorityInterface, member);
}

BusMessage newPolkitSignOfLife(sd_bus* bus) {
  BusMessage message = newCall(bus, "org.freedesktop.DBus.Properties", "Get");
  const bool isComplete =
      message != nullptr &&
      sd_bus_message_append(message.get(), "ss", polkitAuthorityInterface, "BackendVersion") >= 0;
  return isComplete ? std::move(message) : nullptr;
}

}  // namespace corvane
