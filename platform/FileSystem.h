#ifndef CORVANE_PLATFORM_FILESYSTEM_H
#define CORVANE_PLATFORM_FILESYSTEM_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace corvane {

/// The protection flags of a file system object: a set of those below, by their bits in the BSD
/// file flags word.
using FileFlags = std::uint32_t;
namespace FileFlag {
inline constexpr FileFlags UserImmutable = 0x2;  ///< UF_IMMUTABLE
inline constexpr FileFlags UserAppend = 0x4;     ///< UF_APPEND
// What only a system that is not in full operation clears.
inline constexpr FileFlags SystemImmutable = 0x20000;  ///< SF_IMMUTABLE
inline constexpr FileFlags SystemAppend = 0x40000;     ///< SF_APPEND
/// SF_RESTRICTED. Protected by System Integrity Protection: removal and every change of flags are
/// refused.
inline constexpr FileFlags Restricted = 0x80000;
}  // namespace FileFlag

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

/// Gets hold of the folder that `path` leads to, links followed, as the folder of other calls. It
/// need not be readable.
std::optional<Error> holdFolder(const char* path, FileDescriptor& folder);
/// Opens a subfolder (or "..") for reading and as the folder of other calls. A symbolic link fails
/// with ENOTDIR, a mount point with EBUSY.
std::optional<Error> openFolder(int folder, const char* name, FileDescriptor& subfolder);
/// Which folder is, at this moment, so many levels above an open one. 0 is the folder itself.
std::optional<Error> ancestorOf(int folder, std::size_t levels, FileIdentity& ancestor);

// An object of whatever type is asked for its status and its flags without being opened for use: a
// device, a fifo or a socket does not notice.

/// The status of an object. EBUSY for a mount point that does not let its status be read.
std::optional<Error> statusOf(int folder, const char* name, FinalLink link, FileStatus& status);

/// Takes the flags `clear` from an object and gives it the flags `set`, which are read from and
/// written to one and the same object, whatever the name comes to mean meanwhile. Flags that are
/// already so are a success, and nothing is written. EPERM for an object with FileFlag::Restricted
/// and for clearing a system flag; ENOTSUP for an object that has no flags.
std::optional<Error> changeFlags(int folder, const char* name, FinalLink link, FileFlags clear,
                                 FileFlags set);

/// Removes what is not a directory.
std::optional<Error> removeFile(int folder, const char* name);
/// Removes an empty directory.
std::optional<Error> removeFolder(int folder, const char* name);

}  // namespace corvane

#endif
