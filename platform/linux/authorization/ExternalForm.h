#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_EXTERNALFORM_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_EXTERNALFORM_H

#include <optional>

#include "platform/Authorization.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/processes/ProcessIdentity.h"

namespace corvane {

/// The external form of `identity`: the identity itself and a hash of it that only holders of the
/// key can make.
AuthorizationExternalForm makeExternalForm(const ProcessIdentity& identity,
                                           const AuthorizationKey& key);

/// The identity in `form`; nothing if its hash was not made with `key`. Whether the process still
/// runs is not looked at.
std::optional<ProcessIdentity> readExternalForm(const AuthorizationExternalForm& form,
                                                const AuthorizationKey& key);

}  // namespace corvane

#endif
