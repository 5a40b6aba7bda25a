#include <cerrno>
#include <csignal>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "process/ZELTaskExecutor.h"
#include "tests/platform/linux/support/SystemCallFilter.h"
#include "tests/process/RecordingDelegate.h"

namespace corvane {
namespace {

using Arguments = ZELTaskExecutor::Arguments;

struct Runner {
  std::shared_ptr<ZELTaskExecutor> executor = ZELTaskExecutor::init();
  std::shared_ptr<tests::RecordingDelegate> delegate = std::make_shared<tests::RecordingDelegate>();

  Runner() { executor->setDelegate(delegate); }
};

TEST(TaskOnLinuxTest, ChildHasDefaultSignalActionsAndNoneBlocked) {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGUSR1, SIG_IGN);
  sigset_t blocked;
  sigfillset(&blocked);
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  const Runner run;
  EXPECT_EQ(run.executor->executeProgramAtPath(
                "/bin/grep", Arguments{"-E", "^Sig(Blk|Ign)", "/proc/self/status"}),
            0);
  EXPECT_EQ(run.delegate->output(), "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  std::signal(SIGPIPE, SIG_DFL);
  std::signal(SIGUSR1, SIG_DFL);
}

TEST(TaskOnLinuxTest, RunsWhereTheKernelHasNoProcessDescriptors) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        refuseSystemCalls({SYS_pidfd_open}, ENOSYS);
        const Runner run;
        // Its streams end before it does.
        const std::int32_t status = run.executor->executeProgramAtPath(
            "/bin/sh", Arguments{"-c", "echo out; exec >&- 2>&-; sleep 0.1; exit 6"});
        _exit(status == 6 && run.delegate->output() == "out\n" ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace corvane
