#ifndef CORVANE_PLATFORM_POSIX_INSTALLATIONLOCK_H
#define CORVANE_PLATFORM_POSIX_INSTALLATIONLOCK_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "foundation/FileDescriptor.h"
#include "foundation/Result.h"

namespace corvane {

/// Of several processes that take the lock at `path` one has it at a time, for as long as it keeps
/// this object. The file is there while the lock is held, in a folder that only root can change,
/// and only root can open it: nobody else can hold anybody up.
class InstallationLock {
 public:
  explicit InstallationLock(std::string path) : _path(std::move(path)) {}
  InstallationLock(const InstallationLock&) = delete;
  InstallationLock& operator=(const InstallationLock&) = delete;
  ~InstallationLock();

  /// Takes the lock, if need be after some time, which `patience` limits. If it has to wait,
  /// `onWait` is told once which process has the lock, or 0 if that is not known.
  Result<void> take(std::chrono::milliseconds patience,
                    const std::function<void(std::int32_t)>& onWait);

 private:
  bool isHeld(const FileDescriptor& file) const;

  std::string _path;
  FileDescriptor _file;
};

}  // namespace corvane

#endif
