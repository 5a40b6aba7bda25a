#include <cerrno>
#include <functional>
#include <optional>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/FileSystem.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {

// What somebody else does at the very instant before one of the calls below.
namespace {
using Intruder = std::function<void(const std::string& name)>;
Intruder beforeRemoval;

void interrupt(const Intruder& intruder, const char* name) {
  const Intruder now = intruder;  // which may end itself
  if (now) now(name);
}
}  // namespace

std::optional<Error> removeFile(int folder, const char* name) {
  interrupt(beforeRemoval, name);
  if (::unlinkat(folder, name, 0) != 0) return posixErrorFromHost(errno);
  return std::nullopt;
}

std::optional<Error> removeFolder(int folder, const char* name) {
  interrupt(beforeRemoval, name);
  if (::unlinkat(folder, name, AT_REMOVEDIR) != 0) return posixErrorFromHost(errno);
  return std::nullopt;
}

namespace {

class InterruptedRemovalTest : public testing::Test {
 protected:
  void TearDown() override { beforeRemoval = nullptr; }

  // All files of the tree but the one that is at work.
  void removeOthers(const std::string& name) const {
    for (int i = 0; i < fileCount; ++i) {
      const std::string other = std::to_string(i);
      const std::string path = folder.path("tree/" + other);
      if (other == name || !exists(path)) continue;
      EXPECT_EQ(::unlink(path.c_str()), 0);
    }
  }

  static constexpr int fileCount = 20;
  ZELPrivilegedOperationSetVNT set;
  TemporaryFolder folder;
  std::optional<Error> error;
};

TEST_F(InterruptedRemovalTest, WhatOthersRemoveMeanwhileNeedsNotBeDeleted) {
  const std::string tree = folder.makeFolder("tree");
  for (int i = 0; i < fileCount; ++i) folder.makeFile("tree/" + std::to_string(i));
  beforeRemoval = [&](const std::string& name) {
    beforeRemoval = nullptr;
    removeOthers(name);
  };
  EXPECT_TRUE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, &error));
  EXPECT_EQ(error, std::nullopt);
  EXPECT_FALSE(exists(tree));
}

TEST_F(InterruptedRemovalTest, WhatComesMeanwhileIsDeletedTwiceAndThenGivenUp) {
  const std::string tree = folder.makeFolder("tree");
  int rounds = 2;
  beforeRemoval = [&](const std::string& name) {
    if (name == "tree" && rounds-- > 0) folder.makeFile("tree/new");
  };
  EXPECT_TRUE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, &error));
  EXPECT_FALSE(exists(tree));

  folder.makeFolder("tree");
  rounds = 3;
  EXPECT_FALSE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, &error));
  EXPECT_EQ(error, Error(NSPOSIXErrorDomain, 66));
}

}  // namespace
}  // namespace corvane
