#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <new>
#include <numeric>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/Exception.h"
#include "platform/ChildEnvironment.h"
#include "process/ZELTaskExecutor.h"
#include "tests/process/ProcessResources.h"
#include "tests/process/RecordingDelegate.h"
#include "tests/support/Files.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tests::RecordingDelegate;

using Arguments = ZELTaskExecutor::Arguments;

constexpr const char* shell = "/bin/sh";
constexpr const char* rejected =
    "FAILURE: Execution of the program '%' was rejected due to invalid arguments or status.";

std::string message(std::string text, const std::string& name) {
  return text.replace(text.find('%'), 1, name);
}

struct Runner {
  std::shared_ptr<ZELTaskExecutor> executor = ZELTaskExecutor::init();
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();

  Runner() { executor->setDelegate(delegate); }
  std::int32_t script(const std::string& text, Arguments arguments = {}) const {
    Arguments all = {"-c", text, shell};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return executor->executeProgramAtPath(shell, all);
  }
};

// A run of the form that returns at once, to be waited for.
struct Outcome {
  bool interrupted;
  std::int32_t status;
};
std::future<Outcome> start(ZELTaskExecutor& executor, const std::string& script) {
  const auto promise = std::make_shared<std::promise<Outcome>>();
  EXPECT_TRUE(executor.executeProgramAtPath(shell, Arguments{"-c", script},
                                            [promise](bool interrupted, std::int32_t status) {
                                              promise->set_value({interrupted, status});
                                            }));
  return promise->get_future();
}

std::string exceptionReason(ZELTaskExecutor& executor, const std::string& path,
                            const Arguments& arguments = {}) {
  try {
    executor.executeProgramAtPath(path, arguments);
  } catch (const Exception& exception) {
    EXPECT_EQ(exception.name(), NSInvalidArgumentException);
    return exception.reason();
  }
  return "nothing was raised";
}

TEST(TaskExecutorTest, DeliversBothStreamsToTheDelegate) {
  const Runner run;
  EXPECT_EQ(run.script("echo out; echo err >&2"), 0);
  EXPECT_EQ(run.delegate->output(), "out\n");
  EXPECT_EQ(run.delegate->errorOutput(), "err\n");
}

TEST(TaskExecutorTest, ProgramThatPrintsNothingGivesAnEmptyChunkOfEachStreamAtTheEnd) {
  const Runner run;
  EXPECT_EQ(run.executor->executeProgramAtPath("/bin/true", Arguments{}), 0);
  const auto chunks = run.delegate->chunks();
  ASSERT_GE(chunks.size(), 2U);
  EXPECT_FALSE(chunks[chunks.size() - 2].isError);
  EXPECT_TRUE(chunks.back().isError);
  for (const auto& chunk : chunks) EXPECT_EQ(chunk.text, "");
}

TEST(TaskExecutorTest, StreamThatEndsEarlyGivesOneEmptyChunkThenAndOneAtTheEnd) {
  const TemporaryFolder folder;
  const std::string fifo = folder.path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const Runner run;
  // The program goes on until the end of its output has been seen.
  std::jthread answer([&] {
    while (run.delegate->chunks().empty()) sched_yield();
    std::ofstream(fifo) << "go\n";
  });
  EXPECT_EQ(run.script("exec >&-; read line < \"$1\"", {fifo}), 0);
  const auto chunks = run.delegate->chunks();
  EXPECT_EQ(std::count_if(chunks.begin(), chunks.end(), [](const auto& c) { return !c.isError; }),
            2);
}

TEST(TaskExecutorTest, ResultIsTheExitStatus) {
  EXPECT_EQ(Runner().script("exit 0"), 0);
  EXPECT_EQ(Runner().script("exit 1"), 1);
  EXPECT_EQ(Runner().script("exit 255"), 255);
}

TEST(TaskExecutorTest, ResultIsTheNumberOfTheSignalThatEndedTheProgram) {
  EXPECT_EQ(Runner().script("kill -KILL $$"), SIGKILL);
}

TEST(TaskExecutorTest, OutputOfTheBlockingFormIsLive) {
  const TemporaryFolder folder;
  const std::string fifo = folder.path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const Runner run;
  // The program ends only after its first line has come back through the delegate.
  std::thread answer([&] {
    run.delegate->waitForOutput("first\n");
    std::ofstream(fifo) << "go\n";
  });
  EXPECT_EQ(run.script("echo first; read line < \"$1\"; echo $line", {fifo}), 0);
  answer.join();
  EXPECT_EQ(run.delegate->output(), "first\ngo\n");
}

TEST(TaskExecutorTest, OutputOfTheFormThatReturnsAtOnceIsLive) {
  const TemporaryFolder folder;
  const std::string fifo = folder.path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const Runner run;
  auto outcome = start(*run.executor, "echo first; read line < " + fifo + "; exit 5");
  run.delegate->waitForOutput("first\n");
  EXPECT_TRUE(run.executor->canInterruptProgram());
  std::ofstream(fifo) << "go\n";
  const Outcome result = outcome.get();
  EXPECT_EQ(result.status, 5);
  EXPECT_FALSE(result.interrupted);
  EXPECT_FALSE(run.executor->canInterruptProgram());
}

TEST(TaskExecutorTest, TellsTheDelegateBeforeAndAfterTheLaunch) {
  const Runner run;
  EXPECT_EQ(run.script(":"), 0);
  EXPECT_THAT(run.delegate->events(), ElementsAre("will execute", "did launch"));
}

TEST(TaskExecutorTest, FailedLaunchIsAnnouncedButNotConfirmed) {
  const Runner run;
  exceptionReason(*run.executor, "/nonexistent/program");
  EXPECT_THAT(run.delegate->events(), ElementsAre("will execute"));
}

TEST(TaskExecutorTest, DelegateMayTakeOutputOnly) {
  struct OutputOnly : ZELTaskExecutorDelegate {
    void receiveTaskOutput(std::optional<Data> chunk, std::optional<Number>) override {
      text += stringFromData(*chunk);
    }
    std::string text;
  };
  const auto delegate = std::make_shared<OutputOnly>();
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(delegate);
  EXPECT_EQ(executor->executeProgramAtPath("/bin/echo", Arguments{"x"}), 0);
  EXPECT_EQ(delegate->text, "x\n");
}

TEST(TaskExecutorTest, WithoutADelegateOutputGoesToTheOwnStreams) {
  const auto executor = ZELTaskExecutor::init();
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(executor->executeProgramAtPath(shell, Arguments{"-c", "echo out; echo err >&2"}), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "out\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "err\n");
}

TEST(TaskExecutorTest, DelegateIsNotKeptAlive) {
  const auto executor = ZELTaskExecutor::init();
  auto delegate = std::make_shared<RecordingDelegate>();
  executor->setDelegate(delegate);
  EXPECT_EQ(executor->delegate(), delegate);
  delegate.reset();
  EXPECT_EQ(executor->delegate(), nullptr);
  testing::internal::CaptureStdout();
  EXPECT_EQ(executor->executeProgramAtPath("/bin/echo", Arguments{"x"}), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "x\n");
}

TEST(TaskExecutorTest, AbsentPathIsRefused) {
  const Runner run;
  testing::internal::CaptureStderr();
  EXPECT_EQ(run.executor->executeProgramAtPath(std::nullopt, Arguments{}), -1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), logLineIs(message(rejected, "(null)")));
  EXPECT_FALSE(run.executor->canInterruptProgram());
}

TEST(TaskExecutorTest, AbsentArgumentsAreRefused) {
  const Runner run;
  testing::internal::CaptureStderr();
  EXPECT_EQ(run.executor->executeProgramAtPath("/bin/true", std::nullopt), -1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), logLineIs(message(rejected, "true")));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(run.executor->executeProgramAtPath("/bin/true", std::nullopt, nullptr));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), logLineIs(message(rejected, "true")));
  EXPECT_EQ(run.executor->executeProgramAtPath("/bin/true", Arguments{}), 0);
}

TEST(TaskExecutorTest, EmptyArgumentListStartsTheProgramWithNone) {
  const TemporaryFolder folder;
  const std::string program = folder.makeScript("count", "echo $0 $#");
  const Runner run;
  EXPECT_EQ(run.executor->executeProgramAtPath(program, Arguments{}), 0);
  EXPECT_EQ(run.delegate->output(), program + " 0\n");
}

TEST(TaskExecutorTest, ArgumentsArriveAsTheyAre) {
  const Runner run;
  EXPECT_EQ(run.script("printf '[%s]' \"$@\"", {"", "a b", "$(id)", "\n", "\xff"}), 0);
  EXPECT_EQ(run.delegate->output(), "[][a b][$(id)][\n][\xff]");
}

TEST(TaskExecutorTest, HundredThousandArgumentsArrive) {
  const Runner run;
  EXPECT_EQ(run.script("echo $#", Arguments(100'000, "x")), 0);
  EXPECT_EQ(run.delegate->output(), "100000\n");
}

TEST(TaskExecutorTest, TooLongArgumentsAreALaunchFailure) {
  const Runner run;
  EXPECT_THAT(
      exceptionReason(*run.executor, "/bin/echo", Arguments(100'000, std::string(100, 'x'))),
      HasSubstr("Argument list too long"));
}

TEST(TaskExecutorTest, ZeroBytesAreALaunchFailure) {
  using namespace std::string_literals;
  EXPECT_THAT(exceptionReason(*Runner().executor, "/bin/echo", {"a", "b\0c"s}),
              HasSubstr("argument 2 holds a zero byte"));
  EXPECT_THAT(exceptionReason(*Runner().executor, "/bin/echo\0x"s), HasSubstr("zero byte"));
}

TEST(TaskExecutorTest, LaunchFailuresSayWhatIsWrong) {
  const TemporaryFolder folder;
  EXPECT_EQ(exceptionReason(*Runner().executor, "/nonexistent/program"),
            "The program '/nonexistent/program' could not be launched: No such file or directory");
  EXPECT_THAT(exceptionReason(*Runner().executor, folder.path()), HasSubstr("Permission denied"));
  EXPECT_THAT(exceptionReason(*Runner().executor, folder.makeFile("plain", "x")),
              HasSubstr("Permission denied"));
  EXPECT_THAT(exceptionReason(*Runner().executor, ""), HasSubstr("No such file or directory"));
  const std::string garbage = folder.makeFile("garbage", "not a program");
  chmod(garbage.c_str(), 0755);
  EXPECT_THAT(exceptionReason(*Runner().executor, garbage), HasSubstr("Exec format error"));
}

TEST(TaskExecutorTest, ProgramDeletedAfterItsTestIsALaunchFailure) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to own the program";
  const TemporaryFolder folder;
  const std::string program = folder.makeScript("program", "exit 0");
  EXPECT_TRUE(ZELTaskExecutor::hasExecutableSafePermissionsAtPath(program));
  std::filesystem::remove(program);
  EXPECT_THAT(exceptionReason(*Runner().executor, program), HasSubstr("No such file or directory"));
}

TEST(TaskExecutorTest, FailedLaunchLeavesTheExecutorStuck) {
  const Runner run;
  exceptionReason(*run.executor, "/nonexistent/program");
  EXPECT_TRUE(run.executor->canInterruptProgram());
  testing::internal::CaptureStderr();
  EXPECT_EQ(run.executor->executeProgramAtPath("/bin/true", Arguments{}), -1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), logLineIs(message(rejected, "true")));
  // There is nothing to signal, and no harm in trying.
  run.executor->interruptProgramUsingTerminationRequest(true);
  EXPECT_FALSE(tests::hasChildren());
  tests::waitForThreads();
}

TEST(TaskExecutorTest, RunningOutOfDescriptorsLeavesTheExecutorStuck) {
  if (tests::objectsTakeDescriptors) GTEST_SKIP() << "sanitizers need descriptors of their own";
  for (int count = 0; count < 6; ++count) {
    const std::size_t descriptorsBefore = tests::openDescriptors();
    const Runner run;
    testing::internal::CaptureStderr();
    std::optional<tests::FewDescriptors> few(count);
    const std::int32_t status = run.executor->executeProgramAtPath("/bin/true", Arguments{});
    few.reset();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                logLineIs("FAILURE: The program 'true' cannot be executed because the system is "
                          "running out of file handles."));
    EXPECT_EQ(status, -1);
    EXPECT_TRUE(run.executor->canInterruptProgram());
    EXPECT_TRUE(run.delegate->events().empty());
    EXPECT_EQ(tests::openDescriptors(), descriptorsBefore);
    testing::internal::CaptureStderr();
    EXPECT_EQ(run.executor->executeProgramAtPath("/bin/true", Arguments{}), -1);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), logLineIs(message(rejected, "true")));
  }
}

TEST(TaskExecutorTest, SixDescriptorsAreEnough) {
  if (tests::objectsTakeDescriptors) GTEST_SKIP() << "sanitizers need descriptors of their own";
  const Runner run;
  const tests::FewDescriptors few(6);
  EXPECT_EQ(run.script("echo out; echo err >&2; exit 3"), 3);
  EXPECT_EQ(run.delegate->output(), "out\n");
  EXPECT_EQ(run.delegate->errorOutput(), "err\n");
}

TEST(TaskExecutorTest, SecondStartWhileAProgramRunsIsRefusedAndDoesNotDisturbIt) {
  const TemporaryFolder folder;
  const std::string fifo = folder.path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const Runner run;
  auto outcome = start(*run.executor, "read line < " + fifo + "; echo done; exit 3");
  testing::internal::CaptureStderr();
  EXPECT_EQ(run.executor->executeProgramAtPath("/usr/bin/env", Arguments{}), -1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), logLineIs(message(rejected, "env")));
  std::ofstream(fifo) << "go\n";
  EXPECT_EQ(outcome.get().status, 3);
  EXPECT_EQ(run.delegate->output(), "done\n");
}

TEST(TaskExecutorTest, OneOfManyStartsAtOnceWins) {
  const Runner run;
  std::atomic<int> refused = 0;
  testing::internal::CaptureStderr();
  std::promise<void> ended;
  {
    std::vector<std::jthread> starters;
    starters.reserve(8);
    for (int i = 0; i < 8; ++i) {
      starters.emplace_back([&] {
        if (!run.executor->executeProgramAtPath("/bin/cat", Arguments{},
                                                [&](bool, std::int32_t) { ended.set_value(); })) {
          ++refused;
        }
      });
    }
  }
  EXPECT_EQ(refused, 7);
  testing::internal::GetCapturedStderr();
  run.executor->interruptProgramUsingTerminationRequest(true);
  ended.get_future().wait();
}

TEST(TaskExecutorTest, NewRunMayStartFromTheCompletionHandler) {
  const auto executor = ZELTaskExecutor::init();
  std::promise<std::int32_t> second;
  EXPECT_TRUE(executor->executeProgramAtPath("/bin/true", Arguments{}, [&](bool, std::int32_t) {
    EXPECT_TRUE(executor->executeProgramAtPath(
        "/bin/false", Arguments{}, [&](bool, std::int32_t status) { second.set_value(status); }));
  }));
  EXPECT_EQ(second.get_future().get(), 1);
}

TEST(TaskExecutorTest, ExecutorMayBeDroppedRightAfterTheStart) {
  const TemporaryFolder folder;
  const std::string fifo = folder.path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  auto executor = ZELTaskExecutor::init();
  const std::weak_ptr<ZELTaskExecutor> watch = executor;
  auto outcome = start(*executor, "read line < " + fifo + "; exit 9");
  executor.reset();
  EXPECT_FALSE(watch.expired());
  std::ofstream(fifo) << "go\n";
  EXPECT_EQ(outcome.get().status, 9);
}

TEST(TaskExecutorTest, InterruptingAnIdleExecutorDoesNothing) {
  const auto executor = ZELTaskExecutor::init();
  EXPECT_FALSE(executor->canInterruptProgram());
  executor->interruptProgramUsingTerminationRequest(true);
  executor->interruptProgramUsingTerminationRequest(false);
  EXPECT_FALSE(start(*executor, ":").get().interrupted);
}

TEST(TaskExecutorTest, TerminationRequestAndInterruptionAreTheirSignals) {
  for (const bool termination : {true, false}) {
    const Runner run;
    auto outcome = start(*run.executor, "echo ready; exec sleep 1000");
    run.delegate->waitForOutput("ready\n");
    run.executor->interruptProgramUsingTerminationRequest(termination);
    const Outcome result = outcome.get();
    EXPECT_TRUE(result.interrupted);
    EXPECT_EQ(result.status, termination ? SIGTERM : SIGINT);
  }
}

TEST(TaskExecutorTest, ProgramMayEndInItsOwnWayWhenInterrupted) {
  const Runner run;
  auto outcome =
      start(*run.executor, "trap 'echo bye; exit 4' INT; echo ready; while :; do sleep 0.01; done");
  run.delegate->waitForOutput("ready\n");
  run.executor->interruptProgramUsingTerminationRequest(false);
  EXPECT_EQ(outcome.get().status, 4);
  EXPECT_EQ(run.delegate->output(), "ready\nbye\n");
}

TEST(TaskExecutorTest, InterruptionStaysWithTheExecutor) {
  const Runner run;
  auto outcome = start(*run.executor, "exec sleep 1000");
  run.executor->interruptProgramUsingTerminationRequest(true);
  EXPECT_TRUE(outcome.get().interrupted);
  const Outcome next = start(*run.executor, "exit 0").get();
  EXPECT_TRUE(next.interrupted);
  EXPECT_EQ(next.status, 0);
}

TEST(TaskExecutorTest, ChildHasNoDescriptorButItsStreams) {
  // Open in this process and not marked for closing.
  std::vector<int> inherited;
  inherited.reserve(50);
  for (int i = 0; i < 50; ++i) inherited.push_back(dup(STDERR_FILENO));
  const Runner run;
  EXPECT_EQ(run.script("n=0; while [ $n -lt 256 ]; do [ -e /dev/fd/$n ] && echo $n; "
                       "[ -p /dev/fd/$n ] && echo pipe; n=$((n+1)); done"),
            0);
  EXPECT_EQ(run.delegate->output(), "0\npipe\n1\npipe\n2\npipe\n");
  for (const int descriptor : inherited) close(descriptor);
}

TEST(TaskExecutorTest, ChildInheritsTheEnvironmentWithItsChanges) {
  // One name begins the other.
  ChildEnvironment::set("CORVANE_TEST_2", "three");
  ChildEnvironment::set("CORVANE_TEST", "two");
  ChildEnvironment::set("CORVANE_TEST", "one");
  ChildEnvironment::remove("PATH");
  const Runner run;
  EXPECT_EQ(run.executor->executeProgramAtPath("/usr/bin/env", Arguments{}), 0);
  EXPECT_THAT(run.delegate->output(), HasSubstr("CORVANE_TEST=one\n"));
  EXPECT_THAT(run.delegate->output(), HasSubstr("CORVANE_TEST_2=three\n"));
  EXPECT_THAT("\n" + run.delegate->output(), Not(HasSubstr("\nPATH=")));
  ChildEnvironment::remove("CORVANE_TEST");
  const Runner next;
  EXPECT_EQ(next.executor->executeProgramAtPath("/usr/bin/env", Arguments{}), 0);
  EXPECT_THAT(next.delegate->output(), Not(HasSubstr("CORVANE_TEST=")));
}

TEST(TaskExecutorTest, StandardInputNeverDelivers) {
  const Runner run;
  auto outcome = start(*run.executor, "echo ready; exec cat");
  run.delegate->waitForOutput("ready\n");
  run.executor->interruptProgramUsingTerminationRequest(true);
  EXPECT_EQ(outcome.get().status, SIGTERM);
  EXPECT_EQ(run.delegate->output(), "ready\n");
}

TEST(TaskExecutorTest, DescendantSeesTheEndOfStandardInputWhenTheRunIsOver) {
  const TemporaryFolder folder;
  const std::string go = folder.makeFifo("go");
  const std::string seen = folder.makeFifo("seen");
  const Runner run;
  // Behind a descriptor: what a shell runs in the background gets another standard input.
  auto outcome = start(
      *run.executor, "cd " + folder.path() +
                         "; exec 3<&0; (cat <&3; echo input >> ends; echo > seen) >/dev/null 2>&1 &"
                         "echo ready; read line < go; echo program >> ends; exit 5");
  run.delegate->waitForOutput("ready\n");
  std::ofstream(go) << "go\n";
  EXPECT_EQ(outcome.get().status, 5);
  std::string line;
  std::getline(std::ifstream(seen), line);
  EXPECT_EQ(contentOf(folder.path("ends")), "program\ninput\n");
}

// Tests that need a process of their own, begun afresh: threads of earlier runs may still be
// ending.
class TaskExecutorInOwnProcessTest : public testing::Test {
 protected:
  TaskExecutorInOwnProcessTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(TaskExecutorInOwnProcessTest, RunsInAProcessWithoutStandardStreams) {
  EXPECT_EXIT(
      {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
        const Runner run;
        const bool ended = run.script("echo out; echo err >&2; exit 6") == 6;
        _exit(ended && run.delegate->output() == "out\n" && run.delegate->errorOutput() == "err\n"
                  ? 0
                  : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(TaskExecutorInOwnProcessTest, EndOfTheProgramIsNotMistakenForSuccessWhenItsStatusIsLost) {
  EXPECT_EXIT(
      {
        std::signal(SIGCHLD, SIG_IGN);
        _exit(Runner().script("exit 6") == -1 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(TaskExecutorTest, ChunksAreCompleteAndInOrder) {
  const Runner run;
  EXPECT_EQ(run.script("seq 1 500000 & seq 500000 -1 1 >&2; wait"), 0);
  std::string up;
  std::string down;
  for (int i = 1; i <= 500000; ++i) {
    up += std::to_string(i) + '\n';
    down += std::to_string(500001 - i) + '\n';
  }
  EXPECT_TRUE(run.delegate->output() == up);
  EXPECT_TRUE(run.delegate->errorOutput() == down);
  for (const auto& chunk : run.delegate->chunks()) {
    ASSERT_LE(chunk.text.size(), FileHandle::maximumReadLength);
  }
}

struct CountingDelegate : ZELTaskExecutorDelegate {
  void receiveTaskOutput(std::optional<Data> chunk, std::optional<Number> isError) override {
    bytes[isError->boolValue() ? 1 : 0] += chunk->size();
  }
  std::uint64_t bytes[2] = {};
};

TEST(TaskExecutorTest, GigabyteOnBothStreamsPassesWithoutBeingKept) {
  const auto delegate = std::make_shared<CountingDelegate>();
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(delegate);
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  EXPECT_EQ(executor->executeProgramAtPath(
                shell, Arguments{"-c", "head -c 1G /dev/zero & head -c 1G /dev/zero >&2; wait"}),
            0);
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_EQ(delegate->bytes[0], 1U << 30U);
  EXPECT_EQ(delegate->bytes[1], 1U << 30U);
  if (tests::freedMemoryIsKept) GTEST_SKIP() << "what it takes in memory does not show here";
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * 1024);
}

struct BlockingDelegate : ZELTaskExecutorDelegate {
  void receiveTaskOutput(std::optional<Data> chunk, std::optional<Number>) override {
    if (!entered.exchange(true)) {
      first.set_value();
      proceed.get_future().wait();
    }
    bytes += chunk->size();
  }
  std::atomic<bool> entered = false;
  std::promise<void> first;
  std::promise<void> proceed;
  std::uint64_t bytes = 0;
};

TEST(TaskExecutorTest, SlowDelegateHoldsUpItsOwnProgramAndNoOther) {
  const auto slow = std::make_shared<BlockingDelegate>();
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(slow);
  const TemporaryFolder folder;
  auto outcome = start(*executor, "head -c 10M /dev/zero; touch " + folder.path("done"));
  slow->first.get_future().wait();

  const Runner other;
  EXPECT_EQ(other.script("head -c 10M /dev/zero"), 0);
  EXPECT_EQ(other.delegate->output().size(), 10U << 20U);
  // More than the pipe holds is still to be written.
  EXPECT_FALSE(std::filesystem::exists(folder.path("done")));

  slow->proceed.set_value();
  EXPECT_EQ(outcome.get().status, 0);
  EXPECT_EQ(slow->bytes, 10U << 20U);
}

TEST(TaskExecutorTest, DelegateSlowerThanTheLingerTimeLosesNothing) {
  struct Slow : RecordingDelegate {
    void receiveTaskOutput(std::optional<Data> chunk, std::optional<Number> isError) override {
      RecordingDelegate::receiveTaskOutput(std::move(chunk), isError);
      const std::size_t count = chunks().size();
      if (count == 1) {
        // Until the program has ended, which leaves the rest of its output in the pipes.
        siginfo_t info{};
        waitid(P_ALL, 0, &info, WEXITED | WNOWAIT);
      } else if (count == 3) {
        // One chunk more at the most, of the other stream, came before the end was noticed. That
        // the linger time is over is no event: it is after that much time.
        std::this_thread::sleep_for(ZELTaskExecutor::lingerTime);
      }
    }
  };
  const auto delegate = std::make_shared<Slow>();
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(delegate);
  // More on each stream than three reads give, in pipes that hold as much.
  const char* const script =
      "import fcntl, os\n"
      "for stream in (1, 2):\n"
      "  fcntl.fcntl(stream, fcntl.F_SETPIPE_SZ, 1 << 18)\n"
      "  os.write(stream, bytes(1 << 18))\n";
  EXPECT_EQ(executor->executeProgramAtPath("/usr/bin/python3", Arguments{"-I", "-c", script}), 0);
  EXPECT_EQ(delegate->output().size(), 1U << 18U);
  EXPECT_EQ(delegate->errorOutput().size(), 1U << 18U);
}

TEST(TaskExecutorTest, DescendantThatKeepsTheStreamsOpenDoesNotHoldUpTheResult) {
  const TemporaryFolder folder;
  const Runner run;
  EXPECT_EQ(run.script("sleep 1000 & echo $! > \"$1\"; echo done; exit 2", {folder.path("pid")}),
            2);
  EXPECT_EQ(run.delegate->output(), "done\n");
  pid_t descendant = 0;
  std::ifstream(folder.path("pid")) >> descendant;
  // It has not been ended.
  EXPECT_EQ(kill(descendant, 0), 0);
  kill(descendant, SIGKILL);
}

TEST(TaskExecutorTest, DescendantsLastWordsAreStillDelivered) {
  // Ends the program, and then holds the run until the descendant has spoken.
  struct Holding : RecordingDelegate {
    void receiveTaskOutput(std::optional<Data> chunk, std::optional<Number> isError) override {
      const bool isFirst = chunks().empty();
      RecordingDelegate::receiveTaskOutput(std::move(chunk), isError);
      if (!isFirst) return;
      std::ofstream(folder.path("go")) << "go\n";
      std::string line;
      std::getline(std::ifstream(folder.path("spoken")), line);
    }
    TemporaryFolder folder;
  };
  const auto delegate = std::make_shared<Holding>();
  for (const char* name : {"go", "ended", "spoken"}) {
    ASSERT_EQ(mkfifo(delegate->folder.path(name).c_str(), 0600), 0);
  }
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(delegate);
  // The descendant sees an end of input when its parent has ended.
  const char* const script =
      "cd \"$1\"; (read line < ended; echo late; echo done > spoken) &"
      "exec 3> ended; echo ready; read line < go; exit 4";
  EXPECT_EQ(executor->executeProgramAtPath(
                shell, Arguments{"-c", script, shell, delegate->folder.path("")}),
            4);
  EXPECT_EQ(delegate->output(), "ready\nlate\n");
}

TEST(TaskExecutorTest, DescendantThatWritesForEverDoesNotHoldUpTheResult) {
  const auto delegate = std::make_shared<CountingDelegate>();
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(delegate);
  EXPECT_EQ(executor->executeProgramAtPath(shell, Arguments{"-c", "yes & yes >&2 & exit 8"}), 8);
}

TEST(TaskExecutorTest, ThousandsOfRunsLeaveNothingBehind) {
  tests::waitForThreads();
  const std::size_t descriptorsBefore = tests::openDescriptors();
  for (int i = 0; i < 3000; ++i) {
    const Runner run;
    ASSERT_EQ(run.executor->executeProgramAtPath("/bin/true", Arguments{}), 0);
  }
  EXPECT_EQ(tests::openDescriptors(), descriptorsBefore);
  EXPECT_FALSE(tests::hasChildren());
  tests::waitForThreads();
}

TEST(TaskExecutorTest, RefusedStartsLeaveNothingBehind) {
  tests::waitForThreads();
  const std::size_t descriptorsBefore = tests::openDescriptors();
  for (int i = 0; i < 1000; ++i) exceptionReason(*Runner().executor, "/nonexistent/program");
  tests::waitForThreads();
  EXPECT_EQ(tests::openDescriptors(), descriptorsBefore);
  EXPECT_FALSE(tests::hasChildren());
}

TEST(TaskExecutorTest, RunsAtOnceEachGetTheirOwnResultAndOutput) {
  std::vector<std::jthread> runners;
  runners.reserve(8);
  for (int i = 0; i < 8; ++i) {
    runners.emplace_back([i] {
      for (int j = 0; j < 50; ++j) {
        const Runner run;
        const std::string number = std::to_string(i * 25 + j % 25);
        ASSERT_EQ(run.script("echo $1; exit $1", {number}), i * 25 + j % 25);
        ASSERT_EQ(run.delegate->output(), number + "\n");
      }
    });
  }
}

TEST(TaskExecutorTest, WhatADelegateRaisesFailsTheRunAndEndsNothingElse) {
  struct Raising : ZELTaskExecutorDelegate {
    void receiveTaskOutput(std::optional<Data>, std::optional<Number>) override {
      throw std::bad_alloc();
    }
  };
  const auto executor = ZELTaskExecutor::init();
  const auto delegate = std::make_shared<Raising>();
  executor->setDelegate(delegate);
  EXPECT_EQ(executor->executeProgramAtPath(shell, Arguments{"-c", "echo; sleep 0; echo >&2"}), -1);
}

}  // namespace
}  // namespace corvane
