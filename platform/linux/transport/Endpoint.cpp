#include "platform/linux/transport/Endpoint.h"

#include "platform/XPCListenerEndpoint.h"

namespace corvane {

XPCListenerEndpoint::XPCListenerEndpoint(std::unique_ptr<Transport> transport)
    : _transport(std::move(transport)) {}
XPCListenerEndpoint::XPCListenerEndpoint(XPCListenerEndpoint&&) noexcept = default;
XPCListenerEndpoint& XPCListenerEndpoint::operator=(XPCListenerEndpoint&&) noexcept = default;
XPCListenerEndpoint::~XPCListenerEndpoint() = default;

std::unique_ptr<XPCListenerEndpoint::Transport> XPCListenerEndpoint::takeTransport() {
  return std::move(_transport);
}

XPCListenerEndpoint endpointFromSocket(FileDescriptor socket) {
  return XPCListenerEndpoint(std::make_unique<XPCListenerEndpoint::Transport>(std::move(socket)));
}

}  // namespace corvane
