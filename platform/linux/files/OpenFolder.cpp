#include <cerrno>
#include <cstdint>
#include <fstream>
#include <string>
#include <utility>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane {

namespace {

constexpr int openFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The number of the mount that a folder was opened through; 0 if the kernel does not tell. This
// works on kernels whose statx does not have it yet.
std::uint64_t mountInDescriptorInformation(int folder) {
  std::ifstream file("/proc/self/fdinfo/" + std::to_string(folder));
  std::string key;
  std::uint64_t value = 0;
  while (file >> key) {
    if (key == "mnt_id:") return file >> value ? value : 0;
    std::getline(file, key);
  }
  return 0;
}

std::uint64_t mountOf(int folder) {
  struct statx attributes {};
  const bool isKnown =
      ::statx(folder, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_MNT_ID, &attributes) == 0 &&
      (attributes.stx_mask & STATX_MNT_ID) != 0;
  return isKnown ? attributes.stx_mnt_id : mountInDescriptorInformation(folder);
}

// The two ways to open; each gives the host's error, or 0.

int openAtOnce(int folder, const char* name, FileDescriptor& subfolder) {
  open_how how{};
  how.flags = openFlags;
  how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
  subfolder.reset(static_cast<int>(::syscall(SYS_openat2, folder, name, &how, sizeof how)));
  return subfolder ? 0 : errno;
}

// Does the same without openat2. As the name is a single component, O_NOFOLLOW is enough against
// links; and a mount keeps its number while a folder of it is open, so the comparison holds.
int openInSteps(int folder, const char* name, FileDescriptor& subfolder) {
  FileDescriptor opened(::openat(folder, name, openFlags));
  if (!opened) return errno;
  const std::uint64_t mount = mountOf(folder);
  if (mount == 0) return ENOTSUP;
  if (mountOf(opened.get()) != mount) return EXDEV;
  subfolder = std::move(opened);
  return 0;
}

// openat2 is missing in older kernels (ENOSYS). Filters of system calls, which cannot see into its
// argument, may forbid it to a whole service (ENOSYS or EPERM).
int open(int folder, const char* name, FileDescriptor& subfolder) {
  const int failure = openAtOnce(folder, name, subfolder);
  const bool isMissing = failure == ENOSYS || failure == EPERM;
  return isMissing ? openInSteps(folder, name, subfolder) : failure;
}

}  // namespace

std::optional<Error> openFolder(int folder, const char* name, FileDescriptor& subfolder) {
  int failure = 0;
  do {
    failure = open(folder, name, subfolder);
  } while (failure == EINTR);
  switch (failure) {
    case 0:
      return std::nullopt;
    case EXDEV:
      return posixError(POSIXErrorCode::Busy);
    case ELOOP:
      return posixError(POSIXErrorCode::NotDirectory);
    default:
      return posixErrorFromHost(failure);
  }
}

}  // namespace corvane
