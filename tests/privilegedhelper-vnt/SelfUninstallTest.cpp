#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"
#include "tests/privilegedhelper-vnt/SystemLogStandIn.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class SelfUninstallTest : public ProtectionTest {
 protected:
  void SetUp() override {
    ProtectionTest::SetUp();
    SystemLogStandIn::messages.clear();
    helper = ZELPrivilegedHelper::initForOperationSet(
        &ZELPrivilegedOperationSetVNT::privilegedOperationSet(), nullptr, nullptr);
    helper->clientSet().clear();
  }

  std::optional<Error> remove(const std::string& path) {
    std::optional<Error> error;
    const bool isRemoved = helper->enforceRemovalOfFileSystemObjectAtPath(path, &error);
    EXPECT_EQ(isRemoved, !error);
    EXPECT_EQ(exists(path), !isRemoved || path.empty());
    return error;
  }

  ZELPrivilegedHelper* helper = nullptr;
  TemporaryFolder folder;
};

TEST_F(SelfUninstallTest, FilesLinksAndEmptyFoldersAreDeleted) {
  const std::string target = folder.makeFile("target");
  for (const std::string& path : {folder.makeFile("file"), folder.makeLink("link", target),
                                  folder.makeFolder("folder"), folder.makeFifo("fifo")}) {
    EXPECT_EQ(remove(path), std::nullopt) << path;
  }
  EXPECT_TRUE(exists(target));
}

TEST_F(SelfUninstallTest, AnEmptyPathIsInvalid) {
  std::optional<Error> error;
  EXPECT_FALSE(helper->enforceRemovalOfFileSystemObjectAtPath("", &error));
  EXPECT_EQ(error, posixError(POSIXErrorCode::Invalid));
}

TEST_F(SelfUninstallTest, WhatIsNotThereCannotBeDeleted) {
  std::optional<Error> error;
  EXPECT_FALSE(helper->enforceRemovalOfFileSystemObjectAtPath(folder.path("none"), &error));
  EXPECT_EQ(error, posixError(POSIXErrorCode::NoEntry));
}

TEST_F(SelfUninstallTest, AFolderWithContentsStays) {
  const std::string full = folder.makeFolder("full");
  folder.makeFile("full/file");
  EXPECT_EQ(remove(full), posixError(POSIXErrorCode::NotEmpty));
  EXPECT_TRUE(exists(full + "/file"));
}

TEST_F(SelfUninstallTest, FlagsOfTheUserAreTakenOff) {
  for (const FileFlags flags : {FileFlag::UserImmutable, FileFlag::UserAppend,
                                FileFlag::UserImmutable | FileFlag::UserAppend}) {
    const std::string file = folder.makeFile("file");
    ASSERT_EQ(changeFileFlags(file, flags), std::nullopt);
    EXPECT_EQ(remove(file), std::nullopt) << flags;
  }
}

TEST_F(SelfUninstallTest, FlagsOfTheSystemAndWhiteoutsAreOneError) {
  const Error inputOutput = posixError(POSIXErrorCode::InputOutput);
  int count = 0;
  for (const FileFlags flags : {FileFlag::SystemImmutable, FileFlag::SystemAppend,
                                FileFlag::SystemImmutable | FileFlag::UserImmutable}) {
    const std::string file = folder.makeFile("file" + std::to_string(++count));
    ASSERT_EQ(changeFileFlags(file, flags), std::nullopt);
    EXPECT_EQ(remove(file), inputOutput) << flags;
    EXPECT_EQ(fileFlags(file), flags);
  }
  EXPECT_EQ(remove(folder.makeWhiteout("whiteout")), inputOutput);
}

TEST_F(SelfUninstallTest, AListIsDeletedToItsEndAndGivesTheLastError) {
  const std::string first = folder.makeFile("first");
  const std::string full = folder.makeFolder("full");
  folder.makeFile("full/file");
  const std::string last = folder.makeFile("last");
  const std::string none = folder.path("none");
  EXPECT_EQ(helper->deleteFileSystemObjectsWithPaths({first, full, none, last}),
            posixError(POSIXErrorCode::NoEntry));
  EXPECT_FALSE(exists(first));
  EXPECT_FALSE(exists(last));
  std::vector<std::pair<int, std::string>> expected;
  for (const std::string& path : {first, full, none, last}) {
    expected.emplace_back(7, "Deleting file system object '" + path + "'.");
  }
  EXPECT_EQ(SystemLogStandIn::messages, expected);
}

TEST_F(SelfUninstallTest, WhatIsNoStringInAListIsSkippedWithoutAWord) {
  const std::string first = folder.makeFile("first");
  const std::string last = folder.makeFile("last");
  EXPECT_EQ(helper->deleteFileSystemObjectsWithPaths({1, first, true, Data(3), Array{last}, last}),
            std::nullopt);
  EXPECT_FALSE(exists(first));
  EXPECT_FALSE(exists(last));
  EXPECT_EQ(SystemLogStandIn::messages.size(), 2U);
}

TEST_F(SelfUninstallTest, AnEmptyListIsASuccess) {
  EXPECT_EQ(helper->deleteFileSystemObjectsWithPaths({}), std::nullopt);
}

TEST_F(SelfUninstallTest, AnEmptyPathStopsTheUninstallBeforeAnythingElse) {
  const std::string file = folder.makeFile("file");
  // A client that is at work, and would be in the way of any other uninstall.
  helper->clientSet() = {1, 5000000};
  EXPECT_EQ(helper->performUninstallForClientWithPID(5000000, "", file),
            posixError(POSIXErrorCode::Invalid));
  EXPECT_EQ(helper->performUninstallForClientWithPID(5000000, file, ""),
            posixError(POSIXErrorCode::Invalid));
  EXPECT_TRUE(exists(file));
  EXPECT_TRUE(SystemLogStandIn::messages.empty());
}

TEST_F(SelfUninstallTest, AClientOfWhichNobodyCanSayThatItHasEndedIsInTheWay) {
  const std::string file = folder.makeFile("file");
  helper->clientSet() = {1, 5000000};
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const auto error = helper->performUninstallForClientWithPID(5000001, file, file);
  ::setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(error, posixError(POSIXErrorCode::Busy));
  EXPECT_TRUE(exists(file));
}

}  // namespace
}  // namespace corvane
