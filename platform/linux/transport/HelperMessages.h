#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_HELPERMESSAGES_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_HELPERMESSAGES_H

#include <array>
#include <utility>

#include "foundation/AuthorizationState.h"

namespace corvane {

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
inline constexpr const char* controlInterface = "com.corvane.ZELPrivilegedHelperControl";
inline constexpr const char* cancelMember = "CancelOperation";
inline constexpr const char* queryMember = "QueryAuthorization";
inline constexpr const char* querySignature = "tay";
inline constexpr auto authorizationStates =
    std::to_array<std::pair<AuthorizationState, const char*>>({
        {AuthorizationState::Granted, "granted"},
        {AuthorizationState::Challenge, "challenge"},
        {AuthorizationState::Denied, "denied"},
        {AuthorizationState::Unavailable, "unavailable"},
    });
inline constexpr const char* feedbackObjectPath = "/com/corvane/PrivilegedOperationFeedback";
inline constexpr const char* feedbackInterface =
    "com.corvane.ZELPrivilegedOperationFeedbackProtocol";
inline constexpr const char* feedbackMember = "ProcessPrivilegedOperationFeedback";

}  // namespace corvane

#endif
