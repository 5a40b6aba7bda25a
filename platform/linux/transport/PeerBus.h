#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_PEERBUS_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_PEERBUS_H

#include <chrono>

#include "foundation/FileDescriptor.h"
#include "platform/linux/bus/Bus.h"

namespace corvane {

/// How long a peer may take for the authentication handshake.
inline constexpr std::chrono::seconds handshakeTimeout{10};

enum class BusRole { Client, Server };

/// A connection over `socket` without a bus daemon between the peers, in the state before its
/// handshake; null with errno set if it cannot be made. With `separateInput` it reads from there
/// and only writes to `socket`.
Bus makePeerBus(FileDescriptor socket, BusRole role, FileDescriptor separateInput = {});

/// Completes the handshake by `deadline`; 0, or a negative errno.
int completeHandshake(sd_bus* bus, std::chrono::steady_clock::time_point deadline);

}  // namespace corvane

#endif
