#include "platform/linux/preferences/PreferencesWorker.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "foundation/PropertyList.h"
#include "platform/linux/processes/ForkedChild.h"

namespace corvane {

namespace {

/// In the folder of the file. No preferences have such names, since theirs end in ".plist".
constexpr const char* lockName = ".lock";
/// Belongs to whoever holds the lock; what a killed process left under this name is replaced.
constexpr const char* newName = ".new";

constexpr int safely = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

constexpr const char* accessList = "system.posix_acl_access";

/// Of the system's own attributes labels only: seals would not fit the new content.
bool isSystemsOwn(std::string_view attribute) {
  return attribute.starts_with("security.");
}
bool isLabel(std::string_view attribute) {
  return attribute == "security.selinux" || attribute == "security.SMACK64";
}

/// The library's functions would also tell threads that the child does not have.
bool takeOn(const User& user) {
  return ::syscall(SYS_setgroups, user.groups.size(), user.groups.data()) == 0 &&
         ::syscall(SYS_setresgid, user.gid, user.gid, user.gid) == 0 &&
         ::syscall(SYS_setresuid, user.uid, user.uid, user.uid) == 0;
}

class Worker {
 public:
  Worker(const PreferencesPlace& place, PreferencesAccess access, int socket, int memory)
      : _place(place), _access(access), _socket(socket), _memory(memory) {}

  void run() {
    // A missing folder is a missing file.
    const bool hasFolder = openFolder();
    if (!hasFolder && errno != ENOENT) return tell(errno);
    if (hasFolder && _access != PreferencesAccess::Read && !lock()) return tell(errno);
    if (!(hasFolder ? sendContent() : sendReport({}))) return;
    std::uint64_t size = 0;
    if (_access == PreferencesAccess::Read || !receive(size)) return;
    if (!hasFolder) return tell(ENOENT);
    tell(write(size) ? 0 : errno);
  }

 private:
  bool openFolder() {
    _folder.reset(::open(_place.anchor.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const std::string& name : _place.folders) {
      if (!_folder) return false;
      if (_access == PreferencesAccess::Create &&
          ::mkdirat(_folder.get(), name.c_str(), _place.folderMode) != 0 && errno != EEXIST) {
        return false;
      }
      _folder.reset(::openat(_folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | safely));
    }
    return static_cast<bool>(_folder);
  }

  bool isFileOfOwner(const struct stat& status) const {
    const bool isOfOwner = S_ISREG(status.st_mode) && status.st_uid == _place.owner;
    if (!isOfOwner) errno = EPERM;
    return isOfOwner;
  }

  /// Opens a file only if it is a plain one of the owner. Looked at first, because opening alone
  /// can set a device going, and again, because it may have been another one.
  FileDescriptor openFile(const char* name, int flags, struct stat& status) const {
    if (::fstatat(_folder.get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
      if (!isFileOfOwner(status)) return FileDescriptor();
    } else if (errno != ENOENT) {
      return FileDescriptor();
    }
    FileDescriptor file(::openat(_folder.get(), name, flags | safely, S_IRUSR | S_IWUSR));
    if (file && (::fstat(file.get(), &status) != 0 || !isFileOfOwner(status)))
      return FileDescriptor();
    return file;
  }

  bool lock() {
    struct stat status {};
    _lock = openFile(lockName, O_RDWR | O_CREAT, status);
    return _lock && ::flock(_lock.get(), LOCK_EX) == 0;
  }

  bool sendContent() {
    struct stat status {};
    FileDescriptor file = openFile(_place.fileName.c_str(), O_RDONLY, status);
    if (!file) {
      if (errno == ENOENT) return sendReport({});
      tell(errno);
      return false;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size > propertyListMaximumBytes) {
      tell(EFBIG);
      return false;
    }
    if (!copy(file.get(), _memory, size)) {
      tell(errno);
      return false;
    }
    _old = std::move(file);
    return sendReport({0, 1, size});
  }

  bool write(std::uint64_t size) {
    ::unlinkat(_folder.get(), newName, 0);
    const FileDescriptor file(
        ::openat(_folder.get(), newName, O_WRONLY | O_CREAT | O_EXCL | safely, 0600));
    if (!file) return false;
    const bool isWritten =
        ::lseek(_memory, 0, SEEK_SET) == 0 && copy(_memory, file.get(), size) &&
        (_old ? keepAttributes(file.get()) : ::fchmod(file.get(), _place.fileMode) == 0) &&
        ::fsync(file.get()) == 0 &&
        ::renameat(_folder.get(), newName, _folder.get(), _place.fileName.c_str()) == 0;
    if (!isWritten) {
      const int failure = errno;
      ::unlinkat(_folder.get(), newName, 0);
      errno = failure;
      return false;
    }
    // Whether the folder reaches the disk now or later, it names the old file or the new one,
    // whole.
    return true;
  }

  /// Gives `file` what the old one has beside its content.
  bool keepAttributes(int file) {
    struct stat old {};
    struct stat status {};
    if (::fstat(_old.get(), &old) != 0 || ::fstat(file, &status) != 0) return false;
    mode_t mode = old.st_mode & 0777U;
    if (status.st_gid != old.st_gid && ::fchown(file, static_cast<uid_t>(-1), old.st_gid) != 0) {
      if (errno != EPERM) return false;
      // What the old group may do is not for another one, beyond what everybody may.
      mode &= ~mode_t{S_IRWXG} | (mode & S_IRWXO) << 3U;
    }
    // The list that the folder gives to new files is not that of the old one.
    if (::fremovexattr(file, accessList) != 0 && errno != ENODATA && errno != ENOTSUP) return false;
    // Last the mode: with an access control list it bounds what that grants.
    return keepExtendedAttributes(file) && ::fchmod(file, mode) == 0;
  }

  bool keepExtendedAttributes(int file) {
    const ssize_t size = ::flistxattr(_old.get(), _names.data(), _names.size());
    if (size < 0) return errno == ENOTSUP;
    for (const char* name = _names.data(); name < _names.data() + size;
         name += std::strlen(name) + 1) {
      if (isSystemsOwn(name) && !isLabel(name)) continue;
      const ssize_t length = ::fgetxattr(_old.get(), name, _buffer.data(), _buffer.size());
      const bool isKept = length >= 0 ? ::fsetxattr(file, name, _buffer.data(),
                                                    static_cast<std::size_t>(length), 0) == 0
                                      : errno == ENODATA;  // gone meanwhile
      // Labels are the system's to give; that of a new file may have to do.
      if (!isKept && !isSystemsOwn(name)) return false;
    }
    return true;
  }

  bool copy(int from, int to, std::uint64_t size) {
    for (std::uint64_t rest = size; rest > 0;) {
      const ssize_t count =
          ::read(from, _buffer.data(), std::min<std::uint64_t>(rest, _buffer.size()));
      if (count == 0) errno = EIO;  // became shorter meanwhile
      if (count <= 0) return false;
      for (ssize_t done = 0; done < count;) {
        const ssize_t written =
            ::write(to, _buffer.data() + done, static_cast<std::size_t>(count - done));
        if (written < 0) return false;
        done += written;
      }
      rest -= static_cast<std::uint64_t>(count);
    }
    return true;
  }

  bool receive(std::uint64_t& size) const {
    return ::recv(_socket, &size, sizeof size, MSG_WAITALL) == sizeof size;
  }
  bool sendReport(PreferencesReport report) const {
    return ::send(_socket, &report, sizeof report, MSG_NOSIGNAL) == sizeof report;
  }
  void tell(int failure) const { sendReport({failure, 0, 0}); }

  const PreferencesPlace& _place;
  const PreferencesAccess _access;
  const int _socket;
  const int _memory;
  FileDescriptor _folder;
  FileDescriptor _lock;
  /// The file that is replaced.
  FileDescriptor _old;
  /// Large enough for the value of an extended attribute, and for the names of all.
  std::array<char, 65536> _buffer;
  std::array<char, 65536> _names;
};

}  // namespace

void runPreferencesWorker(const PreferencesPlace& place, PreferencesAccess access, int socket,
                          int memory) {
  leaveParentBehind(socket, memory);
  if (place.rights && !takeOn(*place.rights)) ::_exit(1);
  Worker worker(place, access, socket, memory);
  worker.run();
  ::_exit(0);
}

}  // namespace corvane
