#include <cerrno>

#include <fcntl.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane {

namespace {

FileDescriptor opened(const char* path, int flags) {
  FileDescriptor folder;
  do {
    folder.reset(::open(path, flags | O_DIRECTORY | O_CLOEXEC));
  } while (!folder && errno == EINTR);
  return folder;
}

}  // namespace

// Root opens what it may not read. For others there is a way to hold such a folder from macOS 13
// on: before, it has to be readable.
std::optional<Error> holdFolder(const char* path, FileDescriptor& folder) {
  folder = opened(path, O_RDONLY);
  if (!folder && errno == EACCES) folder = opened(path, O_SEARCH);
  if (!folder) return posixErrorFromHost(errno);
  return std::nullopt;
}

}  // namespace corvane
