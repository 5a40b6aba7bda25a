#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_FILESTAMP_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_FILESTAMP_H

#include <cstdint>
#include <optional>
#include <string>

#include <sys/types.h>

namespace corvane {

/// What tells one state of a file from another without reading it, so that what was read once can
/// be kept. Costs one system call.
struct FileStamp {
  dev_t device;
  ino_t inode;
  off_t size;
  std::int64_t changedSeconds;
  std::int64_t changedNanoseconds;

  /// The stamp of the file at `path`; nothing if there is none.
  static std::optional<FileStamp> of(const std::string& path);

  /// False while the file changed so recently that a further change could leave the same stamp:
  /// the kernel's file times advance in steps.
  bool isSettled() const;

  bool operator==(const FileStamp&) const = default;
};

}  // namespace corvane

#endif
