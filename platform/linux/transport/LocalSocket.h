#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_LOCALSOCKET_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_LOCALSOCKET_H

#include <chrono>
#include <utility>

#include "foundation/FileDescriptor.h"

namespace corvane {

/// Two connected stream sockets; throws Exception when the process has no descriptors left.
std::pair<FileDescriptor, FileDescriptor> connectedSockets();

/// Waits until a descriptor is ready for `events`; false at `deadline`.
bool waitFor(int descriptor, short events, std::chrono::steady_clock::time_point deadline);

}  // namespace corvane

#endif
