#include <array>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ProcessTable.h"
#include "process/NSProcessInfoZELAdditions.h"
#include "tests/platform/linux/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using testing::Optional;

TEST(LinuxProcessTableTest, CompletesTheNameOfAScript) {
  const TemporaryFolder folder;
  const PipeEnds input = makePipe();
  const PipeEnds output = makePipe();
  const ChildProcess script =
      ChildProcess::program({folder.makeScript("sbcdefghijklmnopqrs", "echo ready; read line")},
                            {input.output.get(), output.input.get()});
  ASSERT_EQ(readLine(output.output), "ready");
  EXPECT_THAT(processNameForProcessID(script.pid(), nullptr),
              Optional(std::string("sbcdefghijklmnop")));
}

// Gives this process another name until the end of the scope.
class ChangedName {
 public:
  explicit ChangedName(const char* name) {
    prctl(PR_GET_NAME, _before);
    prctl(PR_SET_NAME, name);
  }
  ChangedName(const ChangedName&) = delete;
  ChangedName& operator=(const ChangedName&) = delete;
  ~ChangedName() { prctl(PR_SET_NAME, _before); }

 private:
  char _before[16] = {};
};

TEST(LinuxProcessTableTest, ReplacesWhatIsNotUTF8) {
  const ChangedName name("a\xffz");
  EXPECT_THAT(processNameForProcessID(getpid(), nullptr), Optional(std::string("a\uFFFDz")));
}

TEST(LinuxProcessTableTest, TakesNamesWithLineFeedsAndParentheses) {
  const ChangedName name("a) R 1\nUid:\t7\t7");
  std::uint32_t user = 12345;
  EXPECT_THAT(processNameForProcessID(getpid(), &user),
              Optional(std::string("a) R 1\nUid:\t7\t7")));
  EXPECT_EQ(user, geteuid());
}

// A child whose first thread has ended while another one runs, until the end of the scope.
class ChildWithoutFirstThread {
 public:
  ChildWithoutFirstThread() : _pid(fork()) {
    if (_pid != 0) return;
    std::thread([] {
      for (;;) pause();
    }).detach();
    syscall(SYS_exit, 0);
  }
  ChildWithoutFirstThread(const ChildWithoutFirstThread&) = delete;
  ChildWithoutFirstThread& operator=(const ChildWithoutFirstThread&) = delete;
  ~ChildWithoutFirstThread() {
    kill(_pid, SIGKILL);
    waitpid(_pid, nullptr, 0);
  }
  pid_t pid() const { return _pid; }
  void waitForEndOfFirstThread() const {
    for (;;) {
      const std::string stat = contentOf("/proc/" + std::to_string(_pid) + "/stat");
      if (stat.find(") Z ") != std::string::npos) return;
      usleep(1000);
    }
  }

 private:
  pid_t _pid;
};

// No descriptor can be had until the end of the scope.
class DescriptorsUsedUp {
 public:
  DescriptorsUsedUp() {
    getrlimit(RLIMIT_NOFILE, &_before);
    const rlimit none{0, _before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  DescriptorsUsedUp(const DescriptorsUsedUp&) = delete;
  DescriptorsUsedUp& operator=(const DescriptorsUsedUp&) = delete;
  ~DescriptorsUsedUp() { setrlimit(RLIMIT_NOFILE, &_before); }

 private:
  rlimit _before{};
};

TEST(LinuxProcessTableTest, AProcessWhoseFirstThreadHasEndedStillRuns) {
  const ChildWithoutFirstThread child;
  child.waitForEndOfFirstThread();
  EXPECT_FALSE(hasProcessEnded(child.pid()));
  EXPECT_TRUE(processNameForProcessID(child.pid(), nullptr));
}

TEST(LinuxProcessTableTest, WithoutDescriptorsNobodyHasEndedWhoMayRun) {
  const DescriptorsUsedUp none;
  EXPECT_FALSE(hasProcessEnded(getpid()));
  EXPECT_TRUE(hasProcessEnded(0x7fffffff));
  EXPECT_EQ(readProcessTable(), std::nullopt);
}

TEST(LinuxProcessTableTest, ATableThatCannotBeReadToItsEndIsNone) {
  // Descriptors for the table itself, for the folder of a process, and none for what is in there.
  const int next = dup(STDIN_FILENO);
  close(next);
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few{static_cast<rlim_t>(next) + 2, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &few);
  const auto records = readProcessTable();
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_FALSE(records);
}

TEST(LinuxProcessTableTest, TheNumberOfAThreadIsThatOfNoProcess) {
  std::thread([] { EXPECT_TRUE(hasProcessEnded(gettid())); }).join();
}

}  // namespace
}  // namespace corvane
