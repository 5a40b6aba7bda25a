#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_ISSUERSOCKET_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_ISSUERSOCKET_H

#include <chrono>
#include <string>

#include "foundation/Result.h"
#include "platform/Authorization.h"

namespace corvane {

/// Has the issuer that listens at `socketPath` make an authorization of the calling process and
/// brings back its external form, within `patience`. Any thread. The errors are those of
/// IssuedAuthorization.
Result<AuthorizationExternalForm> requestAuthorizationExternalForm(
    const std::string& socketPath, std::chrono::milliseconds patience);

}  // namespace corvane

#endif
