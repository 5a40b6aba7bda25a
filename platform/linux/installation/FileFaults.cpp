#include "platform/linux/installation/FileFaults.h"

#include <cerrno>

#include <sys/stat.h>

#include "foundation/POSIXError.h"

namespace corvane {

namespace {

struct Check {
  bool (*isPassed)(const struct stat& status, mode_t permissions);
  const char* description;
};
// The first that is not passed is what is told.
constexpr Check checks[] = {
    {[](const struct stat& status, mode_t) { return S_ISREG(status.st_mode); },
     "is not a regular file"},
    {[](const struct stat& status, mode_t) { return status.st_uid == 0 && status.st_gid == 0; },
     "does not belong to root"},
    {[](const struct stat& status, mode_t) { return (status.st_mode & (S_IWGRP | S_IWOTH)) == 0; },
     "can be changed by others than root"},
    {[](const struct stat& status, mode_t permissions) {
       return (status.st_mode & S_IXUSR) == (permissions & S_IXUSR);
     },
     "cannot be executed, or is not to be"},
    {[](const struct stat& status, mode_t permissions) {
       return (status.st_mode & ALLPERMS) == permissions;
     },
     "has other permissions than it is to have"},
};

}  // namespace

std::optional<std::string> faultOfFile(const std::string& path, mode_t permissions) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return "is missing";
    return "cannot be looked at: " + posixDescription(posixCodeFromHost(errno));
  }
  for (const Check& check : checks) {
    if (!check.isPassed(status, permissions)) return check.description;
  }
  return std::nullopt;
}

}  // namespace corvane
