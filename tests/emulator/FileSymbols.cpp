#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/emulator/Image.h"
#include "tests/emulator/Symbols.h"

namespace emulator {

namespace {

struct Flag {
  int darwin;
  int host;
};
constexpr Flag openFlags[] = {{0x1, O_WRONLY},
                              {0x2, O_RDWR},
                              {0x4, O_NONBLOCK},
                              {0x8, O_APPEND},
                              {0x100, O_NOFOLLOW},
                              {0x200, O_CREAT},
                              {0x400, O_TRUNC},
                              {0x800, O_EXCL},
                              {0x20000, O_NOCTTY},
                              {0x100000, O_DIRECTORY},
                              // To look at, not to use; of a link the link itself.
                              {0x8000, O_PATH},
                              {0x200000, O_NOFOLLOW},
                              {0x1000000, O_CLOEXEC}};
constexpr Flag atFlags[] = {
    {0x20, AT_SYMLINK_NOFOLLOW}, {0x40, AT_SYMLINK_FOLLOW}, {0x80, AT_REMOVEDIR}};

// The flags of this system for those of macOS. One that is not known is a mistake to be seen.
template <std::size_t count>
int hostFlags(const Flag (&table)[count], int flags, const char* of) {
  int found = 0;
  for (const Flag& flag : table) {
    if ((flags & flag.darwin) == 0) continue;
    found |= flag.host;
    flags &= ~flag.darwin;
  }
  if (flags != 0)
    fail("flags of " + std::string(of) + " that are not known: " + std::to_string(flags));
  return found;
}

int hostFolder(int folder) {
  constexpr int darwinCurrentFolder = -2;
  return folder == darwinCurrentFolder ? AT_FDCWD : folder;
}

constexpr int hasMode = 0x200;

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & hasMode) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
  va_end(arguments);
  return ::open(path, hostFlags(openFlags, flags, "open"), mode);
}
int openAt(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & hasMode) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
  va_end(arguments);
  return ::openat(hostFolder(folder), path, hostFlags(openFlags, flags, "openat"), mode);
}
int unlinkAt(int folder, const char* path, int flags) {
  return ::unlinkat(hostFolder(folder), path, hostFlags(atFlags, flags, "unlinkat"));
}

int linkAt(int from, const char* path, int to, const char* name, int flags) {
  return ::linkat(hostFolder(from), path, hostFolder(to), name,
                  hostFlags(atFlags, flags, "linkat"));
}

struct DarwinStatus {
  std::int32_t device;
  std::uint16_t mode;
  std::uint16_t links;
  std::uint64_t inode;
  std::uint32_t user;
  std::uint32_t group;
  std::int32_t represents;
  timespec access;
  timespec change;
  timespec statusChange;
  timespec birth;
  std::int64_t size;
  std::int64_t blocks;
  std::int32_t blockSize;
  std::uint32_t flags;
  std::uint32_t generation;
  std::int32_t spare;
  std::int64_t spares[2];
};
static_assert(sizeof(DarwinStatus) == 144 && offsetof(DarwinStatus, size) == 96);

// The flags that this system has, too, as those of users. Of what cannot be opened there are none.
constexpr std::uint32_t immutable = 0x2;
constexpr std::uint32_t appendOnly = 0x4;

// One that was opened to look at the object only is opened again.
int flagsRequest(int descriptor, unsigned long request, int* flags) {
  const int result = ::ioctl(descriptor, request, flags);
  if (result == 0 || errno != EBADF) return result;
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return -1;
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    errno = ENOTTY;
    return -1;
  }
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  const int readable = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (readable < 0) return -1;
  const int again = ::ioctl(readable, request, flags);
  const int error = errno;
  ::close(readable);
  errno = error;
  return again;
}

std::uint32_t flagsOf(int descriptor) {
  int flags = 0;
  if (flagsRequest(descriptor, FS_IOC_GETFLAGS, &flags) != 0) return 0;
  return ((flags & FS_IMMUTABLE_FL) != 0 ? immutable : 0) |
         ((flags & FS_APPEND_FL) != 0 ? appendOnly : 0);
}
int setFlagsOf(int descriptor, std::uint32_t wanted) {
  if ((wanted & ~(immutable | appendOnly)) != 0) fail("flags of a file that are not known");
  int flags = 0;
  if (flagsRequest(descriptor, FS_IOC_GETFLAGS, &flags) != 0) return -1;
  flags &= ~(FS_IMMUTABLE_FL | FS_APPEND_FL);
  if ((wanted & immutable) != 0) flags |= FS_IMMUTABLE_FL;
  if ((wanted & appendOnly) != 0) flags |= FS_APPEND_FL;
  return flagsRequest(descriptor, FS_IOC_SETFLAGS, &flags);
}
template <typename Work>
auto withOpened(int folder, const char* path, Work work) {
  const int descriptor =
      ::openat(folder, path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  const auto result = work(descriptor);
  const int error = errno;
  if (descriptor >= 0) ::close(descriptor);
  errno = error;
  return result;
}
std::uint32_t flagsAt(int folder, const char* path, const struct stat& status) {
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return 0;
  const int error = errno;
  const std::uint32_t flags = withOpened(folder, path, flagsOf);
  errno = error;
  return flags;
}
int setFlagsAt(const char* path, std::uint32_t flags) {
  return withOpened(AT_FDCWD, path, [&](int opened) { return setFlagsOf(opened, flags); });
}

int give(const struct stat& status, std::uint32_t flags, DarwinStatus* result) {
  *result = {static_cast<std::int32_t>(status.st_dev),
             static_cast<std::uint16_t>(status.st_mode),
             static_cast<std::uint16_t>(status.st_nlink),
             status.st_ino,
             status.st_uid,
             status.st_gid,
             static_cast<std::int32_t>(status.st_rdev),
             status.st_atim,
             status.st_mtim,
             status.st_ctim,
             status.st_ctim,
             status.st_size,
             status.st_blocks,
             static_cast<std::int32_t>(status.st_blksize),
             flags,
             0,
             0,
             {0, 0}};
  return 0;
}
int statusOf(const char* path, DarwinStatus* result) {
  struct stat status {};
  if (::stat(path, &status) != 0) return -1;
  return give(status, flagsAt(AT_FDCWD, path, status), result);
}
int statusOfLink(const char* path, DarwinStatus* result) {
  struct stat status {};
  if (::lstat(path, &status) != 0) return -1;
  return give(status, flagsAt(AT_FDCWD, path, status), result);
}
int statusOfOpen(int descriptor, DarwinStatus* result) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return -1;
  const int error = errno;
  const std::uint32_t flags = flagsOf(descriptor);
  errno = error;
  return give(status, flags, result);
}
int statusAt(int folder, const char* path, DarwinStatus* result, int flags) {
  struct stat status {};
  const int found =
      ::fstatat(hostFolder(folder), path, &status, hostFlags(atFlags, flags, "fstatat"));
  if (found != 0) return -1;
  return give(status, flagsAt(hostFolder(folder), path, status), result);
}

int control(int descriptor, int command, long argument) {
  constexpr int duplicateClosedOnExecution = 67;
  switch (command) {
    case F_DUPFD:
    case F_GETFD:
    case F_SETFD:
      return ::fcntl(descriptor, command, argument);
    case duplicateClosedOnExecution:
      return ::fcntl(descriptor, F_DUPFD_CLOEXEC, argument);
    default:
      fail("a command of fcntl that is not known: " + std::to_string(command));
  }
}

int deviceControl(int descriptor, unsigned long request, int* argument) {
  constexpr unsigned long readableBytes = 0x4004667f;
  if (request != readableBytes) fail("a request that is not known: " + std::to_string(request));
  return ::ioctl(descriptor, FIONREAD, argument);
}

struct DarwinEntry {
  std::uint64_t inode;
  std::uint64_t position;
  std::uint16_t size;
  std::uint16_t nameLength;
  std::uint8_t type;
  std::array<char, 1024> name;
};
static_assert(offsetof(DarwinEntry, name) == 21);

DIR* openFolder(const char* path) {
  return ::opendir(path);
}
DIR* openFolderOf(int descriptor) {
  return ::fdopendir(descriptor);
}
// The kinds of entries have the same numbers.
DarwinEntry* nextEntry(DIR* folder) {
  thread_local DarwinEntry result;
  const dirent* const entry = ::readdir(folder);  // NOLINT(concurrency-mt-unsafe)
  if (entry == nullptr) return nullptr;
  const std::size_t length = std::strlen(entry->d_name);
  result = {entry->d_ino, 0, sizeof result, static_cast<std::uint16_t>(length), entry->d_type, {}};
  std::memcpy(result.name.data(), entry->d_name, length);
  return &result;
}

struct AttributeList {
  std::uint16_t count;
  std::uint16_t reserved;
  std::uint32_t common;
  std::uint32_t volume;
  std::uint32_t directory;
  std::uint32_t file;
  std::uint32_t fork;
};
struct MountStatus {
  std::uint32_t size;
  std::uint32_t status;
};

// Whether a file system is mounted on a folder, which is all that is asked here.
int attributesAt(int folder, const char* path, const AttributeList* wanted, MountStatus* answer,
                 std::size_t size, unsigned long options) {
  constexpr std::uint32_t mountStatus = 4;
  constexpr std::uint32_t isMountPoint = 1;
  constexpr unsigned long noFollow = 1;
  const bool isKnown = wanted->count == 5 && wanted->common == 0 && wanted->volume == 0 &&
                       wanted->directory == mountStatus && wanted->file == 0 && wanted->fork == 0 &&
                       size == sizeof *answer && (options & ~noFollow) == 0;
  if (!isKnown) fail("attributes that are not known");
  struct statx status {};
  const int flags = (options & noFollow) != 0 ? AT_SYMLINK_NOFOLLOW : 0;
  if (::statx(hostFolder(folder), path, flags, STATX_BASIC_STATS, &status) != 0) return -1;
  const bool isRoot = (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  *answer = {sizeof *answer, isRoot ? isMountPoint : 0};
  return 0;
}

// What copies a file has a state, of which nothing is asked here.
void* newCopyState() {
  static char state = 0;
  return &state;
}
int freeCopyState(void* /*state*/) {
  return 0;
}
int copyFile(int from, int to, void* /*state*/, std::uint32_t what) {
  constexpr std::uint32_t content = 8;
  if (what != content) fail("a way to copy that is not known: " + std::to_string(what));
  std::array<char, 65536> buffer;
  ssize_t count = 0;
  while ((count = ::read(from, buffer.data(), buffer.size())) > 0) {
    if (::write(to, buffer.data(), static_cast<std::size_t>(count)) != count) return -1;
  }
  return count == 0 ? 0 : -1;
}

char* realPath(const char* path, char* result) {
  return ::realpath(path, result);
}

}  // namespace

std::span<const Symbol> fileSymbols() {
  static const Symbol symbols[] = {
      {"___stdinp", static_cast<void*>(&stdin)},
      {"___stdoutp", static_cast<void*>(&stdout)},
      {"___stderrp", static_cast<void*>(&stderr)},
      function("_open", &open),
      function("_openat", &openAt),
      function("_unlinkat", &unlinkAt),
      function("_linkat", &linkAt),
      function("_fcntl", &control),
      function("_ioctl", &deviceControl),
      function("_getattrlistat", &attributesAt),
      function("_opendir$INODE64", &openFolder),
      function("_fdopendir$INODE64", &openFolderOf),
      function("_readdir$INODE64", &nextEntry),
      function("_stat$INODE64", &statusOf),
      function("_lstat$INODE64", &statusOfLink),
      function("_fstat$INODE64", &statusOfOpen),
      function("_fstatat$INODE64", &statusAt),
      function("_realpath$DARWIN_EXTSN", &realPath),
      function("_copyfile_state_alloc", &newCopyState),
      function("_copyfile_state_free", &freeCopyState),
      function("_fcopyfile", &copyFile),
      function("_fchflags", &setFlagsOf),
      function("_lchflags", &setFlagsAt),
  };
  return symbols;
}

}  // namespace emulator
