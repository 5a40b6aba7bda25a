#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"
#include "platform/linux/files/FileFlagsAttribute.h"
#include "platform/linux/files/OpenObject.h"

namespace corvane {

namespace {

constexpr FileFlags systemFlags =
    FileFlag::SystemImmutable | FileFlag::SystemAppend | FileFlag::Restricted;
constexpr FileFlags knownFlags = FileFlag::UserImmutable | FileFlag::UserAppend | systemFlags;
constexpr FileFlags immutableFlags =
    FileFlag::UserImmutable | FileFlag::SystemImmutable | FileFlag::Restricted;
constexpr FileFlags appendFlags = FileFlag::UserAppend | FileFlag::SystemAppend;
constexpr int kernelProtection = FS_IMMUTABLE_FL | FS_APPEND_FL;

constexpr int kernelProtectionFor(FileFlags flags) {
  return ((flags & immutableFlags) != 0 ? FS_IMMUTABLE_FL : 0) |
         ((flags & appendFlags) != 0 ? FS_APPEND_FL : 0);
}

constexpr FileFlags wordOfKernelFlags(int flags) {
  return fileFlagsFromKernel((flags & FS_IMMUTABLE_FL) != 0, (flags & FS_APPEND_FL) != 0);
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

bool isDone(FileFlags current, FileFlags wanted) {
  return current == wanted && (current & FileFlag::Restricted) == 0;
}

// Nothing if the flags may be changed from `current` to `wanted`, which differs; else why not.
std::optional<Error> checkChange(FileFlags current, FileFlags wanted) {
  if ((current & FileFlag::Restricted) != 0 || (current & systemFlags & ~wanted) != 0) {
    return posixError(POSIXErrorCode::NotPermitted);
  }
  if ((wanted & ~knownFlags) != 0) return posixError(POSIXErrorCode::NotSupported);
  return std::nullopt;
}

std::optional<Error> changeFlagsOfFile(int file, FileFlags clear, FileFlags set) {
  int kernelFlags = 0;
  if (::ioctl(file, FS_IOC_GETFLAGS, &kernelFlags) != 0) return errorOfFlagsRequest(errno);
  const auto read = readFileFlagsAttributeOfFile(file);
  if (!read) return read.error();
  const std::optional<FileFlags> attribute = *read;

  const int unprotected = kernelFlags & ~kernelProtection;
  // A process that may not see the attribute is told that there is none, and would then clear a
  // system flag, which it would take for one of the user's.
  if (kernelFlags != unprotected && !attribute && !maySeeFileFlagsAttributes()) {
    return posixError(POSIXErrorCode::NotPermitted);
  }
  FileFlags current = wordOfKernelFlags(kernelFlags);
  if (current != 0) current = attribute.value_or(current);
  const FileFlags flags = (current & ~clear) | set;
  if (isDone(current, flags)) return std::nullopt;
  if (auto error = checkChange(current, flags)) return error;

  const int wanted = unprotected | kernelProtectionFor(flags);
  std::optional<FileFlags> wantedAttribute;
  if (flags != wordOfKernelFlags(wanted)) wantedAttribute = flags;
  if (attribute != wantedAttribute) {
    // The kernel lets nobody write an attribute of an object that it protects.
    if (kernelFlags != unprotected) {
      if (auto error = setKernelFlags(file, unprotected)) return error;
    }
    if (auto error = writeAttribute(file, wantedAttribute)) {
      if (kernelFlags != unprotected) setKernelFlags(file, kernelFlags);
      return error;
    }
    kernelFlags = unprotected;
  }
  return kernelFlags == wanted ? std::nullopt : setKernelFlags(file, wanted);
}

}  // namespace

std::optional<Error> changeFlags(int folder, const char* name, FinalLink link, FileFlags clear,
                                 FileFlags set) {
  FileDescriptor object;
  if (auto error = openObject(folder, name, link, object)) return error;
  // Only files and folders are opened: to open a device or a fifo may have effects. The type is
  // asked of the object itself and not of a name, so it cannot change before the opening.
  struct statx attributes {};
  if (::statx(object.get(), "", AT_EMPTY_PATH, STATX_TYPE, &attributes) != 0) {
    return posixErrorFromHost(errno);
  }
  if (!S_ISREG(attributes.stx_mode) && !S_ISDIR(attributes.stx_mode)) {
    FileStatus status;
    if (auto error = statusOfObject(object.get(), status)) return error;
    const FileFlags flags = (status.flags & ~clear) | set;
    if (isDone(status.flags, flags)) return std::nullopt;
    if (auto error = checkChange(status.flags, flags)) return error;
    return posixError(POSIXErrorCode::NotSupported);
  }
  const bool isProtected =
      (attributes.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
  if (!isProtected && set == 0) return std::nullopt;
  // Without O_NONBLOCK, another process's lease on the file would make this wait for its end.
  const FileDescriptor file(
      ::open(pathOfDescriptor(object.get()).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!file) return posixErrorFromHost(errno);
  return changeFlagsOfFile(file.get(), clear, set);
}

}  // namespace corvane
