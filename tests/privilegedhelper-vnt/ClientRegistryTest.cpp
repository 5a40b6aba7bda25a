// The registry's clean-up over a process table that a test makes up: no test may start as many
// processes as it takes.

#include <set>

#include <gtest/gtest.h>

#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/ProcessTable.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"

namespace corvane {

namespace {

bool haveAllEnded;
std::set<std::int32_t> endedProcesses;
int questions;

}  // namespace

bool hasProcessEnded(std::int32_t pid) {
  ++questions;
  return haveAllEnded || endedProcesses.contains(pid);
}

std::optional<std::vector<ProcessRecord>> readProcessTable() {
  return std::nullopt;
}

namespace {

constexpr int firstCleanUp = 4096;

class ClientRegistryTest : public testing::Test {
 protected:
  ClientRegistryTest()
      : helper(ZELPrivilegedHelper::initForOperationSet(
            &ZELPrivilegedOperationSetVNT::privilegedOperationSet(), nullptr, nullptr)) {
    // The helper is one for all tests: a clean-up that leaves next to nothing begins anew.
    haveAllEnded = true;
    questions = 0;
    for (int pid = 1; questions == 0; ++pid) helper->registerClientWithPID(pid);
    helper->clientSet().clear();
    haveAllEnded = false;
    endedProcesses.clear();
    questions = 0;
  }

  void registerUpTo(int last) {
    for (int pid = 1; pid <= last; ++pid) helper->registerClientWithPID(pid);
  }

  ZELPrivilegedHelper* helper;
};

TEST_F(ClientRegistryTest, ClientsThatHaveEndedMakeRoomBeforeTheNextOfFourThousand) {
  endedProcesses = {7, 9, firstCleanUp + 1};
  registerUpTo(firstCleanUp);
  EXPECT_EQ(questions, 0);
  EXPECT_EQ(helper->clientSet().size(), firstCleanUp);
  helper->registerClientWithPID(firstCleanUp + 1);
  // Who is just being registered is not looked at.
  EXPECT_EQ(helper->clientSet().size(), firstCleanUp - 2 + 1);
  EXPECT_FALSE(helper->clientSet().contains(7) || helper->clientSet().contains(9));
  EXPECT_TRUE(helper->clientSet().contains(firstCleanUp + 1));
}

TEST_F(ClientRegistryTest, ClientsThatRunAreLookedAtOnceForEachDoublingOfTheirNumber) {
  registerUpTo(2 * firstCleanUp);
  EXPECT_EQ(questions, firstCleanUp);
  EXPECT_EQ(helper->clientSet().size(), 2 * firstCleanUp);
  registerUpTo(4 * firstCleanUp);
  EXPECT_EQ(questions, firstCleanUp + 2 * firstCleanUp);
  // However often they come again.
  registerUpTo(4 * firstCleanUp - 1);
  EXPECT_EQ(questions, firstCleanUp + 2 * firstCleanUp + 4 * firstCleanUp);
  EXPECT_EQ(helper->clientSet().size(), 4 * firstCleanUp);
}

TEST_F(ClientRegistryTest, ACleanUpThatMadeRoomIsNotRepeatedBeforeTheRoomIsTaken) {
  haveAllEnded = true;
  registerUpTo(firstCleanUp);
  helper->registerClientWithPID(firstCleanUp + 1);
  EXPECT_EQ(helper->clientSet(), ZELPrivilegedHelper::ClientSet{firstCleanUp + 1});
  registerUpTo(firstCleanUp - 1);
  EXPECT_EQ(questions, firstCleanUp);
}

}  // namespace
}  // namespace corvane
