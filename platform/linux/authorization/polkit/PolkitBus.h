#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_POLKITBUS_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_POLKITBUS_H

#include "platform/linux/bus/MessageWriter.h"

namespace corvane {

/// The interface of polkit's authority, and the error by which it refuses what it has understood.
inline constexpr const char* polkitAuthorityInterface = "org.freedesktop.PolicyKit1.Authority";
inline constexpr const char* polkitFailure = "org.freedesktop.PolicyKit1.Error.Failed";

/// A call to polkit's authority without its arguments.
MessageWriter newPolkitCall(sd_bus* bus, const char* member);
/// A question that polkit answers whatever else it is doing.
MessageWriter newPolkitSignOfLife(sd_bus* bus);

}  // namespace corvane

#endif
