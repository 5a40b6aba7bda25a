#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"
#include "tests/privilegedhelper-vnt/AuthorizationStandIn.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class SelfUninstallOnLinuxTest : public ProtectionTest {
 protected:
  // A launch control of this test's own, which nobody else sees.
  void SetUp() override {
    ProtectionTest::SetUp();
    if (IsSkipped()) return;
    AuthorizationStandIn::current = {};
    folder.makeFolder("bin");
    ASSERT_EQ(::chmod(folder.path("bin").c_str(), 0755), 0);
    ASSERT_EQ(::chmod(folder.makeFile("bin/launchctl").c_str(), 0755), 0);
    const std::string options = "lowerdir=" + folder.path("bin") + ":/usr/bin";
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("overlay", "/bin", "overlay", 0, options.c_str()) != 0) {
      GTEST_SKIP() << "no launch control can be put in place";
    }
    isMounted = true;
    helper->clientSet() = {100};
  }
  void TearDown() override {
    if (isMounted) ::umount2("/bin", MNT_DETACH);
  }

  ZELPrivilegedHelper* helper = ZELPrivilegedHelper::initForOperationSet(
      &ZELPrivilegedOperationSetVNT::privilegedOperationSet(), nullptr, nullptr);
  TemporaryFolder folder;
  bool isMounted = false;
};

TEST_F(SelfUninstallOnLinuxTest, WithoutAnAuthorizationNothingIsDeleted) {
  const std::string file = folder.makeFile("file");
  EXPECT_EQ(helper->performUninstallForClientWithPID(100, file, file),
            Error(NSOSStatusErrorDomain, -60008));
  EXPECT_TRUE(exists(file));
  EXPECT_EQ(helper->clientSet(), ZELPrivilegedHelper::ClientSet{100});
}

TEST_F(SelfUninstallOnLinuxTest, WhereAFileStaysTheAuthorizationIsGivenBack) {
  AuthorizationStandIn::current.createStatus = errAuthorizationSuccess;
  const std::string file = folder.makeFile("file");
  EXPECT_EQ(helper->performUninstallForClientWithPID(100, folder.path("none"), file),
            posixError(POSIXErrorCode::NoEntry));
  EXPECT_EQ(AuthorizationStandIn::current.freed,
            std::vector<AuthorizationFlags>{kAuthorizationFlagDefaults});
  EXPECT_EQ(helper->clientSet(), ZELPrivilegedHelper::ClientSet{100});
}

}  // namespace
}  // namespace corvane
