#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ProcessTable.h"
#include "process/NSProcessInfoZELAdditions.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

// A child that runs `program` until it is told to end by the closing of its standard input.
class RunningProgram {
 public:
  explicit RunningProgram(std::vector<std::string> words) {
    int input[2];
    int launched[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(launched, O_CLOEXEC) != 0) abort();
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    _pid = fork();
    if (_pid == 0) {
      dup2(input[0], STDIN_FILENO);
      execv(arguments[0], arguments.data());
      _exit(127);
    }
    close(input[0]);
    close(launched[1]);
    _input = input[1];
    // The child's end of this pipe closes when its program has been started.
    char byte = 0;
    EXPECT_EQ(read(launched[0], &byte, 1), 0);
    close(launched[0]);
  }
  ~RunningProgram() {
    close(_input);
    waitpid(_pid, nullptr, 0);
  }
  pid_t pid() const { return _pid; }

 private:
  pid_t _pid = 0;
  int _input = -1;
};

std::string copyOfCat(const TemporaryFolder& folder, const std::string& name) {
  std::filesystem::copy_file("/bin/cat", folder.path(name));
  return folder.path(name);
}

TEST(ProcessTableTest, HoldsThisProcessWithItsUser) {
  std::uint32_t user = 12345;
  EXPECT_THAT(processNameForProcessID(getpid(), &user), Optional(std::string("process-tests")));
  EXPECT_EQ(user, geteuid());
  EXPECT_TRUE(processNameForProcessID(getpid(), nullptr));
}

TEST(ProcessTableTest, GivesTheEffectiveUserNotTheRealOne) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to change the user";
  ASSERT_EQ(seteuid(4321), 0);
  std::uint32_t user = 0;
  const auto name = processNameForProcessID(getpid(), &user);
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_TRUE(name);
  EXPECT_EQ(user, 4321U);
}

TEST(ProcessTableTest, CompletesACutNameFromTheExecutable) {
  const TemporaryFolder folder;
  const RunningProgram program({copyOfCat(folder, "abcdefghijklmnopqrstuvw")});
  EXPECT_THAT(processNameForProcessID(program.pid(), nullptr),
              Optional(std::string("abcdefghijklmnop")));
  EXPECT_THAT(identifiersForRunningProcessesNamed("abcdefghijklmnop"),
              Optional(ElementsAre(program.pid())));
  // Only sixteen of the seventeen asked for count.
  EXPECT_THAT(identifiersForRunningProcessesNamed("abcdefghijklmnopX"),
              Optional(ElementsAre(program.pid())));
  EXPECT_THAT(identifiersForRunningProcessesNamed("abcdefghijklmno"), Optional(IsEmpty()));
  EXPECT_TRUE(isProcessRunningWithName("abcdefghijklmnop"));
}

TEST(ProcessTableTest, CompletesACutNameOfADeletedExecutable) {
  const TemporaryFolder folder;
  const std::string path = copyOfCat(folder, "qbcdefghijklmnopqrstuvw");
  const RunningProgram program({path});
  std::filesystem::remove(path);
  EXPECT_THAT(processNameForProcessID(program.pid(), nullptr),
              Optional(std::string("qbcdefghijklmnop")));
}

TEST(ProcessTableTest, LeavesANameOfFifteenAsItIs) {
  const TemporaryFolder folder;
  const std::string path = copyOfCat(folder, "rbcdefghijklmno");
  // The argument looks like a longer form of the name.
  const RunningProgram program({path, "-", folder.makeFile("rbcdefghijklmnopq")});
  std::filesystem::remove(path);
  EXPECT_THAT(processNameForProcessID(program.pid(), nullptr),
              Optional(std::string("rbcdefghijklmno")));
}

TEST(ProcessTableTest, CompletesTheNameOfAScript) {
  const TemporaryFolder folder;
  const RunningProgram program({folder.makeScript("sbcdefghijklmnopqrs", "read line")});
  EXPECT_THAT(processNameForProcessID(program.pid(), nullptr),
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

TEST(ProcessTableTest, ReplacesWhatIsNotUTF8) {
  const ChangedName name("a\xffz");
  EXPECT_THAT(processNameForProcessID(getpid(), nullptr), Optional(std::string("a\uFFFDz")));
}

TEST(ProcessTableTest, TakesNamesWithLineFeedsAndParentheses) {
  const ChangedName name("a) R 1\nUid:\t7\t7");
  std::uint32_t user = 12345;
  EXPECT_THAT(processNameForProcessID(getpid(), &user),
              Optional(std::string("a) R 1\nUid:\t7\t7")));
  EXPECT_EQ(user, geteuid());
}

TEST(ProcessQueriesTest, EmptyNameIsNoQuestion) {
  EXPECT_EQ(identifiersForRunningProcessesNamed(""), std::nullopt);
  EXPECT_FALSE(isProcessRunningWithName(""));
}

TEST(ProcessQueriesTest, UnknownNameGivesAnEmptyList) {
  EXPECT_THAT(identifiersForRunningProcessesNamed("no-such-process"), Optional(IsEmpty()));
  EXPECT_FALSE(isProcessRunningWithName("no-such-process"));
}

TEST(ProcessQueriesTest, UnknownIdentifierLeavesTheUserUntouched) {
  std::uint32_t user = 12345;
  EXPECT_EQ(processNameForProcessID(0x7fffffff, &user), std::nullopt);
  EXPECT_EQ(user, 12345U);
}

// A child that has ended and waits to be collected, until the end of the scope.
class UncollectedChild {
 public:
  UncollectedChild() : _pid(fork()) {
    if (_pid == 0) _exit(0);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(_pid), &info, WEXITED | WNOWAIT);
  }
  UncollectedChild(const UncollectedChild&) = delete;
  UncollectedChild& operator=(const UncollectedChild&) = delete;
  ~UncollectedChild() { waitpid(_pid, nullptr, 0); }
  pid_t pid() const { return _pid; }

 private:
  pid_t _pid;
};

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

TEST(ProcessTableTest, AProcessThatWaitsToBeCollectedHasEnded) {
  const UncollectedChild child;
  ASSERT_EQ(kill(child.pid(), 0), 0);
  EXPECT_TRUE(hasProcessEnded(child.pid()));
  EXPECT_EQ(processNameForProcessID(child.pid(), nullptr), std::nullopt);
}

TEST(ProcessTableTest, AProcessWhoseFirstThreadHasEndedStillRuns) {
  const ChildWithoutFirstThread child;
  child.waitForEndOfFirstThread();
  EXPECT_FALSE(hasProcessEnded(child.pid()));
  EXPECT_TRUE(processNameForProcessID(child.pid(), nullptr));
}

TEST(ProcessTableTest, WhatRunsHasNotEndedAndNumbersOfNoProcessHave) {
  EXPECT_FALSE(hasProcessEnded(getpid()));
  for (const std::int32_t pid : {0, -1, -getpid(), 0x7fffffff}) {
    EXPECT_TRUE(hasProcessEnded(pid)) << pid;
  }
  std::thread([] { EXPECT_TRUE(hasProcessEnded(gettid())); }).join();
}

TEST(ProcessTableTest, WithoutDescriptorsNobodyHasEndedWhoMayRun) {
  const DescriptorsUsedUp none;
  EXPECT_FALSE(hasProcessEnded(getpid()));
  EXPECT_TRUE(hasProcessEnded(0x7fffffff));
  EXPECT_EQ(readProcessTable(), std::nullopt);
}

TEST(ProcessTableTest, ATableThatCannotBeReadToItsEndIsNone) {
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

TEST(ProcessTableTest, SurvivesProcessesThatComeAndGo) {
  std::atomic<bool> done = false;
  std::thread spawner([&] {
    while (!done) {
      const pid_t pid = fork();
      if (pid == 0) _exit(0);
      waitpid(pid, nullptr, 0);
    }
  });
  for (int i = 0; i < 200; ++i) {
    const auto records = readProcessTable();
    ASSERT_TRUE(records);
    ASSERT_TRUE(std::any_of(records->begin(), records->end(),
                            [](const ProcessRecord& record) { return record.pid == getpid(); }));
  }
  done = true;
  spawner.join();
}

}  // namespace
}  // namespace corvane
