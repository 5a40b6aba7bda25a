#ifndef CORVANE_PLATFORM_AUTHORIZATIONSTATUS_H
#define CORVANE_PLATFORM_AUTHORIZATIONSTATUS_H

#include <cstdint>

namespace corvane {

/// A status of an operating system service; 0 is success.
using OSStatus = std::int32_t;

// What the authorization services answer, and errors in `NSOSStatusErrorDomain` have as their code.
inline constexpr OSStatus errAuthorizationSuccess = 0;
inline constexpr OSStatus errAuthorizationInvalidSet = -60001;
inline constexpr OSStatus errAuthorizationInvalidRef = -60002;
inline constexpr OSStatus errAuthorizationInvalidPointer = -60004;
inline constexpr OSStatus errAuthorizationDenied = -60005;
inline constexpr OSStatus errAuthorizationCanceled = -60006;
inline constexpr OSStatus errAuthorizationInteractionNotAllowed = -60007;
inline constexpr OSStatus errAuthorizationInternal = -60008;

}  // namespace corvane

#endif
