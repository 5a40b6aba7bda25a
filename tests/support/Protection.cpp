#include "tests/support/Protection.h"

#include <system_error>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {

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
  const auto error = statusOf(AT_FDCWD, path.c_str(), FinalLink::Keep, status);
  EXPECT_FALSE(error) << path;
  return status.flags;
}

std::optional<Error> changeFileFlags(const std::string& path, FileFlags flags) {
  return changeFlags(AT_FDCWD, path.c_str(), FinalLink::Keep, ~FileFlags{0}, flags);
}

std::string obstacleToProtection(const std::string& parent) {
  if (::geteuid() != 0) return "needs to be root";
  try {
    const TemporaryFolder folder(parent);
    setKernelFlags(folder.makeFile("probe"), FS_IMMUTABLE_FL);
    return {};
  } catch (const std::system_error& failure) {
    return std::string("needs a file system with flags: ") + failure.what();
  }
}

std::string parentForManyFiles() {
  return obstacleToProtection("/dev/shm").empty() ? "/dev/shm" : "/var/tmp";
}

void ProtectionTest::SetUp() {
  const std::string obstacle = obstacleToProtection();
  if (!obstacle.empty()) GTEST_SKIP() << obstacle;
}

}  // namespace corvane
