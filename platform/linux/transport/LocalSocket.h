#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_LOCALSOCKET_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_LOCALSOCKET_H

#include <chrono>
#include <string>
#include <utility>

#include "foundation/FileDescriptor.h"

namespace corvane {

/// Two connected stream sockets; throws Exception when the process has no descriptors left.
std::pair<FileDescriptor, FileDescriptor> connectedSockets();

/// A stream socket connected to who listens at `path`; none, with the reason in errno, if that
/// fails. ETIMEDOUT: the queue was full until `deadline`. Whoever waits for it is let in in turn.
FileDescriptor connectedTo(const std::string& path, std::chrono::steady_clock::time_point deadline);

/// Waits until a descriptor is ready for `events`; false at `deadline`.
bool waitFor(int descriptor, short events, std::chrono::steady_clock::time_point deadline);

}  // namespace corvane

#endif
