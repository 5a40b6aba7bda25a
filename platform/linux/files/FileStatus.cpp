#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"
#include "platform/linux/files/FileFlagsAttribute.h"
#include "platform/linux/files/OpenObject.h"

namespace corvane {

namespace {

FileType typeOf(const struct statx& attributes) {
  if (S_ISDIR(attributes.stx_mode)) return FileType::Directory;
  if (S_ISLNK(attributes.stx_mode)) return FileType::SymbolicLink;
  // Overlay file systems mark what they hide with a character device that no driver has.
  const bool isWhiteout = S_ISCHR(attributes.stx_mode) && attributes.stx_rdev_major == 0 &&
                          attributes.stx_rdev_minor == 0;
  return isWhiteout ? FileType::Whiteout : FileType::Other;
}

std::optional<Error> query(int folder, const char* name, int flags, struct statx& attributes) {
  flags |= AT_NO_AUTOMOUNT;
  if (::statx(folder, name, flags, STATX_TYPE | STATX_INO, &attributes) == 0) return std::nullopt;
  const int failure = errno;
  // A file system that a user has mounted (FUSE) may refuse everybody else, root included, even the
  // status of its top folder. That it is a mount point can be asked all the same.
  const bool isClosedMountPoint = failure == EACCES &&
                                  ::statx(folder, name, flags, 0, &attributes) == 0 &&
                                  (attributes.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  return posixErrorFromHost(isClosedMountPoint ? EBUSY : failure);
}

// The status as the kernel tells it. Which of the flags are the system's, an attribute says; that
// is not looked at here.
FileStatus statusFrom(const struct statx& attributes) {
  return {typeOf(attributes),
          fileFlagsFromKernel((attributes.stx_attributes & STATX_ATTR_IMMUTABLE) != 0,
                              (attributes.stx_attributes & STATX_ATTR_APPEND) != 0),
          {::makedev(attributes.stx_dev_major, attributes.stx_dev_minor), attributes.stx_ino},
          (attributes.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0};
}

}  // namespace

std::optional<Error> statusOfObject(int object, FileStatus& status) {
  struct statx attributes {};
  if (auto error = query(object, "", AT_EMPTY_PATH, attributes)) return error;
  status = statusFrom(attributes);
  if (status.flags == 0) return std::nullopt;
  const auto flags = readFileFlagsAttributeOfObject(object);
  if (!flags) return flags.error();
  status.flags = flags->value_or(status.flags);
  return std::nullopt;
}

std::optional<Error> statusOf(int folder, const char* name, FinalLink link, FileStatus& status) {
  if (link == FinalLink::Follow) {
    FileDescriptor object;
    if (auto error = openObject(folder, name, link, object)) return error;
    return statusOfObject(object.get(), status);
  }
  struct statx attributes {};
  if (auto error = query(folder, name, AT_SYMLINK_NOFOLLOW, attributes)) return error;
  status = statusFrom(attributes);
  if (status.flags == 0) return std::nullopt;
  const auto flags = readFileFlagsAttributeAt(folder, name);
  if (!flags) return flags.error();
  status.flags = flags->value_or(status.flags);
  return std::nullopt;
}

}  // namespace corvane
