#include <csignal>
#include <cstdlib>
#include <string>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/fs.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class FileFlagsTest : public ProtectionTest {
 protected:
  TemporaryFolder folder;
};

TEST_F(FileFlagsTest, WhatTheKernelProtectsCountsAsAUserFlag) {
  const std::string file = folder.makeFile("file");
  EXPECT_EQ(fileFlags(file), 0U);
  setKernelFlags(file, FileFlag::UserImmutable);
  EXPECT_EQ(fileFlags(file), FileFlag::UserImmutable);
  setKernelFlags(file, FileFlag::UserAppend);
  EXPECT_EQ(fileFlags(file), FileFlag::UserAppend);
}

TEST_F(FileFlagsTest, OnlyADeviceThatNoDriverHasIsAWhiteout) {
  const std::string path = folder.path("device");
  for (const auto& [device, type] :
       {std::pair(::makedev(0, 0), FileType::Whiteout), std::pair(::makedev(5, 0), FileType::Other),
        std::pair(::makedev(0, 5), FileType::Other)}) {
    if (::mknod(path.c_str(), S_IFCHR | 0600, device) != 0) GTEST_SKIP() << "needs to make devices";
    FileStatus status;
    ASSERT_EQ(statusOf(AT_FDCWD, path.c_str(), FinalLink::Keep, status), std::nullopt);
    EXPECT_EQ(status.type, type) << device;
    ASSERT_EQ(::unlink(path.c_str()), 0);
  }
}

TEST_F(FileFlagsTest, UserFlagsNeedNoAttribute) {
  const std::string file = folder.makeFile("file");
  ASSERT_EQ(changeFileFlags(file, FileFlag::UserImmutable | FileFlag::UserAppend), std::nullopt);
  EXPECT_EQ(kernelFlags(file), FileFlag::UserImmutable | FileFlag::UserAppend);
  EXPECT_EQ(::listxattr(file.c_str(), nullptr, 0), 0);
  ASSERT_EQ(changeFileFlags(file, FileFlag::UserAppend), std::nullopt);
  EXPECT_EQ(kernelFlags(file), FileFlag::UserAppend);
  ASSERT_EQ(changeFileFlags(file, 0), std::nullopt);
  EXPECT_EQ(kernelFlags(file), 0U);
}

TEST_F(FileFlagsTest, ALeaseOnAFileHoldsNobodyUp) {
  const std::string path = folder.makeFile("file");
  // The holder is told by a signal.
  const auto former = std::signal(SIGIO, SIG_IGN);
  {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (::fcntl(file.get(), F_SETLEASE, F_WRLCK) != 0) GTEST_SKIP() << "needs leases";
    EXPECT_EQ(changeFileFlags(path, FileFlag::UserImmutable), Error(NSPOSIXErrorDomain, 35));
  }
  std::signal(SIGIO, former);
  EXPECT_EQ(changeFileFlags(path, FileFlag::UserImmutable), std::nullopt);
}

TEST_F(FileFlagsTest, SystemFlagsAreToldApartFromUserFlags) {
  int count = 0;
  for (const FileFlags flags :
       {FileFlag::SystemImmutable, FileFlag::SystemAppend, FileFlag::Restricted,
        FileFlag::SystemImmutable | FileFlag::SystemAppend | FileFlag::UserAppend}) {
    const std::string file = folder.makeFile("file" + std::to_string(++count));
    ASSERT_EQ(changeFileFlags(file, flags), std::nullopt);
    EXPECT_EQ(fileFlags(file), flags);
    EXPECT_NE(kernelFlags(file), 0U);
  }
}

TEST_F(FileFlagsTest, SystemFlagsCanBeAddedToUserFlagsButNotCleared) {
  const std::string file = folder.makeFile("file");
  ASSERT_EQ(changeFileFlags(file, FileFlag::UserImmutable), std::nullopt);
  ASSERT_EQ(changeFileFlags(file, FileFlag::UserImmutable | FileFlag::SystemImmutable),
            std::nullopt);
  EXPECT_EQ(fileFlags(file), FileFlag::UserImmutable | FileFlag::SystemImmutable);
  EXPECT_EQ(changeFileFlags(file, FileFlag::UserImmutable), Error(NSPOSIXErrorDomain, 1));
  EXPECT_EQ(changeFileFlags(file, 0), Error(NSPOSIXErrorDomain, 1));
  EXPECT_EQ(fileFlags(file), FileFlag::UserImmutable | FileFlag::SystemImmutable);
  ASSERT_EQ(changeFileFlags(file, FileFlag::SystemImmutable), std::nullopt);
  EXPECT_EQ(fileFlags(file), FileFlag::SystemImmutable);
  EXPECT_EQ(kernelFlags(file), FileFlag::UserImmutable);
}

TEST_F(FileFlagsTest, ARestrictedObjectRefusesEveryChange) {
  const std::string file = folder.makeFile("file");
  ASSERT_EQ(changeFileFlags(file, FileFlag::Restricted), std::nullopt);
  EXPECT_EQ(changeFileFlags(file, 0), Error(NSPOSIXErrorDomain, 1));
  EXPECT_EQ(changeFileFlags(file, FileFlag::Restricted), Error(NSPOSIXErrorDomain, 1));
  EXPECT_EQ(changeFileFlags(file, FileFlag::Restricted | FileFlag::UserAppend),
            Error(NSPOSIXErrorDomain, 1));
  EXPECT_EQ(fileFlags(file), FileFlag::Restricted);
}

TEST_F(FileFlagsTest, AnAttributeCountsOnlyWhileTheKernelProtects) {
  const std::string file = folder.makeFile("file");
  ASSERT_EQ(changeFileFlags(file, FileFlag::SystemImmutable), std::nullopt);
  setKernelFlags(file, 0);
  EXPECT_EQ(fileFlags(file), 0U);
  ASSERT_EQ(changeFileFlags(file, FileFlag::UserImmutable), std::nullopt);
  EXPECT_EQ(fileFlags(file), FileFlag::UserImmutable);
}

TEST_F(FileFlagsTest, AnAttributeThatMakesNoSenseIsAnError) {
  const std::string file = folder.makeFile("file");
  for (const std::string text : {"", "20000", "0x", "0xg", "0x2 ", "0x00000000000000020000"}) {
    ASSERT_EQ(::setxattr(file.c_str(), "trusted.corvane.flags", text.data(), text.size(), 0), 0);
    setKernelFlags(file, FileFlag::UserImmutable);
    FileStatus status;
    EXPECT_EQ(statusOf(AT_FDCWD, file.c_str(), FinalLink::Keep, status),
              Error(NSPOSIXErrorDomain, 5))
        << text;
    setKernelFlags(file, 0);
  }
}

TEST_F(FileFlagsTest, OtherFlagsOfTheKernelStay) {
  const std::string file = folder.makeFile("file");
  const FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  int flags = FS_NODUMP_FL;
  ASSERT_EQ(::ioctl(descriptor.get(), FS_IOC_SETFLAGS, &flags), 0);
  ASSERT_EQ(changeFileFlags(file, FileFlag::UserImmutable), std::nullopt);
  ASSERT_EQ(changeFileFlags(file, 0), std::nullopt);
  ASSERT_EQ(::ioctl(descriptor.get(), FS_IOC_GETFLAGS, &flags), 0);
  EXPECT_NE(flags & FS_NODUMP_FL, 0);
}

// Opening a fifo for reading would wait for a writer.
TEST_F(FileFlagsTest, FifosDevicesAndLinksHaveNoFlagsAndAreNotOpened) {
  EXPECT_EQ(changeFileFlags(folder.makeFifo("fifo"), FileFlag::UserImmutable),
            Error(NSPOSIXErrorDomain, 45));
  EXPECT_EQ(changeFileFlags(folder.makeWhiteout("device"), FileFlag::UserImmutable),
            Error(NSPOSIXErrorDomain, 45));
  EXPECT_EQ(changeFileFlags(folder.makeLink("link", "fifo"), FileFlag::UserImmutable),
            Error(NSPOSIXErrorDomain, 45));
  EXPECT_EQ(changeFileFlags(folder.path("fifo"), 0), std::nullopt);
}

TEST_F(FileFlagsTest, AFileSystemWithoutFlagsDoesNotSupportAChange) {
  EXPECT_EQ(changeFileFlags("/proc/self/comm", FileFlag::UserImmutable),
            Error(NSPOSIXErrorDomain, 45));
  EXPECT_EQ(changeFileFlags("/proc/self/comm", 0), std::nullopt);
}

TEST_F(FileFlagsTest, AFlagThatCannotBeKeptIsNotSupported) {
  EXPECT_EQ(changeFileFlags(folder.makeFile("file"), 0x8000), Error(NSPOSIXErrorDomain, 45));
}

TEST_F(FileFlagsTest, StatusTellsTypesApart) {
  const auto typeOf = [](const std::string& path) {
    FileStatus status;
    EXPECT_EQ(statusOf(AT_FDCWD, path.c_str(), FinalLink::Keep, status), std::nullopt);
    return status.type;
  };
  EXPECT_EQ(typeOf(folder.path()), FileType::Directory);
  EXPECT_EQ(typeOf(folder.makeFile("file")), FileType::Other);
  EXPECT_EQ(typeOf(folder.makeLink("link", "file")), FileType::SymbolicLink);
  EXPECT_EQ(typeOf(folder.makeWhiteout("whiteout")), FileType::Whiteout);
  EXPECT_EQ(typeOf("/dev/null"), FileType::Other);
}

TEST_F(FileFlagsTest, AFolderIsOpenedOnlyIfItIsOne) {
  FileDescriptor subfolder;
  folder.makeFolder("target");
  const std::string link = folder.makeLink("link", "target");
  EXPECT_EQ(openFolder(AT_FDCWD, link.c_str(), subfolder), Error(NSPOSIXErrorDomain, 20));
  const std::string file = folder.makeFile("file");
  EXPECT_EQ(openFolder(AT_FDCWD, file.c_str(), subfolder), Error(NSPOSIXErrorDomain, 20));
  EXPECT_FALSE(subfolder);
}

TEST_F(FileFlagsTest, OnlyFilesAndFoldersAreOpenedToChangeTheirFlags) {
  const std::string socket = folder.path("socket");
  ASSERT_EQ(::mknod(socket.c_str(), S_IFSOCK | 0600, 0), 0);
  const std::string device = folder.path("device");
  ASSERT_EQ(::mknod(device.c_str(), S_IFCHR | 0600, ::makedev(1, 3)), 0);
  const FileDescriptor watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  const std::string fifo = folder.makeFifo("fifo");
  for (const std::string& path : {fifo, socket, device}) {
    ASSERT_GE(::inotify_add_watch(watch.get(), path.c_str(), IN_OPEN), 0);
    EXPECT_EQ(changeFileFlags(path, FileFlag::UserImmutable), Error(NSPOSIXErrorDomain, 45))
        << path;
    EXPECT_EQ(changeFileFlags(path, 0), std::nullopt) << path;
  }
  char event[256];
  EXPECT_LT(::read(watch.get(), event, sizeof event), 0);
  // An open would have been noticed.
  { const FileDescriptor opened(::open(device.c_str(), O_RDONLY | O_CLOEXEC)); }
  EXPECT_GT(::read(watch.get(), event, sizeof event), 0);
}

TEST_F(FileFlagsTest, WhoDoesNotSeeSystemFlagsChangesNothingThatIsProtected) {
  const std::string locked = folder.makeFile("locked");
  const std::string mine = folder.makeFile("mine");
  ASSERT_EQ(changeFileFlags(locked, FileFlag::SystemImmutable), std::nullopt);
  ASSERT_EQ(changeFileFlags(mine, FileFlag::UserImmutable), std::nullopt);
  const pid_t child = ::fork();
  if (child == 0) {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct capabilities[_LINUX_CAPABILITY_U32S_3] = {};
    bool isRefused = ::syscall(SYS_capget, &header, capabilities) == 0;
    capabilities[CAP_TO_INDEX(CAP_SYS_ADMIN)].effective &= ~CAP_TO_MASK(CAP_SYS_ADMIN);
    isRefused = isRefused && ::syscall(SYS_capset, &header, capabilities) == 0;
    const Error notPermitted(NSPOSIXErrorDomain, 1);
    for (const std::string& path : {locked, mine}) {
      isRefused = isRefused && changeFileFlags(path, 0) == notPermitted &&
                  changeFileFlags(path, FileFlag::UserImmutable) == notPermitted;
    }
    ::_exit(isRefused ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(fileFlags(locked), FileFlag::SystemImmutable);
  EXPECT_EQ(fileFlags(mine), FileFlag::UserImmutable);
}

}  // namespace
}  // namespace corvane
