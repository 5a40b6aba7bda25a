#include <filesystem>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/linux/authorization/polkit/DiscardedAuthorizations.h"
#include "tests/platform/linux/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using Names = std::set<std::string>;

class DiscardedAuthorizationsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "what was discarded is root's to keep";
  }

  const TemporaryFolder folder;
  const std::string directory = folder.path("discarded");
  DiscardedAuthorizations discarded{directory};
  const ProcessIdentity self = ProcessIdentity::ofThisProcess();
};

TEST_F(DiscardedAuthorizationsTest, WhoNeverDiscardedIsNotKnown) {
  EXPECT_EQ(discarded.grantedSince(self), std::nullopt);
  discarded.grant(self, "a");
  EXPECT_FALSE(std::filesystem::exists(directory));
}

TEST_F(DiscardedAuthorizationsTest, KeepsWhatWasGrantedSince) {
  ASSERT_TRUE(discarded.discard(self));
  EXPECT_EQ(discarded.grantedSince(self), Names());
  discarded.grant(self, "a");
  discarded.grant(self, "b");
  EXPECT_EQ(DiscardedAuthorizations(directory).grantedSince(self), (Names{"a", "b"}))
      << "a helper that is started again knows it too";
  ASSERT_TRUE(discarded.discard(self));
  EXPECT_EQ(discarded.grantedSince(self), Names());
}

TEST_F(DiscardedAuthorizationsTest, AProcessWithTheSameNumberIsAnother) {
  ASSERT_TRUE(discarded.discard(self));
  ProcessIdentity other = self;
  ++other.startTime;
  EXPECT_EQ(discarded.grantedSince(other), std::nullopt);
}

TEST_F(DiscardedAuthorizationsTest, EndedProcessesAreForgotten) {
  {
    const ChildProcess child = ChildProcess::connectedOfUser(someUser);
    const auto identity = WatchedProcess::ofPeer(child.socket())->identity();
    ASSERT_TRUE(discarded.discard(identity));
    ASSERT_TRUE(discarded.discard(self));
    EXPECT_NE(discarded.grantedSince(identity), std::nullopt);
  }
  ASSERT_TRUE(discarded.discard(self));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 1);
}

TEST_F(DiscardedAuthorizationsTest, ADamagedFileGrantsNothing) {
  ASSERT_TRUE(discarded.discard(self));
  discarded.grant(self, "a");
  const auto file = std::filesystem::directory_iterator(directory)->path();
  ASSERT_EQ(::chown(file.c_str(), someUser, 0), 0);
  EXPECT_EQ(discarded.grantedSince(self), Names());
}

TEST_F(DiscardedAuthorizationsTest, SaysWhenItCannotBeKept) {
  writeFile(directory, "in the way");
  EXPECT_FALSE(discarded.discard(self));
}

}  // namespace
}  // namespace corvane
