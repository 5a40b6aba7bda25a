#include <filesystem>
#include <fstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/Exception.h"
#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/ChildEnvironment.h"
#include "tests/operationset-vnt/execute/ApplicationBundle.h"
#include "tests/process/ProcessResources.h"
#include "tests/support/RecordingConnection.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using tests::ApplicationBundle;

constexpr const char* selector = "performOperationExecuteUtilityWithArguments:feedbackConnection:";

const std::optional<Error> invalid = posixError(POSIXErrorCode::Invalid);

struct ExecuteUtilityTest : testing::Test {
  ZELPrivilegedOperationSetVNT set;
  ApplicationBundle application;
  std::shared_ptr<RecordingConnection> connection = std::make_shared<RecordingConnection>();

  std::optional<Error> execute(const Array& arguments) {
    return set.performSelector(selector, arguments, connection, {});
  }
  // Runs the application's "lipo", made of this script.
  std::optional<Error> run(const std::string& script, const Array& arguments = {}) {
    application.addUtility(script);
    return lipo(arguments);
  }
  std::optional<Error> lipo(const Array& arguments = {}) {
    Array all = {application.path(), "lipo"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return execute(all);
  }
};

std::vector<std::string> keys(const Dictionary& dictionary) {
  std::vector<std::string> result;
  for (const auto& [key, value] : dictionary) result.push_back(key);
  return result;
}

void expectError(const std::optional<Error>& error, std::int64_t code, const Dictionary& userInfo) {
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), "com.corvane.error.privileged-operation");
  EXPECT_EQ(error->code(), code);
  EXPECT_EQ(error->userInfo(), userInfo);
  EXPECT_EQ(keys(error->userInfo()), keys(userInfo));
}

Dictionary missingUtilityInfo(const std::string& name, const std::string& path) {
  return {{"NSLocalizedDescription",
           "A required component of the operating system is missing in your system installation."},
          {"ZELLocalizedRecoverySuggestionTemplate",
           "Please verify that the UNIX program $1$ is present at its standard path '$2$'."},
          {"ZELLocalizedRecoverySuggestionParameters", Array{name, path}},
          {"NSFilePath", path}};
}

Dictionary failedRunInfo(const std::string& result) {
  return {{"NSLocalizedDescription", "It was not possible to complete the operation successfully."},
          {"ZELLocalizedRecoverySuggestionTemplate",
           "The operating system could not perform the requested operation. It returned error code "
           "$1$."},
          {"ZELLocalizedRecoverySuggestionParameters", Array{result}}};
}

TEST_F(ExecuteUtilityTest, IsFoundByItsMethodName) {
  EXPECT_EQ(set.selectorForExecutionOfPrivilegedOperationWithCode(2, true), selector);
  EXPECT_TRUE(set.respondsToSelector(selector));
}

TEST_F(ExecuteUtilityTest, FewerThanTwoArgumentsAreInvalid) {
  EXPECT_EQ(execute({}), invalid);
  EXPECT_EQ(execute({application.path()}), invalid);
  EXPECT_EQ(execute({"launchctl"}), invalid);
}

TEST_F(ExecuteUtilityTest, EmptyPathOrNameIsInvalid) {
  EXPECT_EQ(execute({"", "launchctl"}), invalid);
  EXPECT_EQ(execute({application.path(), ""}), invalid);
}

TEST_F(ExecuteUtilityTest, UnknownNamesAreInvalid) {
  using namespace std::string_literals;
  for (const std::string& name :
       {"sh"s, "/bin/launchctl"s, "bin/launchctl"s, "../bin/launchctl"s, "launchctl/"s,
        "Launchctl"s, "launchctl\0"s, "lipo\0"s, "/lipo"s, "./lipo"s, " launchctl"s}) {
    EXPECT_EQ(execute({application.path(), name}), invalid) << name;
  }
}

TEST_F(ExecuteUtilityTest, PeriodicIsInvalidWhateverFollows) {
  EXPECT_EQ(execute({application.path(), "periodic"}), invalid);
  EXPECT_EQ(execute({application.path(), "periodic", "daily"}), invalid);
}

TEST_F(ExecuteUtilityTest, LipoOfAPathThatIsNoBundleIsInvalid) {
  EXPECT_EQ(execute({"/nonexistent", "lipo"}), invalid);
  EXPECT_EQ(execute({application.folder().path(), "lipo"}), invalid);
}

TEST_F(ExecuteUtilityTest, LipoOfABundleWhoseExecutableIsALinkOutOfItIsInvalid) {
  application.addUtility("echo never");
  std::filesystem::remove(application.path("MacOS/Application"));
  ASSERT_EQ(symlink("/bin/sh", application.path("MacOS/Application").c_str()), 0);
  EXPECT_EQ(lipo(), invalid);
  EXPECT_TRUE(connection->messages().empty());
}

TEST_F(ExecuteUtilityTest, LookupTellsWhatKindOfUtilityItIs) {
  bool external = false;
  bool safePath = true;
  EXPECT_EQ(set.trustedPathForApplicationPath("x", "launchctl", &external, &safePath),
            "/bin/launchctl");
  EXPECT_TRUE(external);
  EXPECT_FALSE(safePath);

  EXPECT_EQ(set.trustedPathForApplicationPath(application.path(), "lipo", &external, &safePath),
            application.utilityPath());
  EXPECT_FALSE(external);
  EXPECT_FALSE(safePath);

  EXPECT_EQ(set.trustedPathForApplicationPath("x", "periodic", &external, &safePath), std::nullopt);
  EXPECT_TRUE(external);
  EXPECT_TRUE(safePath);

  EXPECT_EQ(set.trustedPathForApplicationPath("x", "lipo", &external, &safePath), std::nullopt);
  EXPECT_FALSE(external);
  EXPECT_FALSE(safePath);
}

TEST_F(ExecuteUtilityTest, LookupOfNothingWritesNothing) {
  bool external = false;
  bool safePath = true;
  EXPECT_EQ(set.trustedPathForApplicationPath("", "launchctl", &external, &safePath), std::nullopt);
  EXPECT_EQ(set.trustedPathForApplicationPath("x", "", &external, &safePath), std::nullopt);
  EXPECT_FALSE(external);
  EXPECT_TRUE(safePath);
}

TEST_F(ExecuteUtilityTest, LookupNeedsNoPointers) {
  EXPECT_EQ(set.trustedPathForApplicationPath("x", "launchctl", nullptr, nullptr),
            "/bin/launchctl");
}

TEST_F(ExecuteUtilityTest, SendsOutputInMessagesOfOneEntry) {
  EXPECT_EQ(run("echo out; echo err >&2"), std::nullopt);
  EXPECT_EQ(connection->output(), "out\n");
  EXPECT_EQ(connection->errorOutput(), "err\n");
  for (const Dictionary& message : connection->messages()) {
    EXPECT_EQ(message.size(), 1U);
    EXPECT_NE(message.begin()->second.data(), nullptr);
  }
}

TEST_F(ExecuteUtilityTest, SendsEmptyChunksToo) {
  EXPECT_EQ(run(":"), std::nullopt);
  const auto messages = connection->messages();
  ASSERT_GE(messages.size(), 2U);
  EXPECT_EQ(messages[messages.size() - 2], (Dictionary{{"OutputData", Data()}}));
  EXPECT_EQ(messages.back(), (Dictionary{{"ErrorData", Data()}}));
}

TEST_F(ExecuteUtilityTest, OutputArrivesWhileTheUtilityRuns) {
  const std::string fifo = application.folder().path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::jthread client([&] {
    connection->waitForOutput("first\n");
    std::ofstream(fifo) << "go\n";
  });
  EXPECT_EQ(run("echo first; read line < \"$1\"; echo $line", {fifo}), std::nullopt);
  EXPECT_EQ(connection->output(), "first\ngo\n");
}

TEST_F(ExecuteUtilityTest, PassesTheRemainingArgumentsInTheirOrder) {
  EXPECT_EQ(run("printf '[%s]' \"$0\" \"$@\"", {"", "b c", "$(id)"}), std::nullopt);
  EXPECT_EQ(connection->output(), "[" + application.utilityPath() + "][][b c][$(id)]");
}

TEST_F(ExecuteUtilityTest, RunsWithoutAConnection) {
  connection = nullptr;
  EXPECT_EQ(run("echo nobody listens"), std::nullopt);
  expectError(run("exit 1"), 3, failedRunInfo("1"));
}

TEST_F(ExecuteUtilityTest, MissingUtilityIsNamedWithItsPath) {
  expectError(lipo(), 1, missingUtilityInfo("lipo", application.utilityPath()));
  std::filesystem::create_directory(application.utilityPath());
  expectError(lipo(), 1, missingUtilityInfo("lipo", application.utilityPath()));
  std::filesystem::remove(application.utilityPath());
  ASSERT_EQ(symlink("dangling", application.utilityPath().c_str()), 0);
  expectError(lipo(), 1, missingUtilityInfo("lipo", application.utilityPath()));
}

TEST_F(ExecuteUtilityTest, FailedRunGivesTheResultAsText) {
  expectError(run("exit 1"), 3, failedRunInfo("1"));
  expectError(run("exit 255"), 3, failedRunInfo("255"));
  expectError(run("kill -TERM $$"), 3, failedRunInfo("15"));
}

TEST_F(ExecuteUtilityTest, RefusedStartIsTheResultMinusOne) {
  if (tests::objectsTakeDescriptors) GTEST_SKIP() << "sanitizers need descriptors of their own";
  application.addUtility("exit 0");
  testing::internal::CaptureStderr();
  // Enough to look at the bundle, one file at a time, and not for three pipes.
  std::optional<tests::FewDescriptors> few(2);
  const auto error = lipo();
  few.reset();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("FAILURE: The program 'lipo' cannot be executed because the system is "
                        "running out of file handles.\n"));
  expectError(error, 3, failedRunInfo("-1"));
}

TEST_F(ExecuteUtilityTest, LaunchFailureIsRaised) {
  application.folder().makeFile("Application.app/Contents/MacOS/lipo", "not executable");
  try {
    lipo();
    FAIL() << "nothing was raised";
  } catch (const Exception& exception) {
    EXPECT_EQ(exception.name(), "NSInvalidArgumentException");
    EXPECT_THAT(exception.reason(), HasSubstr("Permission denied"));
  }
}

TEST_F(ExecuteUtilityTest, ArgumentThatHoldsAZeroByteIsRaised) {
  using namespace std::string_literals;
  try {
    run("echo never", {"a\0b"s});
    FAIL() << "nothing was raised";
  } catch (const Exception& exception) {
    EXPECT_EQ(exception.name(), "NSInvalidArgumentException");
    EXPECT_THAT(exception.reason(), HasSubstr("argument 1 holds a zero byte"));
  }
}

TEST_F(ExecuteUtilityTest, HundredThousandArgumentsArrive) {
  EXPECT_EQ(run("echo $#", Array(100'000, "x")), std::nullopt);
  EXPECT_EQ(connection->output(), "100000\n");
}

TEST_F(ExecuteUtilityTest, MoreArgumentsThanTheSystemTakesAreRaised) {
  EXPECT_THROW(run("echo never", Array(100'000, std::string(100, 'x'))), Exception);
}

TEST_F(ExecuteUtilityTest, ArgumentsThatAreNoStringsAreInvalid) {
  EXPECT_EQ(execute({application.path(), "lipo", 1}), invalid);
  EXPECT_EQ(execute({1, "lipo"}), invalid);
}

TEST_F(ExecuteUtilityTest, ConnectionIsClearedAfterASuccessAndKeptAfterAFailure) {
  EXPECT_EQ(set.outputConnection(), nullptr);
  EXPECT_EQ(run("exit 0"), std::nullopt);
  EXPECT_EQ(set.outputConnection(), nullptr);
  EXPECT_TRUE(run("exit 1"));
  EXPECT_EQ(set.outputConnection(), connection);

  // What does not come to a run changes nothing.
  EXPECT_EQ(execute({application.path(), "periodic"}), invalid);
  EXPECT_EQ(set.outputConnection(), connection);

  const auto first = connection;
  connection = std::make_shared<RecordingConnection>();
  EXPECT_TRUE(run("exit 1"));
  EXPECT_EQ(set.outputConnection(), connection);
  EXPECT_EQ(run("exit 0"), std::nullopt);
  EXPECT_EQ(set.outputConnection(), nullptr);
}

TEST_F(ExecuteUtilityTest, ConnectionIsKeptAfterARunThatRaises) {
  EXPECT_EQ(run("exit 0"), std::nullopt);
  EXPECT_EQ(set.outputConnection(), nullptr);
  EXPECT_THROW(run("echo never", {std::string("a\0b", 3)}), Exception);
  EXPECT_EQ(set.outputConnection(), connection);
}

TEST_F(ExecuteUtilityTest, ConnectionIsThatOfTheRunWhileItRuns) {
  const std::string fifo = application.folder().path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::jthread client([&] {
    connection->waitForOutput("first\n");
    EXPECT_EQ(set.outputConnection(), connection);
    std::ofstream(fifo) << "go\n";
  });
  EXPECT_EQ(run("echo first; read line < \"$1\"", {fifo}), std::nullopt);
}

TEST_F(ExecuteUtilityTest, RunsAtOnceEachReachTheirOwnClient) {
  application.addUtility("echo $1 started; read line < \"$2\"; echo $1 ended");
  const std::string fifo = application.folder().path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const auto first = std::make_shared<RecordingConnection>();
  const auto second = std::make_shared<RecordingConnection>();
  std::jthread waiting([&] {
    EXPECT_EQ(set.performSelector(selector, {application.path(), "lipo", "first", fifo}, first, {}),
              std::nullopt);
  });
  first->waitForOutput("first started\n");

  // The second comes, replaces the connection of the first, and clears it when it goes.
  EXPECT_EQ(set.performSelector(selector, {application.path(), "lipo", "second", "/dev/null"},
                                second, {}),
            std::nullopt);
  EXPECT_EQ(set.outputConnection(), nullptr);
  EXPECT_EQ(second->output(), "second started\nsecond ended\n");

  std::ofstream(fifo) << "go\n";
  waiting.join();
  EXPECT_EQ(first->output(), "first started\nfirst ended\n");
  EXPECT_EQ(second->output(), "second started\nsecond ended\n");
}

TEST_F(ExecuteUtilityTest, ManyRunsAtOnceNeverMixTheirOutput) {
  application.addUtility("i=0; while [ $i -lt 200 ]; do echo $1; i=$((i+1)); done; exit $1");
  std::vector<std::jthread> clients;
  clients.reserve(8);
  for (int i = 0; i < 8; ++i) {
    clients.emplace_back([this, i] {
      for (int j = 0; j < 10; ++j) {
        const auto client = std::make_shared<RecordingConnection>();
        const std::string number = std::to_string(i);
        const auto error =
            set.performSelector(selector, {application.path(), "lipo", number}, client, {});
        EXPECT_EQ(error.has_value(), i != 0);
        std::string expected;
        for (int line = 0; line < 200; ++line) expected += number + "\n";
        ASSERT_EQ(client->output(), expected);
      }
    });
  }
}

TEST_F(ExecuteUtilityTest, OutputOfTheSetAsDelegateGoesToItsConnection) {
  set.receiveTaskOutput(dataFromString("lost"), Number(false));
  set.setOutputConnection(connection);
  set.receiveTaskOutput(std::nullopt, Number(false));
  set.receiveTaskOutput(dataFromString("lost"), std::nullopt);
  EXPECT_TRUE(connection->messages().empty());
  set.receiveTaskOutput(dataFromString("out"), Number(false));
  set.receiveTaskOutput(dataFromString("err"), Number(true));
  set.receiveTaskOutput(Data(), Number(1));
  EXPECT_THAT(connection->messages(), ElementsAre(Dictionary{{"OutputData", dataFromString("out")}},
                                                  Dictionary{{"ErrorData", dataFromString("err")}},
                                                  Dictionary{{"ErrorData", Data()}}));
}

TEST_F(ExecuteUtilityTest, RemovesThePathVariable) {
  ChildEnvironment::set("PATH", "/evil");
  application.addUtility("/usr/bin/env");
  EXPECT_EQ(lipo(), std::nullopt);
  // The shell that runs the script may have one of its own, which it does not hand on.
  EXPECT_THAT("\n" + connection->output(), Not(HasSubstr("\nPATH=")));
}

TEST_F(ExecuteUtilityTest, SetsASafePathVariableWhenAskedTo) {
  ChildEnvironment::set("PATH", "/evil");
  EXPECT_EQ(set.executeTrusted(true, "/usr/bin/env", {}, true, connection), std::nullopt);
  EXPECT_THAT("\n" + connection->output(), HasSubstr("\nPATH=/usr/bin:/bin:/usr/sbin:/sbin\n"));
  EXPECT_THAT(connection->output(), Not(HasSubstr("/evil")));

  // It stays until the next run says otherwise.
  EXPECT_THAT(ChildEnvironment::entries(), testing::Contains("PATH=/usr/bin:/bin:/usr/sbin:/sbin"));
  const auto next = std::make_shared<RecordingConnection>();
  EXPECT_EQ(set.executeTrusted(true, "/usr/bin/env", {}, false, next), std::nullopt);
  EXPECT_THAT("\n" + next->output(), Not(HasSubstr("\nPATH=")));
}

TEST_F(ExecuteUtilityTest, OnlyWhatIsNotTrustedIsTested) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to own the program";
  application.addUtility("echo ran");
  chmod(application.utilityPath().c_str(), 0775);
  EXPECT_EQ(lipo(), std::nullopt);
  EXPECT_EQ(connection->output(), "ran\n");
  ChildEnvironment::set("PATH", "/kept");
  EXPECT_TRUE(set.executeTrusted(false, application.utilityPath(), {}, false, nullptr));
  EXPECT_THAT(ChildEnvironment::entries(), testing::Contains("PATH=/kept"));
  chmod(application.utilityPath().c_str(), 0755);
  EXPECT_EQ(set.executeTrusted(false, application.utilityPath(), {}, false, nullptr), std::nullopt);
}

TEST_F(ExecuteUtilityTest, HundredsOfRunsLeaveNothingBehind) {
  application.addUtility("echo $1; exit $1");
  tests::waitForThreads();
  const std::size_t descriptorsBefore = tests::openDescriptors();
  for (int i = 0; i < 500; ++i) {
    connection = std::make_shared<RecordingConnection>();
    EXPECT_EQ(lipo({std::to_string(i % 2)}).has_value(), i % 2 == 1);
  }
  tests::waitForThreads();
  EXPECT_EQ(tests::openDescriptors(), descriptorsBefore);
  EXPECT_FALSE(tests::hasChildren());
  // The last run failed: its connection is still held, and no other.
  EXPECT_EQ(connection.use_count(), 2);
}

}  // namespace
}  // namespace corvane
