#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"
#include "tests/privilegedhelper-vnt/SystemLogStandIn.h"
#include "tests/support/LogLines.h"

namespace corvane {
namespace {

ZELPrivilegedHelper* makeHelper() {
  return ZELPrivilegedHelper::initForOperationSet(
      &ZELPrivilegedOperationSetVNT::privilegedOperationSet(), nullptr, nullptr);
}

class RecordingConnection : public XPCIncomingConnection {
 public:
  void setExportedInterface(XPCInterface exported) override { interface = exported.protocolName; }
  void setExportedObject(ZELPrivilegedHelperProtocol& exported) override { object = &exported; }
  void setExportedControl(ZELPrivilegedHelperControl& exported) override { control = &exported; }
  void resume() override { isResumed = true; }

  std::string interface;
  ZELPrivilegedHelperProtocol* object = nullptr;
  ZELPrivilegedHelperControl* control = nullptr;
  bool isResumed = false;
};

TEST(HelperTest, ASecondHelperIsTheSharedInstance) {
  ZELPrivilegedHelper* helper = makeHelper();
  EXPECT_EQ(makeHelper(), helper);
  EXPECT_EQ(ZELPrivilegedHelper::init(), helper);
  EXPECT_EQ(ZELPrivilegedHelper::privilegedHelper(), helper);
}

TEST(HelperTest, WithoutAnOperationSetThereIsNoHelper) {
  EXPECT_EQ(ZELPrivilegedHelper::initForOperationSet(nullptr, nullptr, nullptr), nullptr);
}

TEST(HelperTest, AConnectionOfItsOwnListenerGetsTheHelper) {
  ZELPrivilegedHelper* helper = makeHelper();
  RecordingConnection connection;
  EXPECT_TRUE(helper->listenerShouldAcceptNewConnection(helper->listener(), &connection));
  EXPECT_EQ(connection.interface, "ZELPrivilegedHelperProtocol");
  EXPECT_EQ(connection.object, helper);
  EXPECT_TRUE(connection.isResumed);
}

TEST(HelperTest, AForeignListenerAndAMissingConnectionAreRefusedWithAMessage) {
  ZELPrivilegedHelper* helper = makeHelper();
  const auto foreign = XPCListener::initWithMachServiceName("com.corvane.foreign");
  RecordingConnection connection;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(helper->listenerShouldAcceptNewConnection(foreign.get(), &connection));
  EXPECT_FALSE(helper->listenerShouldAcceptNewConnection(helper->listener(), nullptr));
  const std::string line = "ZELPrivilegedHelper: received bad XPC connection request. Ignoring ...";
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              LogLinesAre(std::vector<std::string>(2, line)));
  EXPECT_FALSE(connection.isResumed);
}

using Messages = std::vector<std::pair<int, std::string>>;

TEST(HelperLogTest, ErrorMessagesGoToTheCurrentLevelAndEmptyOnesNowhere) {
  ZELPrivilegedHelper* helper = makeHelper();
  SystemLogStandIn::messages.clear();
  helper->logErrorMessage(std::nullopt);
  helper->logErrorMessage("");
  helper->logErrorMessage("50% gone");
  EXPECT_EQ(SystemLogStandIn::messages,
            (Messages{{7, "Error during execution of privileged operation: 50% gone"}}));
}

TEST(HelperLogTest, DebugModeIsAnnouncedOncePerChange) {
  ZELPrivilegedHelper* helper = makeHelper();
  SystemLogStandIn::messages.clear();
  helper->enableDebugMode(false);
  helper->enableDebugMode(true);
  helper->enableDebugMode(true);
  EXPECT_EQ(helper->logLevel(), 5);
  helper->enableDebugMode(false);
  EXPECT_EQ(helper->logLevel(), 7);
  EXPECT_EQ(SystemLogStandIn::messages,
            (Messages{{3,
                       "Debug mode changed to enabled. Debug messages are now handled at logging "
                       "priority level 5."},
                      {5, "--- This is helper version 1.3, implementing operation set 'vnt'. ---"},
                      {3,
                       "Debug mode changed to disabled. Debug messages are now handled at logging "
                       "priority level 7."}}));
}

}  // namespace
}  // namespace corvane
