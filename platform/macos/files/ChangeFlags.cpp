#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/attr.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane {

namespace {

constexpr FileFlags systemFlags =
    FileFlag::SystemImmutable | FileFlag::SystemAppend | FileFlag::Restricted;

bool isDone(FileFlags current, FileFlags wanted) {
  return current == wanted && (current & FileFlag::Restricted) == 0;
}

// Nothing if the flags may be changed from `current` to `wanted`, which differs; else why not. The
// system would say the same, but lets root clear its flags before it is in full operation.
std::optional<Error> checkChange(FileFlags current, FileFlags wanted) {
  if ((current & FileFlag::Restricted) != 0 || (current & systemFlags & ~wanted) != 0) {
    return posixError(POSIXErrorCode::NotPermitted);
  }
  return std::nullopt;
}

// An object that would notice if it were opened has its flags changed through its number, as the
// system's own file system of numbers has it: its name may have come to mean another object by now,
// whose flags were not read.
std::optional<Error> changeFlagsByNumber(const struct stat& object, FileFlags flags) {
  const std::string path =
      "/.vol/" + std::to_string(object.st_dev) + "/" + std::to_string(object.st_ino);
  attrlist changed{};
  changed.bitmapcount = ATTR_BIT_MAP_COUNT;
  changed.commonattr = ATTR_CMN_FLAGS;
  std::uint32_t word = flags;
  if (::setattrlistat(AT_FDCWD, path.c_str(), &changed, &word, sizeof word, FSOPT_NOFOLLOW) != 0) {
    // A file system whose objects cannot be reached so has no flags that could be changed safely.
    return errno == ENOENT ? posixError(POSIXErrorCode::NotSupported) : posixErrorFromHost(errno);
  }
  return std::nullopt;
}

bool isOpenedWithoutEffect(mode_t mode) {
  return S_ISREG(mode) || S_ISDIR(mode) || S_ISLNK(mode);
}

}  // namespace

std::optional<Error> changeFlags(int folder, const char* name, FinalLink link, FileFlags clear,
                                 FileFlags set) {
  const bool isKept = link == FinalLink::Keep;
  struct stat attributes {};
  if (::fstatat(folder, name, &attributes, isKept ? AT_SYMLINK_NOFOLLOW : 0) != 0) {
    return posixErrorFromHost(errno);
  }
  FileDescriptor object;
  if (isOpenedWithoutEffect(attributes.st_mode)) {
    // For events only: its volume is not kept from unmounting meanwhile. A link is opened itself.
    object.reset(
        ::openat(folder, name, O_EVTONLY | O_NONBLOCK | O_CLOEXEC | (isKept ? O_SYMLINK : 0)));
    // Of the object that was opened, whatever the name has come to mean.
    if (!object || ::fstat(object.get(), &attributes) != 0) return posixErrorFromHost(errno);
  }
  const FileFlags current = attributes.st_flags;
  const FileFlags wanted = (current & ~clear) | set;
  if (isDone(current, wanted)) return std::nullopt;
  if (auto error = checkChange(current, wanted)) return error;
  if (!object) return changeFlagsByNumber(attributes, wanted);
  if (::fchflags(object.get(), wanted) != 0) return posixErrorFromHost(errno);
  return std::nullopt;
}

}  // namespace corvane
