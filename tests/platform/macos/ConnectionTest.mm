#include <chrono>
#include <future>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "foundation/Exception.h"
#include "platform/CurrentClient.h"
#include "platform/FeedbackListener.h"
#include "platform/HelperConnection.h"
#include "platform/XPCConnection.h"
#include "platform/XPCListener.h"
#include "platform/ZELPrivilegedHelperControl.h"
#include "platform/ZELPrivilegedHelperProtocol.h"
#include "tests/platform/macos/LivingObjects.h"

namespace corvane {
namespace {

constexpr std::chrono::minutes patience{1};

/// A helper that notes what it is sent.
class NotingHelper : public ZELPrivilegedHelperProtocol,
                     public ZELPrivilegedHelperControl,
                     public XPCListenerDelegate {
 public:
  void connectWithEndpointUsingReply(const EndpointReply& /*reply*/) override {}
  void getVersionStringUsingReply(const VersionReply& reply) override { reply("1.3"); }
  void registerClientWithPID(std::int32_t pid) override { registered = pid; }
  void unregisterClientWithPID(std::int32_t pid) override { unregistered = pid; }
  void performPrivilegedOperation(std::uint64_t code, const Data& authorizationData,
                                  std::optional<XPCListenerEndpoint> feedbackEndpoint,
                                  std::optional<Array> given,
                                  const OperationReply& reply) override {
    operation = code;
    authorization = authorizationData;
    arguments = std::move(given);
    user = userOfCurrentClient();
    if (feedbackEndpoint) {
      const auto feedback = XPCConnection::initWithListenerEndpoint(*std::move(feedbackEndpoint));
      feedback->setRemoteObjectInterface({"ZELPrivilegedOperationFeedbackProtocol"});
      feedback->resume();
      for (int i = 0; i < 40; ++i) {
        feedback->remoteObjectProxy().processPrivilegedOperationFeedback({{"step", i}});
      }
      feedback->invalidate();
    }
    if (isSilent) throw Exception("Failure", "of the operation");
    reply(outcome);
  }
  void enableDebugMode(bool flag) override { isDebugging = flag; }
  bool cancelOperation(const std::string& token) override { return token == "known"; }
  Result<AuthorizationState> queryAuthorization(std::uint64_t code, const Data&) override {
    if (code != 1) return Error("domain", 22);
    return AuthorizationState::Challenge;
  }
  bool listenerShouldAcceptNewConnection(const XPCListener* /*listener*/,
                                         XPCIncomingConnection* connection) override {
    if (!isOpen) return false;
    connection->setExportedInterface({"ZELPrivilegedHelperProtocol"});
    connection->setExportedObject(*this);
    connection->setExportedControl(*this);
    connection->resume();
    return true;
  }

  bool isOpen = true;
  bool isSilent = false;
  bool isDebugging = false;
  std::int32_t registered = 0;
  std::int32_t unregistered = 0;
  std::uint64_t operation = 0;
  std::uint32_t user = ~0U;
  Data authorization;
  std::optional<Array> arguments;
  std::optional<Error> outcome;
};

/// With a listener whose helper this is. At the end every object comes to its own, those of the
/// library's threads a moment later: one that stays makes the test time out.
class MachServiceTest : public testing::Test {
 protected:
  MachServiceTest() : _before(emulator_living_objects()) {
    _listener = XPCListener::initWithMachServiceName("com.corvane.tests");
    _listener->setDelegate(&helper);
    _listener->resume();
  }
  ~MachServiceTest() override {
    _listener->invalidate();
    _listener.reset();
    while (emulator_living_objects() != _before) std::this_thread::yield();
  }

  static Answer<std::unique_ptr<HelperConnection>> connect() {
    return HelperConnection::connect("com.corvane.tests", patience);
  }

  NotingHelper helper;

 private:
  std::int64_t _before;
  std::unique_ptr<XPCListener> _listener;
};

TEST_F(MachServiceTest, MessagesGetToTheHelperAndItsAnswersBack) {
  auto made = connect();
  ASSERT_TRUE(made);
  HelperConnection& connection = **made;
  const auto version = connection.getVersionString(patience);
  ASSERT_TRUE(version);
  EXPECT_EQ(*version, "1.3");
  EXPECT_TRUE(connection.registerClientWithPID(-7, patience));
  EXPECT_EQ(helper.registered, -7);
  EXPECT_TRUE(connection.unregisterClientWithPID(8, patience));
  EXPECT_EQ(helper.unregistered, 8);
  EXPECT_TRUE(connection.enableDebugMode(true, patience));
  EXPECT_TRUE(helper.isDebugging);
}

TEST_F(MachServiceTest, AnOperationGetsWhatItWasGiven) {
  auto made = connect();
  ASSERT_TRUE(made);
  const Value values[] = {true, "text", Array{1, 2.5}};
  const std::string path = "/a/b";
  const std::string* const texts[] = {&path};
  const Data form(32, std::byte{7});
  const auto outcome = (*made)->performPrivilegedOperation(~std::uint64_t{0}, form, std::nullopt,
                                                           {values, texts}, patience);
  ASSERT_TRUE(outcome);
  EXPECT_EQ(*outcome, std::nullopt);
  EXPECT_EQ(helper.operation, ~std::uint64_t{0});
  EXPECT_EQ(helper.authorization, form);
  EXPECT_EQ(helper.user, ::geteuid());
  EXPECT_TRUE(helper.arguments == (Array{true, "text", Array{1, 2.5}, "/a/b"}));
}

TEST_F(MachServiceTest, AnErrorComesBackWithItsUserInformation) {
  auto made = connect();
  ASSERT_TRUE(made);
  helper.outcome = Error("domain", -5, {{"key", Error("inner", 1)}});
  const auto outcome = (*made)->performPrivilegedOperation(1, {}, std::nullopt, {}, std::nullopt);
  ASSERT_TRUE(outcome);
  EXPECT_TRUE(*outcome == helper.outcome);
}

TEST_F(MachServiceTest, TheControlIsAnswered) {
  auto made = connect();
  ASSERT_TRUE(made);
  const auto known = (*made)->cancelOperation("known", patience);
  const auto unknown = (*made)->cancelOperation("unknown", patience);
  ASSERT_TRUE(known && unknown);
  EXPECT_TRUE(*known);
  EXPECT_FALSE(*unknown);
  const auto state = (*made)->queryAuthorization(1, {}, patience);
  ASSERT_TRUE(state);
  EXPECT_EQ(*state, AuthorizationState::Challenge);
  EXPECT_FALSE((*made)->queryAuthorization(2, {}, patience));
}

class Steps : public ZELPrivilegedOperationFeedbackProtocol {
 public:
  void processPrivilegedOperationFeedback(const Dictionary& feedback) override {
    all.push_back(feedback.find("step")->number()->intValue());
  }
  std::vector<int> all;
};

TEST_F(MachServiceTest, FeedbackComesInItsOrderBeforeTheListenerIsClosed) {
  auto made = connect();
  ASSERT_TRUE(made);
  Steps steps;
  const auto listener = FeedbackListener::serve(steps);
  ASSERT_TRUE((*made)->performPrivilegedOperation(1, {}, listener->takeEndpoint(), {}, patience));
  listener->waitUntilClosed();
  ASSERT_EQ(steps.all.size(), 40U);
  for (int i = 0; i < 40; ++i) EXPECT_EQ(steps.all[static_cast<std::size_t>(i)], i);
}

TEST_F(MachServiceTest, AnExceptionOfTheHelpersEndsAtTheSeam) {
  auto made = connect();
  ASSERT_TRUE(made);
  helper.isSilent = true;
  const auto outcome =
      (*made)->performPrivilegedOperation(1, {}, std::nullopt, {}, std::chrono::milliseconds(50));
  ASSERT_FALSE(outcome);
  EXPECT_EQ(outcome.error().kind, CommunicationFailure::Kind::TimedOut);
  EXPECT_TRUE((*made)->getVersionString(patience));
}

TEST_F(MachServiceTest, AConnectionThatIsNotTakenIsRefused) {
  helper.isOpen = false;
  const auto made = connect();
  ASSERT_FALSE(made);
  EXPECT_EQ(made.error().kind, CommunicationFailure::Kind::Refused);
}

TEST_F(MachServiceTest, AServiceThatIsNotThereIsRefused) {
  const auto made = HelperConnection::connect("com.corvane.nowhere", patience);
  ASSERT_FALSE(made);
  EXPECT_EQ(made.error().kind, CommunicationFailure::Kind::Refused);
}

TEST_F(MachServiceTest, ConnectionsAreServedAtTheSameTime) {
  std::vector<std::thread> clients;
  for (int i = 0; i < 8; ++i) {
    clients.emplace_back([] {
      auto made = connect();
      ASSERT_TRUE(made);
      for (int j = 0; j < 50; ++j) ASSERT_TRUE((*made)->getVersionString(patience));
    });
  }
  for (std::thread& client : clients) client.join();
}

}  // namespace
}  // namespace corvane
