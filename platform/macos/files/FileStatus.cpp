#include <cerrno>

#include <fcntl.h>
#include <sys/attr.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane {

namespace {

FileType typeOf(mode_t mode) {
  if (S_ISDIR(mode)) return FileType::Directory;
  if (S_ISLNK(mode)) return FileType::SymbolicLink;
  return (mode & S_IFMT) == S_IFWHT ? FileType::Whiteout : FileType::Other;
}

// Only folders are mounted on here. The folder that a file system begins with answers itself, so
// its status is that of what is mounted.
std::optional<Error> askForMount(int folder, const char* name, FinalLink link, bool& isMountPoint) {
  attrlist wanted{};
  wanted.bitmapcount = ATTR_BIT_MAP_COUNT;
  wanted.dirattr = ATTR_DIR_MOUNTSTATUS;
  struct {
    std::uint32_t length;
    std::uint32_t mountStatus;
  } answer{};
  const unsigned long options = link == FinalLink::Keep ? FSOPT_NOFOLLOW : 0;
  if (::getattrlistat(folder, name, &wanted, &answer, sizeof answer, options) != 0) {
    return posixErrorFromHost(errno);
  }
  isMountPoint = (answer.mountStatus & DIR_MNTSTATUS_MNTPOINT) != 0;
  return std::nullopt;
}

}  // namespace

std::optional<Error> statusOf(int folder, const char* name, FinalLink link, FileStatus& status) {
  struct stat attributes {};
  const int flags = link == FinalLink::Keep ? AT_SYMLINK_NOFOLLOW : 0;
  if (::fstatat(folder, name, &attributes, flags) != 0) return posixErrorFromHost(errno);
  FileStatus found = {typeOf(attributes.st_mode),
                      attributes.st_flags,
                      {static_cast<std::uint64_t>(attributes.st_dev), attributes.st_ino},
                      false};
  if (found.type == FileType::Directory) {
    if (auto error = askForMount(folder, name, link, found.isMountPoint)) return error;
  }
  status = found;
  return std::nullopt;
}

}  // namespace corvane
