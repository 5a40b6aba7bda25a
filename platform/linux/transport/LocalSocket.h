#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_LOCALSOCKET_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_LOCALSOCKET_H

#include <chrono>
#include <string>
#include <utility>

#include "foundation/FileDescriptor.h"
#include "foundation/Result.h"

namespace corvane {

/// Two connected stream sockets; throws Exception when the process has no descriptors left.
std::pair<FileDescriptor, FileDescriptor> connectedSockets();

/// A stream socket connected to who listens at `path`. ETIMEDOUT: the queue was full until
/// `deadline`. Whoever waits for it is let in in turn.
Result<FileDescriptor> connectedTo(const std::string& path,
                                   std::chrono::steady_clock::time_point deadline);

/// Waits until a descriptor is ready for `events`; false at `deadline`.
bool waitFor(int descriptor, short events, std::chrono::steady_clock::time_point deadline);

}  // namespace corvane

#endif
