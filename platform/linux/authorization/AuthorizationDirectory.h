#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_AUTHORIZATIONDIRECTORY_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_AUTHORIZATIONDIRECTORY_H

#include <string>

namespace corvane {

/// Names the one folder that holds all of the authorization service's files, in the place of the
/// two folders they are in by default. For service managers and for trying things out.
inline constexpr const char* AuthorizationDirectoryVariable = "CORVANE_AUTHORIZATION_DIRECTORY";

/// Names the folder of polkit's action files, in the place of that which the system has. With a
/// folder of the above kind and not of this one, action files go where no polkit sees them.
inline constexpr const char* ActionsDirectoryVariable = "CORVANE_POLKIT_ACTIONS_DIRECTORY";

/// Where the key of the external forms is: gone when the system starts anew.
const std::string& authorizationKeyDirectory();
/// Where it is kept who has discarded authorizations, for as long.
const std::string& discardedAuthorizationsDirectory();
/// Where the embedded authority keeps the definitions of rights: there to stay.
const std::string& authorizationRightsDirectory();
/// Where polkit finds actions, each in a file of its own.
const std::string& polkitActionsDirectory();

}  // namespace corvane

#endif
