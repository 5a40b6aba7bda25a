#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"
#include "platform/linux/FileFlagsAttribute.h"

namespace corvane {

namespace {

constexpr FileFlags systemFlags = SF_IMMUTABLE | SF_APPEND | SF_RESTRICTED;
constexpr FileFlags knownFlags = UF_IMMUTABLE | UF_APPEND | systemFlags;
constexpr FileFlags immutableFlags = UF_IMMUTABLE | SF_IMMUTABLE | SF_RESTRICTED;
constexpr FileFlags appendFlags = UF_APPEND | SF_APPEND;
constexpr int kernelProtection = FS_IMMUTABLE_FL | FS_APPEND_FL;

constexpr int kernelProtectionFor(FileFlags flags) {
  return ((flags & immutableFlags) != 0 ? FS_IMMUTABLE_FL : 0) |
         ((flags & appendFlags) != 0 ? FS_APPEND_FL : 0);
}

// A file system that does not know the request says so in several ways.
Error errorOfFlagsRequest(int hostErrno) {
  return posixErrorFromHost(hostErrno == ENOTTY || hostErrno == ENOSYS ? ENOTSUP : hostErrno);
}

std::optional<Error> setKernelFlags(int file, int flags) {
  if (::ioctl(file, FS_IOC_SETFLAGS, &flags) != 0) return errorOfFlagsRequest(errno);
  return std::nullopt;
}

std::optional<Error> writeAttribute(int file, std::optional<FileFlags> flags) {
  if (!flags) {
    if (::fremovexattr(file, fileFlagsAttribute) == 0) return std::nullopt;
  } else {
    char text[16];
    const int length = std::snprintf(text, sizeof text, "0x%x", *flags);
    if (::fsetxattr(file, fileFlagsAttribute, text, static_cast<std::size_t>(length), 0) == 0) {
      return std::nullopt;
    }
  }
  return posixErrorFromHost(errno);
}

// Opens what `object` is a handle of, so that flags can be written. Only what opens without an
// effect on anything: the type is asked of the very object that is opened.
std::optional<Error> reopen(int object, FileDescriptor& file) {
  struct stat attributes {};
  if (::fstat(object, &attributes) != 0) return posixErrorFromHost(errno);
  if (!S_ISREG(attributes.st_mode) && !S_ISDIR(attributes.st_mode)) {
    return posixError(POSIXErrorCode::NotSupported);
  }
  file.reset(::open(pathOfDescriptor(object).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (!file) return posixErrorFromHost(errno);
  return std::nullopt;
}

}  // namespace

std::optional<Error> chflags(int object, FileFlags flags) {
  FileStatus status;
  if (auto error = fstat(object, status)) return error;
  if ((status.flags & SF_RESTRICTED) != 0) return posixError(POSIXErrorCode::NotPermitted);
  if (flags == status.flags) return std::nullopt;
  if ((status.flags & systemFlags & ~flags) != 0) return posixError(POSIXErrorCode::NotPermitted);
  if ((flags & ~knownFlags) != 0) return posixError(POSIXErrorCode::NotSupported);

  FileDescriptor file;
  if (auto error = reopen(object, file)) return error;
  int current = 0;
  if (::ioctl(file.get(), FS_IOC_GETFLAGS, &current) != 0) return errorOfFlagsRequest(errno);
  const int unprotected = current & ~kernelProtection;
  const int wanted = unprotected | kernelProtectionFor(flags);

  std::optional<FileFlags> attribute;
  if (auto error = readFileFlagsAttribute(file.get(), attribute)) return error;
  std::optional<FileFlags> wantedAttribute;
  if (flags != fileFlagsFromKernel((wanted & FS_IMMUTABLE_FL) != 0, (wanted & FS_APPEND_FL) != 0)) {
    wantedAttribute = flags;
  }
  if (attribute != wantedAttribute) {
    // The kernel lets nobody write an attribute of an object that it protects.
    if (current != unprotected) {
      if (auto error = setKernelFlags(file.get(), unprotected)) return error;
    }
    if (auto error = writeAttribute(file.get(), wantedAttribute)) {
      if (current != unprotected) setKernelFlags(file.get(), current);
      return error;
    }
    current = unprotected;
  }
  if (current == wanted) return std::nullopt;
  return setKernelFlags(file.get(), wanted);
}

}  // namespace corvane
