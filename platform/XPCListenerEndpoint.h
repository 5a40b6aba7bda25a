#ifndef CORVANE_PLATFORM_XPCLISTENERENDPOINT_H
#define CORVANE_PLATFORM_XPCLISTENERENDPOINT_H

#include <memory>

namespace corvane {

/// The way to one listener, as a value that can be sent to another process: whoever holds it can
/// connect at least once, and nobody else can. Move-only; dropping it unused closes the way.
class XPCListenerEndpoint {
 public:
  /// What the platform needs to connect; defined by the platform.
  struct Transport;

  explicit XPCListenerEndpoint(std::unique_ptr<Transport> transport);
  XPCListenerEndpoint(XPCListenerEndpoint&&) noexcept;
  XPCListenerEndpoint& operator=(XPCListenerEndpoint&&) noexcept;
  ~XPCListenerEndpoint();

  /// Gives the way up to a connection or a message; the endpoint is empty afterwards.
  std::unique_ptr<Transport> takeTransport();

 private:
  std::unique_ptr<Transport> _transport;
};

}  // namespace corvane

#endif
