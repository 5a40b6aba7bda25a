#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_ROOTFOLDER_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_ROOTFOLDER_H

#include <span>
#include <string>

#include <sys/stat.h>

#include "foundation/FileDescriptor.h"
#include "foundation/Result.h"
#include "foundation/Value.h"

namespace corvane {

/// Permissions of files in such a folder: of keys, and of rights, which are no secret.
inline constexpr mode_t rootAlone = S_IRUSR | S_IWUSR;
inline constexpr mode_t everyoneElseReads = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;

/// A folder that only root can change, and the small files in it: what it holds can be relied on.
/// Files appear in it complete or not at all. Errors are POSIX errors that name the path.
class RootFolder {
 public:
  /// Opens the folder. Refused with EPERM if it is not root's own or others may write to it.
  static Result<RootFolder> open(const std::string& path);
  /// The same, after making the folder and those above it as far as they are missing.
  static Result<RootFolder> openOrMake(const std::string& path);

  /// The bytes of a file, at most a megabyte. Refused with EPERM unless it is a regular file of
  /// root's own whose permissions are all among `permissions`.
  Result<Data> read(const std::string& name, mode_t permissions) const;
  /// Makes a file that must not exist yet; EEXIST if it does, even if it appears at the same time.
  Result<void> create(const std::string& name, std::span<const std::byte> bytes,
                      mode_t permissions) const;
  /// Makes a file or replaces it, and sees it safely to the disk.
  Result<void> replace(const std::string& name, std::span<const std::byte> bytes,
                       mode_t permissions) const;
  Result<void> remove(const std::string& name) const;

  /// What the host's `errno` value means for a file of this folder.
  Error errorOf(const std::string& name, int hostErrno) const;

 private:
  RootFolder(std::string path, FileDescriptor descriptor)
      : _path(std::move(path)), _descriptor(std::move(descriptor)) {}

  Result<void> writeTemporary(const std::string& name, std::span<const std::byte> bytes,
                              mode_t permissions) const;

  std::string _path;
  FileDescriptor _descriptor;
};

}  // namespace corvane

#endif
