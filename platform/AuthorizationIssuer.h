#ifndef CORVANE_PLATFORM_AUTHORIZATIONISSUER_H
#define CORVANE_PLATFORM_AUTHORIZATIONISSUER_H

#include <chrono>
#include <string>
#include <variant>

#include "foundation/Error.h"
#include "platform/Authorization.h"

namespace corvane {

/// Where the system's issuer of authorizations is found.
inline constexpr const char* AuthorizationIssuerSocketPath =
    "/run/com.corvane.authorization/socket";

/// Has the issuer at `socketPath` make an authorization of the calling process and brings back its
/// external form, within `patience`. Any thread.
///
/// Errors are in NSPOSIXErrorDomain and name the path: ENOENT, nobody has set an issuer up there;
/// ECONNREFUSED, nobody listens; ETIMEDOUT, no answer in time; ECONNRESET, the issuer refused.
std::variant<AuthorizationExternalForm, Error> requestAuthorizationExternalForm(
    const std::string& socketPath, std::chrono::milliseconds patience);

}  // namespace corvane

#endif
