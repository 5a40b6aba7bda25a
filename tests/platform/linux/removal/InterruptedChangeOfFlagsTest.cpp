#include <cerrno>
#include <functional>
#include <optional>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/linux/files/OpenObject.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {

// What somebody else does at the very instant before or after one of the openings below.
namespace {
using Intruder = std::function<void(const std::string& name)>;
Intruder beforeOpening;
Intruder afterOpening;

void interrupt(const Intruder& intruder, const char* name) {
  const Intruder now = intruder;  // which may end itself
  if (now) now(name);
}
}  // namespace

std::optional<Error> openObject(int folder, const char* name, FinalLink link,
                                FileDescriptor& object) {
  interrupt(beforeOpening, name);
  object.reset(
      ::openat(folder, name, O_PATH | O_CLOEXEC | (link == FinalLink::Keep ? O_NOFOLLOW : 0)));
  if (!object) return posixErrorFromHost(errno);
  interrupt(afterOpening, name);
  return std::nullopt;
}

namespace {

class InterruptedChangeOfFlagsTest : public ProtectionTest {
 protected:
  void TearDown() override { beforeOpening = afterOpening = nullptr; }

  std::string makeProtected(const std::string& name) const {
    std::string file = folder.makeFile(name);
    setKernelFlags(file, FileFlag::UserImmutable);
    return file;
  }
  // Before `name` is opened, it becomes a link to another protected file.
  void swapForALink(const std::string& name, const std::string& path) const {
    beforeOpening = [this, name, path](const std::string& opened) {
      if (opened != name) return;
      setKernelFlags(path, 0);
      EXPECT_EQ(::rename(path.c_str(), folder.path("moved").c_str()), 0);
      EXPECT_EQ(::symlink(folder.path("outside").c_str(), path.c_str()), 0);
      beforeOpening = nullptr;
    };
  }
  // All files of the tree but the one that is at work.
  void removeOthers(const std::string& name) const {
    for (int i = 0; i < fileCount; ++i) {
      const std::string other = std::to_string(i);
      const std::string path = folder.path("tree/" + other);
      if (other == name || !exists(path)) continue;
      setKernelFlags(path, 0);
      EXPECT_EQ(::unlink(path.c_str()), 0);
    }
  }

  static constexpr int fileCount = 20;
  ZELPrivilegedOperationSetVNT set;
  TemporaryFolder folder;
  std::optional<Error> error;
};

TEST_F(InterruptedChangeOfFlagsTest, FlagsAreNotClearedThroughALinkInASingleRemoval) {
  const std::string outside = makeProtected("outside");
  const std::string file = makeProtected("file");
  swapForALink("file", file);
  EXPECT_TRUE(set.enforceSingleRemovalOfFileSystemObjectAtPath(file, &error));
  EXPECT_FALSE(beforeOpening);
  EXPECT_FALSE(exists(file));
  EXPECT_EQ(kernelFlags(outside), FileFlag::UserImmutable);
}

TEST_F(InterruptedChangeOfFlagsTest, NorInATree) {
  const std::string outside = makeProtected("outside");
  const std::string tree = folder.makeFolder("tree");
  swapForALink("file", makeProtected("tree/file"));
  EXPECT_TRUE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, &error));
  EXPECT_FALSE(beforeOpening);
  EXPECT_FALSE(exists(tree));
  EXPECT_EQ(kernelFlags(outside), FileFlag::UserImmutable);
}

TEST_F(InterruptedChangeOfFlagsTest, FlagsAreReadFromTheObjectThatTheyAreWrittenTo) {
  const std::string file = makeProtected("file");
  const std::string other = folder.makeFile("other");
  const std::string moved = folder.path("moved");
  afterOpening = [&](const std::string&) {
    setKernelFlags(file, 0);
    EXPECT_EQ(::rename(file.c_str(), moved.c_str()), 0);
    EXPECT_EQ(::rename(other.c_str(), file.c_str()), 0);
    setKernelFlags(moved, FileFlag::UserImmutable);
    afterOpening = nullptr;
    EXPECT_EQ(changeFileFlags(file, FileFlag::SystemImmutable), std::nullopt);
  };
  EXPECT_FALSE(set.enforceSingleRemovalOfFileSystemObjectAtPath(file, &error));
  EXPECT_EQ(error, Error(NSPOSIXErrorDomain, 1));
  EXPECT_EQ(fileFlags(moved), 0U);
  EXPECT_EQ(fileFlags(file), FileFlag::SystemImmutable);
}

TEST_F(InterruptedChangeOfFlagsTest, WhatOthersRemoveMeanwhileNeedsNoUnprotection) {
  const std::string tree = folder.makeFolder("tree");
  for (int i = 0; i < fileCount; ++i) makeProtected("tree/" + std::to_string(i));
  beforeOpening = [&](const std::string& name) {
    if (name == "tree") return;
    beforeOpening = nullptr;
    removeOthers(name);
  };
  EXPECT_TRUE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, &error));
  EXPECT_EQ(error, std::nullopt);
  EXPECT_FALSE(exists(tree));
}

}  // namespace
}  // namespace corvane
