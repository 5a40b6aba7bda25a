#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/btrfs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include "client/AppendOnlyObjects.h"
#include "foundation/POSIXError.h"
#include "operations/ObjectLocation.h"
#include "operationset-vnt/FolderWalk.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

// Mounts what it needs where nobody else sees it.
class MountPointTest : public ProtectionTest {
 protected:
  void SetUp() override {
    ProtectionTest::SetUp();
    if (IsSkipped()) return;
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
      GTEST_SKIP() << "needs a mount namespace of its own";
    }
    tree = folder.makeFolder("tree");
    file = folder.makeFile("tree/file");
    setKernelFlags(folder.makeFile("tree/protected"), FileFlag::UserImmutable);
    mountPoint = folder.makeFolder("tree/mounted");
  }
  void TearDown() override {
    if (!mountPoint.empty()) ::umount2(mountPoint.c_str(), MNT_DETACH);
  }

  std::optional<Error> remove(const std::string& path) {
    std::optional<Error> error;
    set.enforceRecursiveRemovalOfFileSystemObjectAtPath(path, &error);
    return error;
  }

  ZELPrivilegedOperationSetVNT set;
  TemporaryFolder folder;
  std::string tree;
  std::string file;
  std::string mountPoint;
};

TEST_F(MountPointTest, AFileSystemMountedInTheTreeFailsBeforeAnythingIsDeleted) {
  ASSERT_EQ(::mount("none", mountPoint.c_str(), "tmpfs", 0, nullptr), 0);
  const std::string inside = folder.makeFile("tree/mounted/inside");
  EXPECT_EQ(remove(tree), Error(NSPOSIXErrorDomain, 16));
  EXPECT_TRUE(exists(inside));
  EXPECT_TRUE(exists(file));
  EXPECT_TRUE(exists(folder.path("tree/protected")));
}

TEST_F(MountPointTest, SoDoesAFolderOfTheSameFileSystemBoundInTheTree) {
  const std::string outside = folder.makeFolder("outside");
  const std::string inside = folder.makeFile("outside/inside");
  setKernelFlags(inside, FileFlag::UserImmutable);
  ASSERT_EQ(::mount(outside.c_str(), mountPoint.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(remove(tree), Error(NSPOSIXErrorDomain, 16));
  EXPECT_TRUE(exists(file));
  EXPECT_EQ(kernelFlags(inside), FileFlag::UserImmutable);
}

TEST_F(MountPointTest, SoDoesAFileBoundOverAnother) {
  const std::string bound = folder.makeFile("tree/bound");
  const std::string outside = folder.makeFile("outside");
  ASSERT_EQ(::mount(outside.c_str(), bound.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(remove(tree), Error(NSPOSIXErrorDomain, 16));
  EXPECT_EQ(::umount(bound.c_str()), 0);
  EXPECT_TRUE(exists(file));
}

TEST_F(MountPointTest, AMountPointItselfFailsBeforeItsContentsAreDeleted) {
  ASSERT_EQ(::mount("none", mountPoint.c_str(), "tmpfs", 0, nullptr), 0);
  const std::string inside = folder.makeFile("tree/mounted/inside");
  EXPECT_EQ(remove(mountPoint), Error(NSPOSIXErrorDomain, 16));
  EXPECT_TRUE(exists(inside));
}

TEST_F(MountPointTest, AFileSystemThatKeepsItsStatusFromRootIsInTheWayToo) {
  FileDescriptor device(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
  const std::string options =
      "fd=" + std::to_string(device.get()) + ",rootmode=40000,user_id=65534,group_id=65534";
  if (!device ||
      ::mount("none", mountPoint.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
    GTEST_SKIP() << "needs file systems in user space";
  }
  EXPECT_EQ(remove(tree), Error(NSPOSIXErrorDomain, 16));
  EXPECT_EQ(remove(mountPoint), Error(NSPOSIXErrorDomain, 16));
  EXPECT_TRUE(exists(file));
  // Root may not follow a link there, with or without a slash.
  const std::string inside = folder.makeLink("inside", mountPoint + "/object");
  EXPECT_EQ(remove(inside), std::nullopt);
  EXPECT_FALSE(exists(inside));
  const std::string there = folder.makeLink("there", mountPoint);
  EXPECT_EQ(remove(there + "/"), std::nullopt);
  EXPECT_FALSE(exists(there));
}

TEST_F(MountPointTest, AMountPointItselfKeepsItsFlags) {
  const std::string outside = folder.makeFolder("outside");
  setKernelFlags(outside, FileFlag::UserImmutable);
  ASSERT_EQ(::mount(outside.c_str(), mountPoint.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(remove(mountPoint), Error(NSPOSIXErrorDomain, 16));
  EXPECT_EQ(kernelFlags(outside), FileFlag::UserImmutable);
}

TEST_F(MountPointTest, ARestrictedTopRefinesEveryErrorOfARecursiveRemoval) {
  const std::string outside = folder.makeFolder("outside");
  ASSERT_EQ(changeFileFlags(outside, FileFlag::Restricted), std::nullopt);
  ASSERT_EQ(::mount(outside.c_str(), mountPoint.c_str(), nullptr, MS_BIND, nullptr), 0);
  const auto error = remove(mountPoint);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is("com.corvane.error.privileged-operation", 8));
  EXPECT_EQ(*error->userInfo().find(NSUnderlyingErrorKey), Value(Error(NSPOSIXErrorDomain, 16)));
}

TEST_F(MountPointTest, ARestrictedObjectRefinesNothingButAPermissionThatIsMissing) {
  const std::string outside = folder.makeFolder("outside");
  ASSERT_EQ(changeFileFlags(folder.makeFile("outside/file"), FileFlag::Restricted), std::nullopt);
  ASSERT_EQ(::mount(outside.c_str(), mountPoint.c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(
      ::mount(nullptr, mountPoint.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
  std::optional<Error> error;
  EXPECT_FALSE(set.enforceSingleRemovalOfFileSystemObjectAtPath(mountPoint + "/file", &error));
  EXPECT_EQ(error, Error(NSPOSIXErrorDomain, 30));
}

TEST_F(MountPointTest, ASubvolumeInTheTreeIsNoMountPoint) {
  const std::string image = folder.makeFile("image");
  ASSERT_EQ(::truncate(image.c_str(), 128 << 20), 0);
  const std::string command =
      "(mkfs.btrfs -q " + image + " && mount -o loop " + image + " " + mountPoint + ") 2>/dev/null";
  if (std::system(command.c_str()) != 0) {
    GTEST_SKIP() << "needs Btrfs and its tools";
  }
  const std::string inner = folder.makeFolder("tree/mounted/inner");
  const FileDescriptor parent(::open(inner.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  btrfs_ioctl_vol_args subvolume = {0, "subvolume"};
  ASSERT_EQ(::ioctl(parent.get(), BTRFS_IOC_SUBVOL_CREATE, &subvolume), 0);
  setKernelFlags(folder.makeFile("tree/mounted/inner/subvolume/a/b/file"), FileFlag::UserImmutable);
  EXPECT_EQ(remove(inner), std::nullopt);
  EXPECT_FALSE(exists(inner));
}

TEST_F(MountPointTest, FilesOfBothLayersOfAnOverlayAreRemoved) {
  ASSERT_EQ(::mount("none", mountPoint.c_str(), "tmpfs", 0, nullptr), 0);
  folder.makeFolder("tree/mounted/lower");
  const std::string top = folder.makeFolder("tree/mounted/top");
  const std::string upper = folder.makeFolder("tree/mounted/upper");
  ASSERT_EQ(::mount("none", upper.c_str(), "tmpfs", 0, nullptr), 0);
  folder.makeFolder("tree/mounted/upper/files");
  folder.makeFolder("tree/mounted/upper/work");
  folder.makeFolder("tree/mounted/lower/inner");
  folder.makeFile("tree/mounted/lower/inner/below");
  const std::string options =
      "lowerdir=" + mountPoint + "/lower,upperdir=" + upper + "/files,workdir=" + upper + "/work";
  if (::mount("none", top.c_str(), "overlay", 0, options.c_str()) != 0) {
    ::umount2(upper.c_str(), MNT_DETACH);
    GTEST_SKIP() << "needs overlays";
  }
  folder.makeFile("tree/mounted/top/inner/above");
  EXPECT_EQ(remove(top + "/inner"), std::nullopt);
  EXPECT_FALSE(exists(top + "/inner"));
  ::umount2(top.c_str(), MNT_DETACH);
  ::umount2(upper.c_str(), MNT_DETACH);
}

// Mounts another folder on each one that it sees.
class MountingVisitor : public FolderVisitor {
 public:
  explicit MountingVisitor(const TemporaryFolder& folder, std::string outside)
      : _folder(folder), _outside(std::move(outside)) {}
  std::optional<Error> visit(int, const FolderEntry& entry, bool& descend) override {
    visited.emplace_back(entry.name);
    EXPECT_EQ(
        ::mount(_outside.c_str(), _folder.path(entry.name).c_str(), nullptr, MS_BIND, nullptr), 0);
    descend = true;
    return std::nullopt;
  }
  std::optional<Error> leave(int, const char*) override { return std::nullopt; }

  std::vector<std::string> visited;

 private:
  const TemporaryFolder& _folder;
  const std::string _outside;
};

TEST_F(MountPointTest, AFileSystemMountedOnAFolderOnceItWasSeenIsNotEntered) {
  const TemporaryFolder walked{parentForManyFiles()};
  const TemporaryFolder outside{parentForManyFiles()};
  outside.makeFile("outside");
  const std::string inner = walked.makeFolder("inner");
  const auto top = locateObject(walked.path());
  ASSERT_TRUE(top);
  MountingVisitor visitor(walked, outside.path());
  EXPECT_EQ(walkFolder(top->folder.get(), top->name.c_str(), visitor, 1),
            posixError(POSIXErrorCode::Busy));
  EXPECT_EQ(visitor.visited, std::vector<std::string>{"inner"});
  EXPECT_EQ(::umount2(inner.c_str(), MNT_DETACH), 0);
}

TEST_F(MountPointTest, AppendOnlyObjectsAreNotLookedForInOtherFileSystems) {
  const std::string outside = folder.makeFolder("outside");
  setKernelFlags(folder.makeFile("outside/file"), FileFlag::UserAppend);
  ASSERT_EQ(::mount(outside.c_str(), mountPoint.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_TRUE(appendOnlyObjects(tree).reachable.empty());
  EXPECT_FALSE(clearAppendOnlyFlags(tree));
}

TEST_F(MountPointTest, ATreeOnAFileSystemWithoutFlagsIsRemoved) {
  ASSERT_EQ(::mount("none", mountPoint.c_str(), "ramfs", 0, nullptr), 0);
  const std::string inner = folder.makeFolder("tree/mounted/inner");
  folder.makeFile("tree/mounted/inner/file");
  EXPECT_EQ(changeFileFlags(inner, FileFlag::UserImmutable), Error(NSPOSIXErrorDomain, 45));
  EXPECT_EQ(remove(inner), std::nullopt);
  EXPECT_FALSE(exists(inner));
}

}  // namespace
}  // namespace corvane
