#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/Files.h"
#include "tests/support/Protection.h"

namespace corvane {

static_assert(FileFlag::UserImmutable == UF_IMMUTABLE && FileFlag::UserAppend == UF_APPEND);

void setKernelFlags(const std::string& path, FileFlags flags) {
  require(::lchflags(path.c_str(), flags & (UF_IMMUTABLE | UF_APPEND)) == 0, path);
}

FileFlags kernelFlags(const std::string& path) {
  struct stat attributes {};
  require(::lstat(path.c_str(), &attributes) == 0, path);
  return attributes.st_flags & (UF_IMMUTABLE | UF_APPEND);
}

}  // namespace corvane
