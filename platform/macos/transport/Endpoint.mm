#include "platform/macos/transport/Endpoint.h"

#include <utility>

namespace corvane {

XPCListenerEndpoint::XPCListenerEndpoint(std::unique_ptr<Transport> transport)
    : _transport(std::move(transport)) {}
XPCListenerEndpoint::XPCListenerEndpoint(XPCListenerEndpoint&&) noexcept = default;
XPCListenerEndpoint& XPCListenerEndpoint::operator=(XPCListenerEndpoint&&) noexcept = default;
XPCListenerEndpoint::~XPCListenerEndpoint() = default;

std::unique_ptr<XPCListenerEndpoint::Transport> XPCListenerEndpoint::takeTransport() {
  return std::move(_transport);
}

XPCListenerEndpoint endpointFromObject(NSXPCListenerEndpoint* endpoint) {
  return XPCListenerEndpoint(
      std::make_unique<XPCListenerEndpoint::Transport>(XPCListenerEndpoint::Transport{endpoint}));
}

NSXPCListenerEndpoint* takeObject(XPCListenerEndpoint& endpoint) {
  const auto transport = endpoint.takeTransport();
  return transport != nullptr ? transport->endpoint : nil;
}

}  // namespace corvane
