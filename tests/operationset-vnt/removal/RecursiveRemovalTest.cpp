#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class RecursiveRemovalTest : public ProtectionTest {
 protected:
  std::optional<Error> remove(const std::string& path) {
    std::optional<Error> error;
    const bool removed = set.enforceRecursiveRemovalOfFileSystemObjectAtPath(path, &error);
    EXPECT_NE(removed, error.has_value());
    return error;
  }

  ZELPrivilegedOperationSetVNT set;
  TemporaryFolder folder;
};

TEST_F(RecursiveRemovalTest, RemovesATreeWithEveryKindOfObject) {
  const std::string tree = folder.makeFolder("tree");
  folder.makeFolder("tree/folder");
  folder.makeFolder("tree/folder/inner");
  folder.makeFile("tree/folder/inner/file");
  folder.makeFile("tree/file");
  folder.makeFifo("tree/fifo");
  folder.makeWhiteout("tree/whiteout");
  folder.makeLink("tree/dangling", "nowhere");
  EXPECT_EQ(remove(tree), std::nullopt);
  EXPECT_FALSE(exists(tree));
}

TEST_F(RecursiveRemovalTest, RemovesWhatIsImmutableAnywhereInTheTree) {
  const std::string tree = folder.makeFolder("tree");
  const std::string inner = folder.makeFolder("tree/inner");
  setKernelFlags(folder.makeFile("tree/inner/file"), FileFlag::UserImmutable);
  setKernelFlags(folder.makeFile("tree/file"), FileFlag::UserImmutable);
  setKernelFlags(inner, FileFlag::UserImmutable);
  setKernelFlags(tree, FileFlag::UserImmutable);
  EXPECT_EQ(remove(tree), std::nullopt);
  EXPECT_FALSE(exists(tree));
}

TEST_F(RecursiveRemovalTest, RemovesASingleImmutableFile) {
  const std::string file = folder.makeFile("file");
  setKernelFlags(file, FileFlag::UserImmutable);
  EXPECT_EQ(remove(file), std::nullopt);
  EXPECT_FALSE(exists(file));
}

TEST_F(RecursiveRemovalTest, RemovesATreeOfManyFolders) {
  const std::string tree = folder.makeFolder("tree");
  for (int i = 0; i < 20; ++i) {
    const std::string outer = "tree/" + std::to_string(i);
    folder.makeFolder(outer);
    for (int j = 0; j < 8; ++j) {
      const std::string inner = outer + "/" + std::to_string(j);
      folder.makeFolder(inner);
      for (int k = 0; k < 4; ++k) folder.makeFile(inner + "/" + std::to_string(k));
    }
    setKernelFlags(folder.path(outer + "/3/1"), FileFlag::UserImmutable);
  }
  EXPECT_EQ(remove(tree), std::nullopt);
  EXPECT_FALSE(exists(tree));
}

TEST_F(RecursiveRemovalTest, WhatDoesNotExistIsASuccess) {
  EXPECT_EQ(remove(folder.path("missing")), std::nullopt);
  EXPECT_EQ(remove(folder.path("missing/below")), std::nullopt);
  EXPECT_EQ(remove(folder.makeFile("file") + "/below"), std::nullopt);
  EXPECT_TRUE(exists(folder.path("file")));
}

TEST_F(RecursiveRemovalTest, ALinkWithoutATargetIsASuccessAndStays) {
  const std::string dangling = folder.makeLink("dangling", "nowhere");
  const std::string loop = folder.makeLink("loop", "loop");
  EXPECT_EQ(remove(dangling), std::nullopt);
  EXPECT_EQ(remove(loop), std::nullopt);
  EXPECT_TRUE(exists(dangling));
  EXPECT_TRUE(exists(loop));
}

TEST_F(RecursiveRemovalTest, ALinkIsRemovedItselfAndItsTargetLeftAlone) {
  folder.makeFolder("target");
  const std::string file = folder.makeFile("target/file");
  setKernelFlags(file, FileFlag::UserImmutable);
  const std::string toFolder = folder.makeLink("to-folder", "target");
  const std::string toFile = folder.makeLink("to-file", "target/file");
  EXPECT_EQ(remove(toFolder), std::nullopt);
  EXPECT_EQ(remove(toFile), std::nullopt);
  EXPECT_FALSE(exists(toFolder));
  EXPECT_FALSE(exists(toFile));
  EXPECT_EQ(kernelFlags(file), FileFlag::UserImmutable);
}

TEST_F(RecursiveRemovalTest, ALinkToAFolderIsRemovedItselfAlsoWithASlashAfterIt) {
  const std::string target = folder.makeFolder("target");
  const std::string link = folder.makeLink("link", "target");
  EXPECT_EQ(remove(link + "/"), std::nullopt);
  EXPECT_FALSE(exists(link));
  EXPECT_TRUE(exists(target));
}

TEST_F(RecursiveRemovalTest, WithASlashAfterItNeitherAFileNorALinkToOneExists) {
  const std::string file = folder.makeFile("file");
  const std::string link = folder.makeLink("link", "file");
  EXPECT_EQ(remove(file + "/"), std::nullopt);
  EXPECT_EQ(remove(link + "/"), std::nullopt);
  EXPECT_TRUE(exists(file));
  EXPECT_TRUE(exists(link));
}

TEST_F(RecursiveRemovalTest, LinksInTheTreeAreNotFollowed) {
  folder.makeFolder("outside");
  const std::string file = folder.makeFile("outside/file");
  setKernelFlags(file, FileFlag::UserImmutable);
  const std::string tree = folder.makeFolder("tree");
  folder.makeLink("tree/to-file", "../outside/file");
  folder.makeLink("tree/to-folder", "../outside");
  EXPECT_EQ(remove(tree), std::nullopt);
  EXPECT_FALSE(exists(tree));
  EXPECT_EQ(kernelFlags(file), FileFlag::UserImmutable);
}

TEST_F(RecursiveRemovalTest, APathThroughALinkLeadsToTheObjectBehindIt) {
  folder.makeFolder("behind");
  folder.makeFolder("behind/tree");
  folder.makeFile("behind/tree/file");
  folder.makeLink("link", "behind");
  EXPECT_EQ(remove(folder.path("link/tree")), std::nullopt);
  EXPECT_FALSE(exists(folder.path("behind/tree")));
  EXPECT_TRUE(exists(folder.path("link")));
}

TEST_F(RecursiveRemovalTest, AnAppendOnlyObjectMakesItFailAndKeepsTheFlag) {
  const std::string file = folder.makeFile("file");
  setKernelFlags(file, FileFlag::UserAppend);
  EXPECT_EQ(remove(file), Error(NSPOSIXErrorDomain, 1));
  const std::string tree = folder.makeFolder("tree");
  const std::string inner = folder.makeFile("tree/inner");
  setKernelFlags(inner, FileFlag::UserAppend | FileFlag::UserImmutable);
  EXPECT_EQ(remove(tree), Error(NSPOSIXErrorDomain, 1));
  EXPECT_EQ(kernelFlags(inner), FileFlag::UserAppend);
}

TEST_F(RecursiveRemovalTest, SystemFlagsMakeItFailWithTheErrorOfTheSystem) {
  const std::string tree = folder.makeFolder("tree");
  const std::string inner = folder.makeFile("tree/inner");
  ASSERT_EQ(changeFileFlags(inner, FileFlag::SystemImmutable), std::nullopt);
  EXPECT_EQ(remove(tree), Error(NSPOSIXErrorDomain, 1));
  EXPECT_EQ(fileFlags(inner), FileFlag::SystemImmutable);
}

TEST_F(RecursiveRemovalTest, ARestrictedEntryStopsItBeforeAnythingIsDeleted) {
  const std::string tree = folder.makeFolder("tree");
  for (int i = 0; i < 20; ++i) {
    folder.makeFolder("tree/" + std::to_string(i));
    folder.makeFile("tree/" + std::to_string(i) + "/file");
  }
  ASSERT_EQ(changeFileFlags(folder.path("tree/7/file"), FileFlag::Restricted), std::nullopt);
  // The error is refined for the top of the tree, which is not restricted.
  EXPECT_EQ(remove(tree), Error(NSPOSIXErrorDomain, 1));
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(exists(folder.path("tree/" + std::to_string(i) + "/file")));
  }
}

TEST_F(RecursiveRemovalTest, ARestrictedTopRefinesTheError) {
  const std::string tree = folder.makeFolder("tree");
  const std::string file = folder.makeFile("tree/file");
  ASSERT_EQ(changeFileFlags(tree, FileFlag::Restricted), std::nullopt);
  const auto error = remove(tree);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is("com.corvane.error.privileged-operation", 8));
  EXPECT_EQ(*error->userInfo().find(NSFilePathErrorKey), Value(tree));
  EXPECT_EQ(*error->userInfo().find(NSUnderlyingErrorKey), Value(Error(NSPOSIXErrorDomain, 1)));
  EXPECT_TRUE(exists(file));
}

TEST_F(RecursiveRemovalTest, NothingIsTouchedWhereTheTopCannotGo) {
  const std::string file = folder.makeFile("file");
  const std::string sub = folder.makeFolder("sub");
  EXPECT_EQ(remove(folder.path(".")), Error(NSPOSIXErrorDomain, 22));
  EXPECT_EQ(remove(sub + "/.."), Error(NSPOSIXErrorDomain, 22));
  EXPECT_TRUE(exists(file));
  EXPECT_TRUE(exists(sub));
}

TEST_F(RecursiveRemovalTest, TheImmutableFlagIsSetAndClearedThroughLinks) {
  const std::string file = folder.makeFile("file");
  const std::string link = folder.makeLink("link", "file");
  std::optional<Error> error;
  EXPECT_TRUE(set.setImmutableFlag(true, link, true, &error));
  EXPECT_EQ(fileFlags(file), FileFlag::UserImmutable);
  EXPECT_TRUE(set.setImmutableFlag(false, link, true, &error));
  EXPECT_EQ(fileFlags(file), 0U);
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(RecursiveRemovalTest, ALinkWithoutATargetCountsOnlyWhenItsExistenceIsChecked) {
  const std::string link = folder.makeLink("link", "nowhere");
  std::optional<Error> error;
  EXPECT_TRUE(set.setImmutableFlag(false, link, false, &error));
  EXPECT_FALSE(set.setImmutableFlag(false, link, true, &error));
  EXPECT_EQ(error, Error(NSPOSIXErrorDomain, 2));
  error.reset();
  EXPECT_FALSE(set.setImmutableFlag(false, folder.path("missing"), false, &error));
  EXPECT_EQ(error, Error(NSPOSIXErrorDomain, 2));
}

TEST_F(RecursiveRemovalTest, ANameThatIsTooLongNamesNothing) {
  EXPECT_EQ(remove(folder.path(std::string(300, 'n'))), std::nullopt);
  EXPECT_EQ(remove(folder.path(std::string(300, 'n') + "/below")), std::nullopt);
}

}  // namespace
}  // namespace corvane
