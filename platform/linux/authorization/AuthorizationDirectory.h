#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_AUTHORIZATIONDIRECTORY_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_AUTHORIZATIONDIRECTORY_H

#include <string>

namespace corvane {

/// Names the one folder that holds all of the authorization service's files, in the place of the
/// two folders they are in by default. For service managers and for trying things out.
inline constexpr const char* AuthorizationDirectoryVariable = "CORVANE_AUTHORIZATION_DIRECTORY";

/// Where the key of the external forms is: gone when the system starts anew.
const std::string& authorizationKeyDirectory();
/// Where the embedded authority keeps the definitions of rights: there to stay.
const std::string& authorizationRightsDirectory();

}  // namespace corvane

#endif
