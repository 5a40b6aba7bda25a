#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/FileSystem.h"
#include "tests/platform/linux/support/SystemCallFilter.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class OpenFolderTest : public testing::Test {
 protected:
  std::optional<Error> open(const char* name) const {
    FileDescriptor subfolder;
    return openFolder(parent.get(), name, subfolder);
  }
  // The test, in a process of its own.
  template <typename Test>
  static void inChild(const Test& test) {
    const pid_t child = ::fork();
    if (child == 0) {
      test();
      ::_exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }

  // Only what was asked for is opened.
  void expectCare() const {
    EXPECT_EQ(open("plain"), std::nullopt);
    EXPECT_EQ(open(".."), std::nullopt);
    EXPECT_EQ(open("link"), Error(NSPOSIXErrorDomain, 20));
    EXPECT_EQ(open("file"), Error(NSPOSIXErrorDomain, 20));
    EXPECT_EQ(open("missing"), Error(NSPOSIXErrorDomain, 2));
    if (!canMount) return;
    const std::string plain = folder.path("plain");
    const std::string mounted = folder.path("mounted");
    ASSERT_EQ(::mount(plain.c_str(), mounted.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(open("mounted"), Error(NSPOSIXErrorDomain, 16));
    FileDescriptor subfolder;
    const FileDescriptor inside(::open(mounted.c_str(), O_PATH | O_CLOEXEC));
    EXPECT_EQ(openFolder(inside.get(), "..", subfolder), Error(NSPOSIXErrorDomain, 16));
    ASSERT_EQ(::umount2(mounted.c_str(), MNT_DETACH), 0);
    ASSERT_EQ(::mount("none", mounted.c_str(), "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(open("mounted"), Error(NSPOSIXErrorDomain, 16));
    ASSERT_EQ(::umount2(mounted.c_str(), MNT_DETACH), 0);
  }

  void SetUp() override {
    canMount = ::unshare(CLONE_NEWNS) == 0 &&
               ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    folder.makeFolder("plain");
    folder.makeFolder("mounted");
    folder.makeFile("file");
    folder.makeLink("link", "plain");
    parent.reset(::open(folder.path().c_str(), O_PATH | O_CLOEXEC));
  }

  TemporaryFolder folder{parentForManyFiles()};
  FileDescriptor parent;
  bool canMount = false;
};

TEST_F(OpenFolderTest, FollowsNoLinkAndEntersNoMount) {
  inChild([this] { expectCare(); });
}

TEST_F(OpenFolderTest, NorWhereTheKernelDoesNotKnowOpenat2) {
  inChild([this] {
    refuseSystemCalls({SYS_openat2}, ENOSYS);
    expectCare();
  });
}

TEST_F(OpenFolderTest, NorWhereAFilterForbidsIt) {
  inChild([this] {
    refuseSystemCalls({SYS_openat2}, EPERM);
    expectCare();
  });
}

TEST_F(OpenFolderTest, NorWhereStatxDoesNotTellMountsApart) {
  inChild([this] {
    refuseSystemCalls({SYS_openat2, SYS_statx}, ENOSYS);
    expectCare();
  });
}

TEST_F(OpenFolderTest, TheFolderSoManyLevelsAboveIsFound) {
  FileDescriptor deepest(::openat(parent.get(), "plain", O_PATH | O_CLOEXEC));
  FileIdentity top;
  ASSERT_EQ(ancestorOf(deepest.get(), 0, top), std::nullopt);
  FileStatus status;
  ASSERT_EQ(statusOf(parent.get(), "plain", FinalLink::Keep, status), std::nullopt);
  EXPECT_EQ(top, status.identity);
  constexpr std::size_t depth = 2100;  // more than a path can say
  for (std::size_t i = 0; i < depth; ++i) {
    ASSERT_EQ(::mkdirat(deepest.get(), "d", 0755), 0);
    deepest.reset(::openat(deepest.get(), "d", O_PATH | O_CLOEXEC));
  }
  FileIdentity ancestor;
  EXPECT_EQ(ancestorOf(deepest.get(), depth, ancestor), std::nullopt);
  EXPECT_EQ(ancestor, top);
  EXPECT_EQ(ancestorOf(deepest.get(), depth - 1, ancestor), std::nullopt);
  EXPECT_NE(ancestor, top);
  EXPECT_EQ(ancestorOf(deepest.get(), 1024, ancestor), std::nullopt);
  EXPECT_NE(ancestor, top);
}

}  // namespace
}  // namespace corvane
