#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/cli/commands/AppendOnlyObjects.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using cli::appendOnlyObjects;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uid_t somebodyElse = 65534;

class AppendOnlyObjectsTest : public ProtectionTest {
 protected:
  std::string makeAppendOnlyFile(const std::string& name) const {
    std::string file = folder.makeFile(name);
    setKernelFlags(file, FS_APPEND_FL);
    return file;
  }

  TemporaryFolder folder;
};

TEST_F(AppendOnlyObjectsTest, AreFoundAtAndBelowThePathsFoldersFirst) {
  const std::string top = folder.makeFolder("top");
  const std::string inner = folder.makeFolder("top/inner");
  const std::string file = makeAppendOnlyFile("top/inner/file");
  const std::string other = makeAppendOnlyFile("other");
  folder.makeFile("top/plain");
  setKernelFlags(inner, FS_APPEND_FL);
  EXPECT_THAT(appendOnlyObjects({top, other}), ElementsAre(inner, file, other));
}

TEST_F(AppendOnlyObjectsTest, AreNotLookedForInFoldersThatSomebodyElseCanChange) {
  const std::string top = folder.makeFolder("top");
  const std::string foreign = folder.makeFolder("top/foreign");
  const std::string open = folder.makeFolder("top/open");
  makeAppendOnlyFile("top/foreign/file");
  makeAppendOnlyFile("top/open/file");
  ASSERT_EQ(::chown(foreign.c_str(), somebodyElse, 0), 0);
  ASSERT_EQ(::chmod(open.c_str(), 01777), 0);
  EXPECT_THAT(appendOnlyObjects({top, foreign, open}), IsEmpty());
  EXPECT_THAT(appendOnlyObjects({foreign + "/file"}), IsEmpty());
}

TEST_F(AppendOnlyObjectsTest, AreReachedByAPathWithoutLinks) {
  folder.makeFolder("top");
  const std::string file = makeAppendOnlyFile("top/file");
  const std::string link = folder.makeLink("link", "top");
  EXPECT_THAT(appendOnlyObjects({link + "/file"}), ElementsAre(file));
  EXPECT_THAT(appendOnlyObjects({link}), IsEmpty());
}

TEST_F(AppendOnlyObjectsTest, AreNotLookedForInOtherFileSystems) {
  if (::unshare(CLONE_NEWNS) != 0 ||
      ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    GTEST_SKIP() << "needs a mount namespace of its own";
  }
  const std::string top = folder.makeFolder("top");
  const std::string mounted = folder.makeFolder("top/mounted");
  const std::string outside = folder.makeFolder("outside");
  makeAppendOnlyFile("outside/file");
  ASSERT_EQ(::mount(outside.c_str(), mounted.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_THAT(appendOnlyObjects({top}), IsEmpty());
  EXPECT_EQ(::umount2(mounted.c_str(), MNT_DETACH), 0);
}

TEST_F(AppendOnlyObjectsTest, CountForNothingBesideWhatCannotBeDeleted) {
  const std::string top = folder.makeFolder("top");
  makeAppendOnlyFile("top/file");
  const std::string locked = folder.makeFile("top/locked");
  ASSERT_EQ(changeFileFlags(locked, FileFlag::SystemImmutable), std::nullopt);
  EXPECT_THAT(appendOnlyObjects({top}), IsEmpty());
}

}  // namespace
}  // namespace corvane
