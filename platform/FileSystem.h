#ifndef CORVANE_PLATFORM_FILESYSTEM_H
#define CORVANE_PLATFORM_FILESYSTEM_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace corvane {

/// The protection flags of a file system object, by their bits in the BSD file flags word.
using FileFlags = std::uint32_t;
inline constexpr FileFlags UF_IMMUTABLE = 0x2;
inline constexpr FileFlags UF_APPEND = 0x4;
/// What only a system that is not in full operation clears.
inline constexpr FileFlags SF_IMMUTABLE = 0x20000;
inline constexpr FileFlags SF_APPEND = 0x40000;
/// Protected by System Integrity Protection: removal and every change of flags are refused.
inline constexpr FileFlags SF_RESTRICTED = 0x80000;

/// The types that are told apart. A whiteout hides an object of a lower layer of a union mount.
enum class FileType : std::uint8_t { Directory, SymbolicLink, Whiteout, Other };

/// What makes two names the same object, for as long as the object exists.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  bool operator==(const FileIdentity&) const = default;
};

struct FileStatus {
  FileType type = FileType::Other;
  FileFlags flags = 0;
  FileIdentity identity;
  /// True if the object is where a file system is mounted (or, bound, a part of one).
  bool isMountPoint = false;
};

// The services below work from an open folder, so that a path cannot come to mean something else
// between one call and the next; `folder` may also be AT_FDCWD. `name` ends in a zero byte and may
// hold every other. All are safe on any thread. Failures are errors in NSPOSIXErrorDomain.

/// Whether a symbolic link that stands at the end of a name is taken for itself or for its target.
enum class FinalLink : std::uint8_t { Keep, Follow };

/// Gets hold of an object, of whatever type, without opening what it stands for: a device, a fifo
/// or a socket does not notice. The result serves for `fstat` and `chflags` only.
std::optional<Error> openObject(int folder, const char* name, FinalLink link,
                                FileDescriptor& object);
/// Opens a subfolder (or "..") for reading and as the folder of other calls. A symbolic link fails
/// with ENOTDIR, a mount point with EBUSY.
std::optional<Error> openFolder(int folder, const char* name, FileDescriptor& subfolder);
/// Which folder is, at this moment, so many levels above an open one. 0 is the folder itself.
std::optional<Error> ancestorOf(int folder, std::size_t levels, FileIdentity& ancestor);

/// The status of an object; a final symbolic link is not followed. EBUSY for a mount point that
/// does not let its status be read.
std::optional<Error> lstat(int folder, const char* name, FileStatus& status);
std::optional<Error> fstat(int object, FileStatus& status);

/// Replaces the flags word of an object. A word that is already there is a success and writes
/// nothing. EPERM for an object with SF_RESTRICTED and for clearing a system flag; ENOTSUP for an
/// object that has no flags.
std::optional<Error> chflags(int object, FileFlags flags);

/// Removes what is not a directory.
std::optional<Error> unlink(int folder, const char* name);
/// Removes an empty directory.
std::optional<Error> rmdir(int folder, const char* name);

}  // namespace corvane

#endif
