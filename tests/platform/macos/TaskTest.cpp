#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "foundation/Exception.h"
#include "platform/ChildEnvironment.h"
#include "platform/Pipe.h"
#include "platform/Task.h"

namespace corvane {
namespace {

// A shell that runs `commands`, with pipes for its streams.
class TaskTest : public testing::Test {
 protected:
  void launch(const std::string& commands) {
    task->setStandardInput(input.fileHandleForReading);
    task->setStandardOutput(output.fileHandleForWriting);
    task->setStandardError(error.fileHandleForWriting);
    task->setLaunchPath("/bin/sh");
    task->setArguments({"-c", commands});
    task->launch();
    output.fileHandleForWriting->closeFile();
    error.fileHandleForWriting->closeFile();
  }

  // All that was written into `pipe`.
  static std::string textOf(const Pipe& pipe) {
    std::string text;
    for (;;) {
      const Data data = pipe.fileHandleForReading->availableData();
      if (data.empty()) return text;
      text += stringFromData(data);
    }
  }

  std::shared_ptr<Task> task = Task::init();
  Pipe input = Pipe::pipe().value();
  Pipe output = Pipe::pipe().value();
  Pipe error = Pipe::pipe().value();
};

TEST_F(TaskTest, OutputAndStatusComeToTheirEnd) {
  launch("echo out; echo err >&2; exit 7");
  EXPECT_EQ(textOf(output), "out\n");
  EXPECT_EQ(textOf(error), "err\n");
  EXPECT_EQ(task->terminationStatus(), 7);
}

TEST_F(TaskTest, TheChildHasItsStandardStreamsOnly) {
  const FileDescriptor inherited(::dup(STDERR_FILENO));
  launch("exec ls /proc/self/fd");
  EXPECT_EQ(textOf(output), "0\n1\n2\n3\n") << "the last one is the folder that is listed";
  EXPECT_EQ(task->terminationStatus(), 0);
}

TEST_F(TaskTest, DataIsWaitedForAndThenTheEnd) {
  launch("echo one; read line");
  const Task::Handles handles = {output.fileHandleForReading};
  ASSERT_EQ(task->waitForDataOrTermination(handles), handles);
  EXPECT_EQ(stringFromData(output.fileHandleForReading->availableData()), "one\n");
  input.fileHandleForWriting->closeFile();
  while (!task->waitForDataOrTermination(handles).empty()) {
    output.fileHandleForReading->availableData();
  }
  EXPECT_EQ(task->terminationStatus(), 1);
}

TEST_F(TaskTest, AChildThatHasEndedAlreadyIsSeen) {
  launch("exit 3");
  EXPECT_EQ(task->terminationStatus(), 3);
  EXPECT_TRUE(task->waitForDataOrTermination({}).empty());
}

TEST_F(TaskTest, TheSignalThatEndsAProgramIsItsStatus) {
  launch("read line");
  task->terminate();
  EXPECT_EQ(task->terminationStatus(), SIGTERM);
  task->kill();
}

TEST_F(TaskTest, TheNumbersOfSignalsAreTheSystems) {
  launch("kill -USR1 $$");
  EXPECT_EQ(task->terminationStatus(), SIGUSR1);
}

TEST_F(TaskTest, TheEnvironmentIsTheChildrens) {
  ChildEnvironment::set("CORVANE_TEST", "for children");
  launch("echo \"$CORVANE_TEST\"");
  ChildEnvironment::remove("CORVANE_TEST");
  EXPECT_EQ(textOf(output), "for children\n");
  EXPECT_EQ(task->terminationStatus(), 0);
}

TEST_F(TaskTest, AProgramThatIsNotThereRaisesAnException) {
  task->setStandardInput(input.fileHandleForReading);
  task->setStandardOutput(output.fileHandleForWriting);
  task->setStandardError(error.fileHandleForWriting);
  task->setLaunchPath("/nonexistent");
  try {
    task->launch();
    FAIL() << "it was launched";
  } catch (const Exception& exception) {
    EXPECT_EQ(exception.name(), NSInvalidArgumentException);
    EXPECT_EQ(exception.reason(),
              "The program '/nonexistent' could not be launched: No such file or directory");
  }
}

}  // namespace
}  // namespace corvane
