#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "platform/linux/processes/ForkedChild.h"

namespace corvane {
namespace {

// Forks a child that leaves this process behind but for two descriptors, and has it look at itself.
class ForkedChildTest : public testing::Test {
 protected:
  template <typename Look>
  bool seesInChild(const Look& look) {
    const pid_t child = ::fork();
    if (child == 0) {
      leaveParentBehind(one.get(), other.get());
      ::_exit(look() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status == 0;
  }

  static bool isOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) >= 0; }
  static FileDescriptor make() { return FileDescriptor(::open("/dev/null", O_RDWR | O_CLOEXEC)); }

  const FileDescriptor before = make();
  const FileDescriptor one = make();
  const FileDescriptor between = make();
  const FileDescriptor other = make();
  const FileDescriptor behind = make();
};

TEST_F(ForkedChildTest, ItHasTheTwoDescriptorsAndNoOther) {
  EXPECT_TRUE(seesInChild([this] { return isOpen(one.get()) && isOpen(other.get()); }));
  for (const int descriptor : {STDERR_FILENO, before.get(), between.get(), behind.get()}) {
    EXPECT_TRUE(seesInChild([descriptor] { return !isOpen(descriptor); })) << descriptor;
  }
}

TEST_F(ForkedChildTest, SignalsDoWithItWhatTheyDoByThemselves) {
  const auto was = std::signal(SIGUSR1, SIG_IGN);
  sigset_t blocked;
  sigset_t wasBlocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR2);
  ::sigprocmask(SIG_BLOCK, &blocked, &wasBlocked);
  EXPECT_TRUE(seesInChild([] {
    struct sigaction action {};
    sigset_t mask;
    return ::sigaction(SIGUSR1, nullptr, &action) == 0 && action.sa_handler == SIG_DFL &&
           ::sigprocmask(SIG_SETMASK, nullptr, &mask) == 0 && sigismember(&mask, SIGUSR2) == 0;
  }));
  ::sigprocmask(SIG_SETMASK, &wasBlocked, nullptr);
  std::signal(SIGUSR1, was);
}

TEST_F(ForkedChildTest, WhatItMakesHasThePermissionsThatItIsGiven) {
  const mode_t was = ::umask(077);
  EXPECT_TRUE(seesInChild([] { return ::umask(0) == 0; }));
  ::umask(was);
}

TEST_F(ForkedChildTest, NobodyOfItsUserMayTraceIt) {
  EXPECT_TRUE(seesInChild([] { return ::prctl(PR_GET_DUMPABLE) == 0; }));
}

}  // namespace
}  // namespace corvane
