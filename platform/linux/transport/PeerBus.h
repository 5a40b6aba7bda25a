#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_PEERBUS_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_PEERBUS_H

#include <chrono>

#include "foundation/FileDescriptor.h"
#include "foundation/Result.h"
#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/ByteInput.h"

namespace corvane {

/// How long a peer may take for the authentication handshake.
inline constexpr std::chrono::seconds handshakeTimeout{10};

enum class BusRole { Client, Server };

/// A connection over `socket` without a bus daemon between the peers, in the state before its
/// handshake. It only writes to `socket`, and reads from `input`: nothing that a peer sends reaches
/// the library by itself.
Result<Bus> makePeerBus(FileDescriptor socket, BusRole role, FileDescriptor input);

/// Waits until `deadline` for what the connection waits for, and passes on what came.
Result<void> waitAndPump(sd_bus* bus, const ByteInput& input,
                         std::chrono::steady_clock::time_point deadline);

/// Completes the handshake of a connection that reads from `input` by `deadline`.
Result<void> completeHandshake(sd_bus* bus, const ByteInput& input,
                               std::chrono::steady_clock::time_point deadline);

}  // namespace corvane

#endif
