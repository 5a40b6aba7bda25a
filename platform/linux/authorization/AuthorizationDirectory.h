#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_AUTHORIZATIONDIRECTORY_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_AUTHORIZATIONDIRECTORY_H

#include <string>

namespace corvane {

/// Names the one folder that holds all of the authorization service's files, in the place of the
/// two folders they are in by default. For service managers and for trying things out.
inline constexpr const char* AuthorizationDirectoryVariable = "CORVANE_AUTHORIZATION_DIRECTORY";

/// Names the folder of polkit's action files, in the place of the system's. If only the variable
/// above is set, they go into a folder in that one, where no polkit looks for them.
inline constexpr const char* ActionsDirectoryVariable = "CORVANE_POLKIT_ACTIONS_DIRECTORY";

/// Where the key of the external forms is. It does not outlive a start of the system.
const std::string& authorizationKeyDirectory();
/// Where the files are that say which processes have discarded their authorizations. Nor do they.
const std::string& discardedAuthorizationsDirectory();
/// Where the embedded authority keeps the definitions of rights. They stay.
const std::string& authorizationRightsDirectory();
/// Where polkit finds actions, each in a file of its own.
const std::string& polkitActionsDirectory();

}  // namespace corvane

#endif
