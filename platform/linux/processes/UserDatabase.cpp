#include "platform/linux/processes/UserDatabase.h"

#include <cerrno>

#include <grp.h>
#include <pwd.h>

namespace corvane {

namespace {

constexpr std::size_t maximumRecordSize = std::size_t{1} << 20U;

std::vector<gid_t> groupsOf(const passwd& record) {
  int count = 32;
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  while (::getgrouplist(record.pw_name, record.pw_gid, groups.data(), &count) < 0) {
    groups.resize(static_cast<std::size_t>(count));
  }
  groups.resize(static_cast<std::size_t>(count));
  return groups;
}

/// The user that `lookUp`, one of the reentrant functions of the database, finds for `key`.
template <typename Key, typename LookUp>
std::optional<User> found(Key key, LookUp lookUp) {
  passwd record{};
  passwd* result = nullptr;
  std::vector<char> buffer(1024);
  int failure = 0;
  while ((failure = lookUp(key, &record, buffer.data(), buffer.size(), &result)) == ERANGE &&
         buffer.size() < maximumRecordSize) {
    buffer.resize(buffer.size() * 2);
  }
  if (failure != 0 || result == nullptr || record.pw_dir == nullptr || record.pw_dir[0] != '/') {
    return std::nullopt;
  }
  return User{record.pw_uid, record.pw_gid, groupsOf(record), record.pw_dir, record.pw_name};
}

}  // namespace

std::optional<User> userNamed(const std::string& name) {
  return found(name.c_str(), ::getpwnam_r);
}

std::optional<User> userWithID(uid_t uid) {
  return found(uid, ::getpwuid_r);
}

}  // namespace corvane
