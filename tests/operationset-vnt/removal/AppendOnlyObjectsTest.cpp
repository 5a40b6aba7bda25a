#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/AppendOnlyObjects.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uid_t somebodyElse = 65534;

class AppendOnlyObjectsTest : public ProtectionTest {
 protected:
  std::string makeAppendOnlyFile(const std::string& name) const {
    std::string file = folder.makeFile(name);
    setKernelFlags(file, FileFlag::UserAppend);
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
  setKernelFlags(inner, FileFlag::UserAppend);
  EXPECT_THAT(appendOnlyObjects(top).reachable, ElementsAre(inner, file));
  EXPECT_THAT(appendOnlyObjects(other).reachable, ElementsAre(other));
}

TEST_F(AppendOnlyObjectsTest, AreOthersInFoldersThatSomebodyElseCanChange) {
  const std::string top = folder.makeFolder("top");
  const std::string foreign = folder.makeFolder("top/foreign");
  const std::string open = folder.makeFolder("top/open");
  makeAppendOnlyFile("top/foreign/file");
  makeAppendOnlyFile("top/open/file");
  ASSERT_EQ(::chown(foreign.c_str(), somebodyElse, 0), 0);
  ASSERT_EQ(::chmod(open.c_str(), 01777), 0);
  for (const std::string& path : {top, foreign, open, foreign + "/file"}) {
    const AppendOnlyObjects found = appendOnlyObjects(path);
    EXPECT_THAT(found.reachable, IsEmpty()) << path;
    EXPECT_TRUE(found.areOthersThere) << path;
  }
}

TEST_F(AppendOnlyObjectsTest, AreReachedByAPathWithoutLinks) {
  folder.makeFolder("top");
  const std::string file = makeAppendOnlyFile("top/file");
  const std::string link = folder.makeLink("link", "top");
  EXPECT_THAT(appendOnlyObjects(link + "/file").reachable, ElementsAre(file));
  EXPECT_THAT(appendOnlyObjects(link).reachable, IsEmpty());
}

TEST_F(AppendOnlyObjectsTest, AreOthersIfTheirNamesCannotBeSent) {
  folder.makeFolder("top");
  makeAppendOnlyFile("top/\xff");
  const std::string file = makeAppendOnlyFile("top/file");
  const AppendOnlyObjects found = appendOnlyObjects(folder.path("top"));
  EXPECT_THAT(found.reachable, ElementsAre(file));
  EXPECT_TRUE(found.areOthersThere);
}

TEST_F(AppendOnlyObjectsTest, BecomeOrdinaryWhoeverOwnsTheFolders) {
  const std::string top = folder.makeFolder("top");
  const std::string foreign = folder.makeFolder("top/foreign");
  const std::string file = makeAppendOnlyFile("top/foreign/\xff");
  const std::string outside = makeAppendOnlyFile("outside");
  folder.makeLink("top/link", outside);
  ASSERT_EQ(::chown(foreign.c_str(), somebodyElse, 0), 0);
  ASSERT_EQ(::chmod(foreign.c_str(), 0777), 0);
  EXPECT_TRUE(clearAppendOnlyFlags(top));
  EXPECT_EQ(kernelFlags(file), 0U);
  EXPECT_EQ(kernelFlags(outside), FileFlag::UserAppend);
  EXPECT_FALSE(clearAppendOnlyFlags(top));
}

TEST_F(AppendOnlyObjectsTest, AreInVainBesideWhatCannotBeDeleted) {
  const std::string top = folder.makeFolder("top");
  makeAppendOnlyFile("top/file");
  const std::string locked = folder.makeFile("top/locked");
  ASSERT_EQ(changeFileFlags(locked, FileFlag::SystemImmutable), std::nullopt);
  EXPECT_TRUE(appendOnlyObjects(top).areInVain);
}

}  // namespace
}  // namespace corvane
