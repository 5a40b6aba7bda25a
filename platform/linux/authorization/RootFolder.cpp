#include "platform/linux/authorization/RootFolder.h"

#include <array>
#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>

#include "foundation/POSIXError.h"

namespace corvane {

namespace {

constexpr off_t largestFile = off_t{1} << 20;

// A random name, as others may be writing at the same time. It begins with a point and has another
// ending, so nothing that looks for files in the folder takes it for one.
std::string temporaryNameFor(const std::string& name) {
  std::array<unsigned char, 8> random{};
  randombytes_buf(random.data(), random.size());
  std::array<char, 2 * random.size() + 1> text{};
  sodium_bin2hex(text.data(), text.size(), random.data(), random.size());
  return "." + name + "." + text.data();
}

bool isRootsAlone(const struct stat& status, mode_t permissions) {
  return status.st_uid == 0 && (status.st_mode & ALLPERMS & ~permissions) == 0;
}

// Makes the folder and those above it. A failure shows when it is opened; that somebody else has
// made it at the same time is none.
void makeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0755) == 0 || errno != ENOENT) return;
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return;
  makeFolder(path.substr(0, slash));
  ::mkdir(path.c_str(), 0755);
}

}  // namespace

Result<RootFolder> RootFolder::open(const std::string& path) {
  FileDescriptor descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status = {};
  if (!descriptor || ::fstat(descriptor.get(), &status) != 0) return posixErrorAbout(path, errno);
  constexpr mode_t nobodyElseWrites = 07755;
  if (!isRootsAlone(status, nobodyElseWrites)) return posixErrorAbout(path, EPERM);
  return RootFolder(path, std::move(descriptor));
}

Result<RootFolder> RootFolder::openOrMake(const std::string& path) {
  makeFolder(path);
  return open(path);
}

Result<Data> RootFolder::read(const std::string& name, mode_t permissions) const {
  const FileDescriptor file(::openat(_descriptor.get(), name.c_str(),
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status = {};
  if (!file || ::fstat(file.get(), &status) != 0) return errorOf(name, errno);
  if (!S_ISREG(status.st_mode) || !isRootsAlone(status, permissions)) return errorOf(name, EPERM);
  if (status.st_size > largestFile) return errorOf(name, EFBIG);

  Data bytes(static_cast<std::size_t>(status.st_size));
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = ::read(file.get(), bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errorOf(name, errno);
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  bytes.resize(done);
  return bytes;
}

Result<void> RootFolder::writeTemporary(const std::string& name, std::span<const std::byte> bytes,
                                        mode_t permissions) const {
  const FileDescriptor file(::openat(_descriptor.get(), name.c_str(),
                                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                     permissions));
  if (!file) return errorOf(name, errno);
  while (!bytes.empty()) {
    const ssize_t count = ::write(file.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errorOf(name, errno);
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  // The process's umask may have taken some of the permissions away when the file was made.
  if (::fchmod(file.get(), permissions) != 0 || ::fsync(file.get()) != 0) {
    return errorOf(name, errno);
  }
  return {};
}

Result<void> RootFolder::create(const std::string& name, std::span<const std::byte> bytes,
                                mode_t permissions) const {
  const std::string temporary = temporaryNameFor(name);
  Result<void> done = writeTemporary(temporary, bytes, permissions);
  // By linkat and not by renameat, which would replace a file that is there already.
  if (done &&
      ::linkat(_descriptor.get(), temporary.c_str(), _descriptor.get(), name.c_str(), 0) != 0) {
    done = errorOf(name, errno);
  }
  ::unlinkat(_descriptor.get(), temporary.c_str(), 0);
  return done;
}

Result<void> RootFolder::replace(const std::string& name, std::span<const std::byte> bytes,
                                 mode_t permissions) const {
  const std::string temporary = temporaryNameFor(name);
  Result<void> done = writeTemporary(temporary, bytes, permissions);
  if (done &&
      ::renameat(_descriptor.get(), temporary.c_str(), _descriptor.get(), name.c_str()) != 0) {
    done = errorOf(name, errno);
  }
  if (!done) {
    ::unlinkat(_descriptor.get(), temporary.c_str(), 0);
  } else if (::fsync(_descriptor.get()) != 0) {
    done = errorOf(name, errno);
  }
  return done;
}

Result<void> RootFolder::remove(const std::string& name) const {
  if (::unlinkat(_descriptor.get(), name.c_str(), 0) != 0) return errorOf(name, errno);
  return {};
}

Error RootFolder::errorOf(const std::string& name, int hostErrno) const {
  return posixErrorAbout(_path + "/" + name, hostErrno);
}

}  // namespace corvane
