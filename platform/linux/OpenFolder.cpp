#include <cerrno>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane {

std::optional<Error> openFolder(int folder, const char* name, FileDescriptor& subfolder) {
  open_how how{};
  how.flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
  long descriptor = -1;
  do {
    descriptor = ::syscall(SYS_openat2, folder, name, &how, sizeof how);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) {
    switch (errno) {
      case EXDEV:
        return posixError(POSIXErrorCode::Busy);
      case ELOOP:
        return posixError(POSIXErrorCode::NotDirectory);
      default:
        return posixErrorFromHost(errno);
    }
  }
  subfolder.reset(static_cast<int>(descriptor));
  return std::nullopt;
}

}  // namespace corvane
