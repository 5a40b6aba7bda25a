#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_BUSCONNECTIONS_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_BUSCONNECTIONS_H

#include <mutex>
#include <string>
#include <vector>

#include "foundation/Result.h"
#include "platform/linux/bus/Bus.h"

namespace corvane {

/// Connections to a bus, of which each is one thread's at a time. A few are kept open between uses.
/// Any thread.
class BusConnections {
 public:
  /// `address` as D-Bus writes addresses.
  explicit BusConnections(std::string address);

  /// A connection that may still be in its handshake. EAGAIN if the bus takes no more connections
  /// just now.
  Result<Bus> take();
  /// Takes a connection back on which nothing is pending.
  void giveBack(Bus bus);

 private:
  const std::string _address;
  std::mutex _lock;
  std::vector<Bus> _idle;
};

}  // namespace corvane

#endif
