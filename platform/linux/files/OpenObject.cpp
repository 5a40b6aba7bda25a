#include "platform/linux/files/OpenObject.h"

#include <cerrno>

#include <fcntl.h>

#include "foundation/POSIXError.h"

namespace corvane {

std::optional<Error> openObject(int folder, const char* name, FinalLink link,
                                FileDescriptor& object) {
  const int descriptor =
      ::openat(folder, name, O_PATH | O_CLOEXEC | (link == FinalLink::Keep ? O_NOFOLLOW : 0));
  if (descriptor < 0) return posixErrorFromHost(errno);
  object.reset(descriptor);
  return std::nullopt;
}

}  // namespace corvane
