#include "platform/linux/transport/Endpoint.h"

#include <cerrno>

#include <sys/socket.h>

#include "foundation/Exception.h"
#include "foundation/POSIXError.h"
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

std::pair<FileDescriptor, FileDescriptor> connectedSockets() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
    throw Exception("NSFileHandleOperationException",
                    "No socket pair: " + posixDescription(posixCodeFromHost(errno)));
  }
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

}  // namespace corvane
