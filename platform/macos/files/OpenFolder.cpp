#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane {

std::optional<Error> openFolder(int folder, const char* name, FileDescriptor& subfolder) {
  FileDescriptor opened;
  do {
    opened.reset(::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  } while (!opened && errno == EINTR);
  // A link is told apart from a loop of them: it is no folder.
  if (!opened) return posixErrorFromHost(errno == ELOOP ? ENOTDIR : errno);
  // Each mounted file system has a device of its own, also one that shows a part of another.
  struct stat above {};
  struct stat inside {};
  if (::fstatat(folder, ".", &above, 0) != 0 || ::fstat(opened.get(), &inside) != 0) {
    return posixErrorFromHost(errno);
  }
  if (above.st_dev != inside.st_dev) return posixError(POSIXErrorCode::Busy);
  subfolder = std::move(opened);
  return std::nullopt;
}

}  // namespace corvane
