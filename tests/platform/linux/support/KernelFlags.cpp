#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include "foundation/FileDescriptor.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"

namespace corvane {

void setKernelFlags(const std::string& path, FileFlags flags) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  int kernel = 0;
  require(file && ::ioctl(file.get(), FS_IOC_GETFLAGS, &kernel) == 0, path);
  kernel &= ~(FS_IMMUTABLE_FL | FS_APPEND_FL);
  if ((flags & FileFlag::UserImmutable) != 0) kernel |= FS_IMMUTABLE_FL;
  if ((flags & FileFlag::UserAppend) != 0) kernel |= FS_APPEND_FL;
  require(::ioctl(file.get(), FS_IOC_SETFLAGS, &kernel) == 0, path);
}

FileFlags kernelFlags(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  int kernel = 0;
  require(file && ::ioctl(file.get(), FS_IOC_GETFLAGS, &kernel) == 0, path);
  return ((kernel & FS_IMMUTABLE_FL) != 0 ? FileFlag::UserImmutable : 0) |
         ((kernel & FS_APPEND_FL) != 0 ? FileFlag::UserAppend : 0);
}

}  // namespace corvane
