#include "platform/linux/authorization/AuthorizationDirectory.h"

#include <cstdlib>

namespace corvane {

namespace {

// Both are read once: the environment may change while requests run.
std::string directoryOrDefault(const char* defaultDirectory) {
  const char* directory = ::secure_getenv(AuthorizationDirectoryVariable);
  return directory != nullptr && *directory == '/' ? directory : defaultDirectory;
}

}  // namespace

const std::string& authorizationKeyDirectory() {
  static const std::string directory = directoryOrDefault("/run/com.corvane.authorization");
  return directory;
}

const std::string& authorizationRightsDirectory() {
  static const std::string directory =
      directoryOrDefault("/var/lib/com.corvane.authorization") + "/rights";
  return directory;
}

}  // namespace corvane
