#ifndef CORVANE_PLATFORM_LINUX_BUS_BUS_H
#define CORVANE_PLATFORM_LINUX_BUS_BUS_H

#include <chrono>
#include <memory>
#include <string>

#include <systemd/sd-bus.h>

#include "foundation/FileDescriptor.h"

namespace corvane {

struct BusCloser {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
struct BusMessageCloser {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;
using BusMessage = std::unique_ptr<sd_bus_message, BusMessageCloser>;

/// The helper object and what serves feedback, as they and their members are addressed on a
/// connection.
inline constexpr const char* helperObjectPath = "/com/corvane/PrivilegedHelper";
inline constexpr const char* helperInterface = "com.corvane.ZELPrivilegedHelperProtocol";
inline constexpr const char* connectMember = "ConnectWithEndpoint";
inline constexpr const char* versionMember = "GetVersionString";
inline constexpr const char* registerMember = "RegisterClientWithPID";
inline constexpr const char* unregisterMember = "UnregisterClientWithPID";
inline constexpr const char* performMember = "PerformPrivilegedOperation";
inline constexpr const char* performSignature = "tayahaav";
inline constexpr const char* debugMember = "EnableDebugMode";
inline constexpr const char* feedbackObjectPath = "/com/corvane/PrivilegedOperationFeedback";
inline constexpr const char* feedbackInterface =
    "com.corvane.ZELPrivilegedOperationFeedbackProtocol";
inline constexpr const char* feedbackMember = "ProcessPrivilegedOperationFeedback";

/// How long a peer may take for the authentication handshake.
inline constexpr std::chrono::seconds handshakeTimeout{10};

enum class BusRole { Client, Server };

/// A connection over `socket` without a bus daemon between the peers, in the state before its
/// handshake; null with errno set if it cannot be made. With `separateInput` it reads from there
/// and only writes to `socket`.
Bus makePeerBus(FileDescriptor socket, BusRole role, FileDescriptor separateInput = {});

/// Completes the handshake by `deadline`; 0, or a negative errno.
int completeHandshake(sd_bus* bus, std::chrono::steady_clock::time_point deadline);

/// Waits until a descriptor is ready for `events`; false at `deadline`.
bool waitFor(int descriptor, short events, std::chrono::steady_clock::time_point deadline);

}  // namespace corvane

#endif
