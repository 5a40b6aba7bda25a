#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_ENDPOINT_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_ENDPOINT_H

#include <utility>

#include "foundation/FileDescriptor.h"
#include "platform/XPCListenerEndpoint.h"

namespace corvane {

/// On Linux an endpoint is one end of a connected stream socket whose other end its listener
/// already serves. It has no name, so nobody else can connect to it.
struct XPCListenerEndpoint::Transport {
  explicit Transport(FileDescriptor end) : socket(std::move(end)) {}
  FileDescriptor socket;
};

/// An endpoint that owns `socket`.
XPCListenerEndpoint endpointFromSocket(FileDescriptor socket);

}  // namespace corvane

#endif
