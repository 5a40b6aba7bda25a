#include "platform/linux/authorization/AuthorizationDirectory.h"

#include <cstdlib>

namespace corvane {

namespace {

// Everything is read once: the environment may change while requests run.
std::string directoryOrDefault(const char* variable, const std::string& defaultDirectory) {
  const char* directory = ::secure_getenv(variable);
  return directory != nullptr && *directory == '/' ? directory : defaultDirectory;
}

}  // namespace

const std::string& authorizationKeyDirectory() {
  static const std::string directory =
      directoryOrDefault(AuthorizationDirectoryVariable, "/run/com.corvane.authorization");
  return directory;
}

const std::string& discardedAuthorizationsDirectory() {
  static const std::string directory = authorizationKeyDirectory() + "/discarded";
  return directory;
}

const std::string& authorizationRightsDirectory() {
  static const std::string directory =
      directoryOrDefault(AuthorizationDirectoryVariable, "/var/lib/com.corvane.authorization") +
      "/rights";
  return directory;
}

const std::string& polkitActionsDirectory() {
  static const std::string own = directoryOrDefault(AuthorizationDirectoryVariable, "");
  static const std::string directory = directoryOrDefault(
      ActionsDirectoryVariable, own.empty() ? "/usr/share/polkit-1/actions" : own + "/actions");
  return directory;
}

}  // namespace corvane
