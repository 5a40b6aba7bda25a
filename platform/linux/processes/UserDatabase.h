#ifndef CORVANE_PLATFORM_LINUX_PROCESSES_USERDATABASE_H
#define CORVANE_PLATFORM_LINUX_PROCESSES_USERDATABASE_H

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace corvane {

/// A user of this machine.
struct User {
  uid_t uid;
  gid_t gid;
  /// All groups of the user, the first one included.
  std::vector<gid_t> groups;
  /// The home folder, an absolute path.
  std::string home;
  std::string name;
};

/// The user of the system's user database with this name or number; nothing if there is none.
std::optional<User> userNamed(const std::string& name);
std::optional<User> userWithID(uid_t uid);

}  // namespace corvane

#endif
