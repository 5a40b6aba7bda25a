#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class SelfUninstallOnLinuxTest : public ProtectionTest {
 protected:
  ZELPrivilegedHelper* helper = ZELPrivilegedHelper::initForOperationSet(
      &ZELPrivilegedOperationSetVNT::privilegedOperationSet(), nullptr, nullptr);
  TemporaryFolder folder;
};

TEST_F(SelfUninstallOnLinuxTest, WithoutAnAuthorizationNothingIsDeleted) {
  // A launch control of this test's own, which nobody else sees.
  folder.makeFolder("bin");
  ASSERT_EQ(::chmod(folder.path("bin").c_str(), 0755), 0);
  ASSERT_EQ(::chmod(folder.makeFile("bin/launchctl").c_str(), 0755), 0);
  const std::string options = "lowerdir=" + folder.path("bin") + ":/usr/bin";
  if (::unshare(CLONE_NEWNS) != 0 ||
      ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("overlay", "/bin", "overlay", 0, options.c_str()) != 0) {
    GTEST_SKIP() << "no launch control can be put in place";
  }
  const std::string file = folder.makeFile("file");
  helper->clientSet() = {100};
  EXPECT_EQ(helper->performUninstallForClientWithPID(100, file, file),
            Error(NSOSStatusErrorDomain, -60008));
  EXPECT_TRUE(exists(file));
  EXPECT_EQ(helper->clientSet(), ZELPrivilegedHelper::ClientSet{100});
  ::umount2("/bin", MNT_DETACH);
}

}  // namespace
}  // namespace corvane
