#include <initializer_list>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "process/ZELTaskExecutor.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

bool isSafe(const std::string& path) {
  return ZELTaskExecutor::hasExecutableSafePermissionsAtPath(path);
}

TEST(PermissionTest, PathsWithoutAFileAreUnsafe) {
  using namespace std::string_literals;
  const TemporaryFolder folder;
  EXPECT_FALSE(isSafe(""));
  EXPECT_FALSE(isSafe("/"));
  EXPECT_FALSE(isSafe("/bin"));
  EXPECT_FALSE(isSafe(folder.path("missing")));
  EXPECT_FALSE(isSafe(folder.makeFile("file") + "/below"));
  EXPECT_FALSE(isSafe("/bin/sh\0x"s));
  ASSERT_EQ(symlink("missing", folder.path("dangling").c_str()), 0);
  ASSERT_EQ(symlink("loop", folder.path("loop").c_str()), 0);
  EXPECT_FALSE(isSafe(folder.path("dangling")));
  EXPECT_FALSE(isSafe(folder.path("loop")));
}

struct Ownership {
  uid_t user;
  gid_t group;
  mode_t mode;
};

void apply(const std::string& path, const Ownership& ownership) {
  ASSERT_EQ(chown(path.c_str(), ownership.user, ownership.group), 0);
  ASSERT_EQ(chmod(path.c_str(), ownership.mode), 0);
}

// Every file in every folder: safe exactly when both are.
TEST(PermissionTest, FileAndFolderBothCount) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to change owners";
  std::vector<std::pair<Ownership, bool>> cases;
  for (const uid_t user : {0U, 1U}) {
    for (const gid_t group : {0U, 1U}) {
      for (const mode_t mode : std::initializer_list<mode_t>{0755, 0700, 0555, 0000, 01755, 04755,
                                                             0775, 0757, 0720, 0702, 0777, 01777}) {
        cases.push_back({{user, group, mode}, user == 0 && group == 0 && (mode & 022U) == 0});
      }
    }
  }
  const TemporaryFolder folder;
  const std::string parent = folder.path("parent");
  const std::string file = folder.makeFile("parent/program");
  for (const auto& [ofParent, parentIsSafe] : cases) {
    apply(parent, ofParent);
    for (const auto& [ofFile, fileIsSafe] : cases) {
      apply(file, ofFile);
      ASSERT_EQ(isSafe(file), parentIsSafe && fileIsSafe)
          << std::oct << "parent " << ofParent.user << ':' << ofParent.group << ' ' << ofParent.mode
          << ", file " << ofFile.user << ':' << ofFile.group << ' ' << ofFile.mode;
    }
  }
}

TEST(PermissionTest, FoldersFurtherUpDoNotCount) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to change owners";
  const TemporaryFolder folder;
  const std::string file = folder.makeFile("a/b/program");
  apply(folder.path("a"), {1, 1, 0777});
  EXPECT_TRUE(isSafe(file));
}

TEST(PermissionTest, SymbolicLinkIsJudgedByItsTargetAndTheTargetsFolder) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to change owners";
  const TemporaryFolder folder;
  const std::string safe = folder.makeFile("safe/program");
  const std::string unsafe = folder.makeFile("unsafe/program");
  apply(folder.path("unsafe"), {0, 0, 0777});

  // A link in an unsafe folder to a safe program, through a link to its folder.
  ASSERT_EQ(symlink("../safe", folder.path("unsafe/folder").c_str()), 0);
  ASSERT_EQ(symlink("folder/program", folder.path("unsafe/link").c_str()), 0);
  ASSERT_EQ(lchown(folder.path("unsafe/link").c_str(), 1, 1), 0);
  EXPECT_TRUE(isSafe(folder.path("unsafe/link")));

  ASSERT_EQ(symlink(unsafe.c_str(), folder.path("safe/link").c_str()), 0);
  EXPECT_FALSE(isSafe(folder.path("safe/link")));
  EXPECT_FALSE(isSafe(unsafe));

  ASSERT_EQ(symlink("../safe", folder.path("safe/directory").c_str()), 0);
  EXPECT_FALSE(isSafe(folder.path("safe/directory")));
  EXPECT_TRUE(isSafe(safe));
}

TEST(PermissionTest, SystemProgramsAreSafe) {
  EXPECT_TRUE(isSafe("/bin/sh"));
  EXPECT_TRUE(isSafe("/usr/bin/../bin/env"));
}

}  // namespace
}  // namespace corvane
