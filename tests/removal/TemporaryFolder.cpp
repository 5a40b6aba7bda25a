#include "tests/removal/TemporaryFolder.h"

#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <linux/fs.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvane {

namespace {

void require(bool success, const std::string& what) {
  if (!success) throw std::system_error(errno, std::generic_category(), what);
}

void run(std::initializer_list<std::string> command) {
  std::vector<std::string> texts(command);
  std::vector<char*> arguments;
  arguments.reserve(texts.size() + 1);
  for (std::string& text : texts) arguments.push_back(text.data());
  arguments.push_back(nullptr);
  pid_t process = 0;
  if (::posix_spawnp(&process, arguments[0], nullptr, nullptr, arguments.data(), environ) == 0) {
    ::waitpid(process, nullptr, 0);
  }
}

// What keeps files in `parent` from being protected; empty if nothing does.
std::string obstacleToProtection(const std::string& parent) {
  try {
    const TemporaryFolder folder(parent);
    setKernelFlags(folder.makeFile("probe"), FS_IMMUTABLE_FL);
    return {};
  } catch (const std::system_error& failure) {
    return failure.what();
  }
}

}  // namespace

TemporaryFolder::TemporaryFolder(const std::string& parent) : _path(parent + "/removal.XXXXXX") {
  require(::mkdtemp(_path.data()) != nullptr, _path);
}

TemporaryFolder::~TemporaryFolder() {
  run({"chattr", "-R", "-f", "-i", "-a", _path});
  run({"rm", "-rf", _path});
}

std::string TemporaryFolder::makeFile(const std::string& name) const {
  const FileDescriptor file(
      ::open(path(name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  require(static_cast<bool>(file), path(name));
  return path(name);
}

std::string TemporaryFolder::makeFolder(const std::string& name) const {
  require(::mkdir(path(name).c_str(), 0755) == 0, path(name));
  return path(name);
}

std::string TemporaryFolder::makeLink(const std::string& name, const std::string& target) const {
  require(::symlink(target.c_str(), path(name).c_str()) == 0, path(name));
  return path(name);
}

std::string TemporaryFolder::makeWhiteout(const std::string& name) const {
  require(::mknod(path(name).c_str(), S_IFCHR | 0600, ::makedev(0, 0)) == 0, path(name));
  return path(name);
}

std::string TemporaryFolder::makeFifo(const std::string& name) const {
  require(::mkfifo(path(name).c_str(), 0600) == 0, path(name));
  return path(name);
}

std::string parentForManyFiles() {
  return obstacleToProtection("/dev/shm").empty() ? "/dev/shm" : "/var/tmp";
}

bool exists(const std::string& path) {
  struct stat attributes {};
  return ::lstat(path.c_str(), &attributes) == 0;
}

void setKernelFlags(const std::string& path, int flags) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  int current = 0;
  require(file && ::ioctl(file.get(), FS_IOC_GETFLAGS, &current) == 0, path);
  flags |= current & ~(FS_IMMUTABLE_FL | FS_APPEND_FL);
  require(::ioctl(file.get(), FS_IOC_SETFLAGS, &flags) == 0, path);
}

int kernelFlags(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  int flags = 0;
  require(file && ::ioctl(file.get(), FS_IOC_GETFLAGS, &flags) == 0, path);
  return flags & (FS_IMMUTABLE_FL | FS_APPEND_FL);
}

FileFlags fileFlags(const std::string& path) {
  FileStatus status;
  const auto error = lstat(AT_FDCWD, path.c_str(), status);
  EXPECT_FALSE(error) << path;
  return status.flags;
}

std::optional<Error> changeFileFlags(const std::string& path, FileFlags flags) {
  FileDescriptor object;
  if (auto error = openObject(AT_FDCWD, path.c_str(), FinalLink::Keep, object)) return error;
  return chflags(object.get(), flags);
}

void ProtectionTest::SetUp() {
  if (::geteuid() != 0) GTEST_SKIP() << "needs to be root";
  const std::string obstacle = obstacleToProtection("/var/tmp");
  if (!obstacle.empty()) GTEST_SKIP() << "needs a file system with flags: " << obstacle;
}

}  // namespace corvane
