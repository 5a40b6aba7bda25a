#ifndef CORVANE_PLATFORM_LINUX_BUS_BUS_H
#define CORVANE_PLATFORM_LINUX_BUS_BUS_H

#include <memory>

#include <systemd/sd-bus.h>

namespace corvane {

struct BusCloser {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
struct BusMessageCloser {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;
using BusMessage = std::unique_ptr<sd_bus_message, BusMessageCloser>;

}  // namespace corvane

#endif
