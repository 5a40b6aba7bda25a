#include "platform/linux/authorization/polkit/PolkitBus.h"

namespace corvane {

namespace {

MessageWriter newCall(sd_bus* bus, const char* interface, const char* member) {
  return MessageWriter::ofCall(bus, "org.freedesktop.PolicyKit1",
                               "/org/freedesktop/PolicyKit1/Authority", interface, member);
}

}  // namespace

MessageWriter newPolkitCall(sd_bus* bus, const char* member) {
  return newCall(bus, polkitAuthorityInterface, member);
}

MessageWriter newPolkitSignOfLife(sd_bus* bus) {
  MessageWriter call = newCall(bus, "org.freedesktop.DBus.Properties", "Get");
  call.append("ss", polkitAuthorityInterface, "BackendVersion");
  return call;
}

}  // namespace corvane
