#include <cmath>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "operations/OperationError.h"
#include "operations/OperationRun.h"
#include "tests/support/RecordingConnection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

const Array none;

class OperationRunTest : public testing::Test {
 protected:
  std::shared_ptr<RecordingConnection> _connection = std::make_shared<RecordingConnection>();
  std::stop_source _stop;
};

TEST_F(OperationRunTest, AProgramWritesToTheClientOfAnOperationWithLiveOutput) {
  const OutputRun run(none, _connection, {});
  const auto status = run.runProgram("/bin/sh", {"-c", "echo out; echo error >&2; exit 3"});
  ASSERT_TRUE(status);
  EXPECT_EQ(*status, 3);
  EXPECT_EQ(_connection->output(), "out\n");
  EXPECT_EQ(_connection->errorOutput(), "error\n");
}

TEST_F(OperationRunTest, WhatAProgramOfAnotherOperationWritesIsDropped) {
  const ProgressRun run(none, _connection, {});
  const auto status = run.runProgram("/bin/echo", {"out"});
  ASSERT_TRUE(status);
  EXPECT_EQ(*status, 0);
  EXPECT_TRUE(_connection->messages().empty());
}

TEST_F(OperationRunTest, AProgramFindsOthersInFoldersOfTheSystemAlone) {
  const OutputRun run(none, _connection, {});
  ASSERT_TRUE(run.runProgram("/bin/sh", {"-c", "echo $PATH"}));
  EXPECT_EQ(_connection->output(), "/usr/bin:/bin:/usr/sbin:/sbin\n");
}

TEST_F(OperationRunTest, AProgramThatIsNotThereIsNamed) {
  const OperationRun run(none, nullptr, {});
  for (const char* path : {"/nonexistent", "/bin", ""}) {
    const auto status = run.runProgram(path, {});
    ASSERT_FALSE(status);
    EXPECT_TRUE(isPOSIXError(status.error(), POSIXErrorCode::NoEntry));
    EXPECT_EQ(status.error().userInfo().text(NSFilePathErrorKey), path);
  }
}

TEST_F(OperationRunTest, AProgramThatOthersCanChangeIsNotRun) {
  const TemporaryFolder folder;
  folder.makeFile("program", "#!/bin/sh\n");
  const std::string path = folder.path("program");
  ASSERT_EQ(chmod(path.c_str(), 0777), 0);
  const auto status = OperationRun(none, nullptr, {}).runProgram(path, {});
  ASSERT_FALSE(status);
  EXPECT_TRUE(isPOSIXError(status.error(), POSIXErrorCode::Access));
}

TEST_F(OperationRunTest, ACancelEndsAProgramThatRuns) {
  const OutputRun run(none, _connection, _stop.get_token());
  EXPECT_FALSE(run.isCancelled());
  std::thread other([this] {
    _connection->waitForOutput("begun");
    _stop.request_stop();
  });
  const auto status = run.runProgram("/bin/sh", {"-c", "echo begun; exec sleep 1000"});
  other.join();
  ASSERT_FALSE(status);
  EXPECT_TRUE(isPOSIXError(status.error(), POSIXErrorCode::Canceled));
  EXPECT_TRUE(run.isCancelled());
}

TEST_F(OperationRunTest, ProgressIsHeldToItsRange) {
  const ProgressRun run(none, _connection, {});
  for (const double fraction : {-1.0, 0.25, 7.0, std::nan("")}) run.reportProgress(fraction);
  std::vector<double> told;
  for (const Dictionary& message : _connection->messages()) {
    told.push_back(message.find(ProgressFractionKey)->number()->doubleValue());
  }
  EXPECT_EQ(told, (std::vector<double>{0, 0.25, 1, 0}));
}

TEST_F(OperationRunTest, AnErrorHasATemplateAndWhatStandsInIt) {
  const OperationErrorText text = {12, "It is not there.", "Look for '$1$'."};
  const Error error = operationError(text, {"/etc/hosts"}, "/etc/hosts");
  EXPECT_TRUE(error.is(ZELPrivilegedOperationSet::errorDomain(), 12));
  const auto shown = ZELPrivilegedOperationSet::localizedErrorForPrivilegedOperationError(error);
  EXPECT_EQ(shown->localizedDescription(), "It is not there.");
  EXPECT_EQ(shown->userInfo().text(NSLocalizedRecoverySuggestionErrorKey),
            "Look for '/etc/hosts'.");
}

}  // namespace
}  // namespace corvane
