#include <cerrno>

#include <fcntl.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane {

std::optional<Error> holdFolder(const char* path, FileDescriptor& folder) {
  folder.reset(::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return posixErrorFromHost(errno);
  return std::nullopt;
}

}  // namespace corvane
