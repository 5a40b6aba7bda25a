#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane {

std::optional<Error> removeFile(int folder, const char* name) {
  if (::unlinkat(folder, name, 0) != 0) return posixErrorFromHost(errno);
  return std::nullopt;
}

}  // namespace corvane
