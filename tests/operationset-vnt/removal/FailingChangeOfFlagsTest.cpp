#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {

namespace {
std::optional<Error> changeResult;
}

std::optional<Error> changeFlags(int, const char*, FinalLink, FileFlags, FileFlags) {
  return changeResult;
}

namespace {

class FailingChangeOfFlagsTest : public ProtectionTest {
 protected:
  void TearDown() override { changeResult.reset(); }

  std::string makeProtectedFile(const std::string& name) {
    std::string file = folder.makeFile(name);
    setKernelFlags(file, FileFlag::UserImmutable);
    return file;
  }

  ZELPrivilegedOperationSetVNT set;
  TemporaryFolder folder;
  std::optional<Error> error;
};

TEST_F(FailingChangeOfFlagsTest, ASingleRemovalSaysThatFlagsCouldNotBeChanged) {
  const std::string file = makeProtectedFile("file");
  for (const POSIXErrorCode code : {POSIXErrorCode::InputOutput, POSIXErrorCode::NotSupported}) {
    changeResult = posixError(code);
    EXPECT_FALSE(set.enforceSingleRemovalOfFileSystemObjectAtPath(file, &error));
    ASSERT_TRUE(error->is("com.corvane.error.privileged-operation", 5));
    EXPECT_EQ(error->localizedDescription(),
              "The operating system could not change protection flags.");
    EXPECT_EQ(error->userInfo().size(), 4U);
    EXPECT_TRUE(exists(file));
  }
}

TEST_F(FailingChangeOfFlagsTest, ARecursiveRemovalDeletesNothingWhenAFlagStays) {
  const std::string tree = folder.makeFolder("tree");
  for (int i = 0; i < 50; ++i) {
    folder.makeFolder("tree/" + std::to_string(i));
    for (int j = 0; j < 10; ++j) {
      folder.makeFile("tree/" + std::to_string(i) + "/" + std::to_string(j));
    }
  }
  setKernelFlags(folder.path("tree/33/3"), FileFlag::UserImmutable);
  changeResult = posixError(POSIXErrorCode::ReadOnly);
  EXPECT_FALSE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, &error));
  EXPECT_EQ(error, posixError(POSIXErrorCode::ReadOnly));
  for (int i = 0; i < 50; ++i) {
    for (int j = 0; j < 10; ++j) {
      EXPECT_TRUE(exists(folder.path("tree/" + std::to_string(i) + "/" + std::to_string(j))));
    }
  }
}

TEST_F(FailingChangeOfFlagsTest, ARecursiveRemovalFailsWhereTheTopKeepsItsFlag) {
  const std::string file = makeProtectedFile("file");
  changeResult = posixError(POSIXErrorCode::ReadOnly);
  EXPECT_FALSE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(file, &error));
  EXPECT_EQ(error, posixError(POSIXErrorCode::ReadOnly));
}

TEST_F(FailingChangeOfFlagsTest, AFileSystemWithoutFlagsHasNothingToClear) {
  const std::string file = makeProtectedFile("file");
  changeResult = posixError(POSIXErrorCode::NotSupported);
  EXPECT_TRUE(set.setImmutableFlag(false, file, true, &error));
  EXPECT_EQ(error, std::nullopt);
  EXPECT_FALSE(set.setImmutableFlag(true, file, true, &error));
  EXPECT_EQ(error, posixError(POSIXErrorCode::NotSupported));
  // The removal goes on to the deletion, which here meets the flag that is still set.
  EXPECT_FALSE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(file, &error));
  EXPECT_EQ(error, posixError(POSIXErrorCode::NotPermitted));
}

}  // namespace
}  // namespace corvane
