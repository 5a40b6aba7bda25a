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
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ProcessTable.h"
#include "process/NSProcessInfoZELAdditions.h"
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
    if (pipe(input) != 0 || pipe(launched) != 0) abort();
    for (const int end : {input[0], input[1], launched[0], launched[1]}) {
      fcntl(end, F_SETFD, FD_CLOEXEC);
    }
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

TEST(ProcessTableTest, AProcessThatWaitsToBeCollectedHasEnded) {
  const UncollectedChild child;
  ASSERT_EQ(kill(child.pid(), 0), 0);
  EXPECT_TRUE(hasProcessEnded(child.pid()));
  EXPECT_EQ(processNameForProcessID(child.pid(), nullptr), std::nullopt);
}

TEST(ProcessTableTest, WhatRunsHasNotEndedAndNumbersOfNoProcessHave) {
  EXPECT_FALSE(hasProcessEnded(getpid()));
  for (const std::int32_t pid : {0, -1, -getpid(), 0x7fffffff}) {
    EXPECT_TRUE(hasProcessEnded(pid)) << pid;
  }
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
