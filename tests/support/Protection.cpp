#include "tests/support/Protection.h"

#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "tests/support/TemporaryFolder.h"

namespace corvane {

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
    setKernelFlags(folder.makeFile("probe"), FileFlag::UserImmutable);
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
