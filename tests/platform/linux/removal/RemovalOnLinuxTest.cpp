#include <cerrno>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "tests/platform/linux/support/SystemCallFilter.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class RemovalOnLinuxTest : public ProtectionTest {
 protected:
  ZELPrivilegedOperationSetVNT set;
  TemporaryFolder folder;
  std::optional<Error> error;
};

TEST_F(RemovalOnLinuxTest, ALinkOfSomebodyElseInASharedFolderIsRemoved) {
  std::ifstream setting("/proc/sys/fs/protected_symlinks");
  int value = 0;
  if (!(setting >> value) || value == 0) {
    GTEST_SKIP() << "the system lets root follow such links (fs.protected_symlinks)";
  }
  const std::string shared = folder.makeFolder("shared");
  const std::string link = folder.makeLink("shared/link", "../file");
  folder.makeFile("file");
  ASSERT_EQ(::lchown(link.c_str(), 65534, 65534), 0);
  ASSERT_EQ(::chmod(shared.c_str(), 01777), 0);
  EXPECT_TRUE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(link, &error));
  EXPECT_EQ(error, std::nullopt);
  EXPECT_FALSE(exists(link));
}

TEST_F(RemovalOnLinuxTest, AFlagThatIsNotKnownHereStaysAndTheObjectWithIt) {
  const std::string path = folder.makeFile("file");
  const std::string flags = "0x8002";
  ASSERT_EQ(::setxattr(path.c_str(), "trusted.corvane.flags", flags.data(), flags.size(), 0), 0);
  setKernelFlags(path, FileFlag::UserImmutable);
  EXPECT_FALSE(set.enforceSingleRemovalOfFileSystemObjectAtPath(path, &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is("com.corvane.error.privileged-operation", 5));
  EXPECT_EQ(fileFlags(path), 0x8002U);
}

TEST_F(RemovalOnLinuxTest, WithoutFurtherThreadsTheCallingOneDoesEverything) {
  const std::string tree = folder.makeFolder("tree");
  for (int i = 0; i < 1000; ++i) folder.makeFile("tree/" + std::to_string(i) + "/inner/file");
  const pid_t child = ::fork();
  if (child == 0) {
    refuseSystemCalls({SYS_clone, SYS_clone3}, EAGAIN);
    ::_exit(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, nullptr) ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(exists(tree));
}

}  // namespace
}  // namespace corvane
