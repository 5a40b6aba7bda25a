#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_HELPERMESSAGES_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_HELPERMESSAGES_H

#include <cstdint>
#include <optional>
#include <span>

#include "foundation/AuthorizationState.h"
#include "foundation/FileDescriptor.h"
#include "foundation/Value.h"
#include "platform/HelperConnection.h"
#include "platform/XPCListenerEndpoint.h"
#include "platform/linux/transport/BusValue.h"

namespace corvane {

/// The helper object and what serves feedback, as they are addressed on a connection.
inline constexpr const char* helperObjectPath = "/com/corvane/PrivilegedHelper";
inline constexpr const char* helperInterface = "com.corvane.ZELPrivilegedHelperProtocol";
inline constexpr const char* controlInterface = "com.corvane.ZELPrivilegedHelperControl";
inline constexpr const char* feedbackObjectPath = "/com/corvane/PrivilegedOperationFeedback";
inline constexpr const char* feedbackInterface =
    "com.corvane.ZELPrivilegedOperationFeedbackProtocol";

/// A member of an interface: its name, and the types of what a call of it holds and is answered
/// with. What is no single value of a basic type is written and read below or in BusValue.h.
struct Member {
  const char* name;
  const char* call;
  const char* answer;
  /// What each of these is, for who asks what there is: names that end with a zero byte each. The
  /// files in packaging/dbus say the same.
  const char* names;
};
inline constexpr Member connectMember{"ConnectWithEndpoint", "", "h", "endpoint\0"};
inline constexpr Member versionMember{"GetVersionString", "", "s", "version\0"};
inline constexpr Member registerMember{"RegisterClientWithPID", "i", "", "pid\0"};
inline constexpr Member unregisterMember{"UnregisterClientWithPID", "i", "", "pid\0"};
inline constexpr Member performMember{"PerformPrivilegedOperation", "tayahaav", "a(sxa{sv})",
                                      "code\0authorization\0feedback_endpoint\0arguments\0error\0"};
inline constexpr Member debugMember{"EnableDebugMode", "b", "", "flag\0"};
inline constexpr Member cancelMember{"CancelOperation", "s", "b", "token\0is_in_progress\0"};
inline constexpr Member queryMember{"QueryAuthorization", "tay", "s",
                                    "code\0authorization\0state\0"};
inline constexpr Member feedbackMember{"ProcessPrivilegedOperationFeedback", "a{sv}", "",
                                       "feedback\0"};

/// A call of PerformPrivilegedOperation.
struct PerformCall {
  std::uint64_t code = 0;
  Data authorization;
  std::optional<XPCListenerEndpoint> feedbackEndpoint;
  std::optional<Array> arguments;
};
/// Writes one with arguments; without a socket it has no endpoint.
void appendPerformCall(MessageWriter& writer, std::uint64_t code,
                       std::span<const std::byte> authorization, const FileDescriptor& endpoint,
                       const OperationArguments& arguments);
/// After a failure for which the call itself is to blame, `fault` says what is wrong with it.
PerformCall readPerformCall(MessageReader& reader, const TakeMemory& takeMemory,
                            const char*& fault);
/// How many bytes the arguments take in a message at least.
std::size_t leastMessageSize(const OperationArguments& arguments);

/// A call of QueryAuthorization.
struct QueryCall {
  std::uint64_t code = 0;
  Data authorization;
};
void appendQueryCall(MessageWriter& writer, std::uint64_t code,
                     std::span<const std::byte> authorization);
QueryCall readQueryCall(MessageReader& reader, const TakeMemory& takeMemory);

/// What QueryAuthorization is answered with; any other text is -EBADMSG.
void appendAuthorizationState(MessageWriter& writer, AuthorizationState state);
AuthorizationState readAuthorizationState(MessageReader& reader);

}  // namespace corvane

#endif
