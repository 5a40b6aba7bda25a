#include <chrono>
#include <new>
#include <stdexcept>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/Exception.h"
#include "process/ZELTaskExecutor.h"
#include "tests/process/FileHandleStandIn.h"
#include "tests/process/ProcessResources.h"
#include "tests/process/RecordingDelegate.h"
#include "tests/process/SystemVersionStandIn.h"
#include "tests/support/LogLines.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using tests::handleLog;
using tests::RecordingDelegate;

struct Result {
  std::int32_t status;
  std::string log;
  std::string output;
};

Result run(const std::string& program, const ZELTaskExecutor::Arguments& arguments) {
  const auto delegate = std::make_shared<RecordingDelegate>();
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(delegate);
  testing::internal::CaptureStderr();
  const std::int32_t status = executor->executeProgramAtPath(program, arguments);
  return {status, testing::internal::GetCapturedStderr(), delegate->output()};
}

Result runEcho() {
  return run("/bin/echo", {"x"});
}

class TaskExecutorFailureTest : public testing::Test {
 protected:
  TaskExecutorFailureTest() { handleLog() = {}; }
};

TEST_F(TaskExecutorFailureTest, UpToCode10AFHandlesCloseTheirFile) {
  tests::useSystemVersion("10.10.15");
  EXPECT_EQ(runEcho().output, "x\n");
  EXPECT_THAT(handleLog().operations, ElementsAre("closeFile", "closeFile", "closeFile"));
}

TEST_F(TaskExecutorFailureTest, FromCode10B0OnDescriptorsAreClosed) {
  tests::useSystemVersion("10.11");
  const std::size_t before = tests::openDescriptors();
  EXPECT_EQ(runEcho().output, "x\n");
  EXPECT_THAT(handleLog().operations, ElementsAre("releaseFileDescriptor", "releaseFileDescriptor",
                                                  "releaseFileDescriptor"));
  EXPECT_EQ(tests::openDescriptors(), before);
}

TEST_F(TaskExecutorFailureTest, FailedReadsDropTheirChunkSilently) {
  handleLog().beforeRead = [] { throw Exception(NSFileHandleOperationException, "read"); };
  const Result result = runEcho();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.log, "");
  EXPECT_EQ(result.output, "");
}

TEST_F(TaskExecutorFailureTest, AReadThatFailsOnceDoesNotEndItsStream) {
  // More than a pipe holds: who reads no further hangs.
  constexpr std::size_t length = 1'000'000;
  const auto hasFailed = std::make_shared<bool>(false);
  handleLog().beforeRead = [hasFailed] {
    if (!std::exchange(*hasFailed, true)) throw std::bad_alloc();
  };
  const Result result = run("/usr/bin/head", {"--bytes=" + std::to_string(length), "/dev/zero"});
  EXPECT_EQ(result.output.size(), length);
  EXPECT_THAT(result.log,
              logLineIs("Handled unexpected exception 'std::exception' (std::bad_alloc)!"));
}

TEST_F(TaskExecutorFailureTest, AStreamThatFailsEachTimeIsReadAtIntervals) {
  using Clock = std::chrono::steady_clock;
  const auto reads = std::make_shared<int>(0);
  handleLog().beforeRead = [reads] {
    ++*reads;
    throw Exception(NSFileHandleOperationException, "read");
  };
  const Clock::time_point start = Clock::now();
  run("/bin/sh", {"-c", "echo x; sleep 0.2"});
  // The last two are the program's end, and are not waited after.
  EXPECT_LE((*reads - 2) * std::chrono::milliseconds(10), Clock::now() - start);
}

TEST_F(TaskExecutorFailureTest, OtherExceptionsOfReadsAreLogged) {
  const auto reads = std::make_shared<int>(0);
  handleLog().beforeRead = [reads] {
    ++*reads;
    throw Exception("NSRangeException", "out of range");
  };
  const Result result = runEcho();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_GE(*reads, 2);
  EXPECT_THAT(result.log, LogLinesAre(std::vector<std::string>(
                              static_cast<std::size_t>(*reads),
                              "Handled unexpected exception 'NSRangeException' (out of range)!")));
}

TEST_F(TaskExecutorFailureTest, ClosingOfDescriptorsIsGuardedLikeReading) {
  tests::useSystemVersion("10.11");
  handleLog().beforeRelease = [] { throw std::runtime_error("odd"); };
  const Result result = runEcho();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "x\n");
  const std::string line = "Handled unexpected exception 'std::exception' (odd)!";
  EXPECT_THAT(result.log, LogLinesAre(std::vector<std::string>(3, line)));

  handleLog().beforeRelease = [] { throw Exception(NSFileHandleOperationException, "close"); };
  EXPECT_EQ(runEcho().log, "");
}

}  // namespace
}  // namespace corvane
