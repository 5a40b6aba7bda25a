#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include "foundation/POSIXError.h"
#include "platform/linux/processes/ProcessIdentity.h"
#include "tests/platform/linux/support/ChildProcess.h"

#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif

namespace corvane {
namespace {

class PeerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "root alone can take another user's place";
  }
};

bool hasPeerDescriptors(int socket) {
  int descriptor = -1;
  socklen_t length = sizeof descriptor;
  const bool has = ::getsockopt(socket, SOL_SOCKET, SO_PEERPIDFD, &descriptor, &length) == 0;
  const FileDescriptor owner(descriptor);
  return has;
}

TEST(ProcessIdentityTest, ThisProcessIsRunning) {
  const ProcessIdentity self = ProcessIdentity::ofThisProcess();
  EXPECT_EQ(self.pid, ::getpid());
  EXPECT_EQ(self.uid, ::geteuid());
  EXPECT_GT(self.startTime, 0U);
  EXPECT_TRUE(self.isRunning());
}

TEST(ProcessIdentityTest, AnotherStartTimeIsAnotherProcess) {
  ProcessIdentity other = ProcessIdentity::ofThisProcess();
  ++other.startTime;
  EXPECT_FALSE(other.isRunning());
}

TEST(ProcessIdentityTest, ANameCannotPassForFields) {
  const ProcessIdentity self = ProcessIdentity::ofThisProcess();
  char name[16] = {};
  ASSERT_EQ(::prctl(PR_GET_NAME, name), 0);
  for (const char* misleading : {") Z 1 1", ") 9 9 9 9 9 9 9", "(((", "a b\n) X"}) {
    ASSERT_EQ(::prctl(PR_SET_NAME, misleading), 0);
    EXPECT_EQ(processStartTime(self.pid), self.startTime) << misleading;
  }
  ::prctl(PR_SET_NAME, name);
}

TEST(ProcessIdentityTest, NumbersWithoutProcessHaveNoStartTime) {
  EXPECT_EQ(processStartTime(0), std::nullopt);
  EXPECT_EQ(processStartTime(-1), std::nullopt);
  EXPECT_EQ(processStartTime(1 << 30), std::nullopt);
}

TEST_F(PeerTest, IsTheConnectingProcessAndItsUser) {
  ChildProcess child = ChildProcess::connectedOfUser(someUser);
  const auto process = WatchedProcess::ofPeer(child.socket());
  ASSERT_TRUE(process);
  const ProcessIdentity& identity = process->identity();
  EXPECT_EQ(identity,
            (ProcessIdentity{child.pid(), someUser, processStartTime(child.pid()).value()}));
  EXPECT_TRUE(identity.isRunning());
}

TEST_F(PeerTest, AnEndedProcessIsRefusedWhileItsParentHasNotNoticed) {
  ChildProcess child = ChildProcess::connectedOfUser(someUser);
  const auto before = WatchedProcess::ofPeer(child.socket())->identity();
  child.kill();
  EXPECT_FALSE(WatchedProcess::ofPeer(child.socket()));
  EXPECT_FALSE(before.isRunning());
  child.reap();
  EXPECT_FALSE(WatchedProcess::ofPeer(child.socket()));
  EXPECT_FALSE(before.isRunning());
}

TEST_F(PeerTest, AWatchedProcessIsSeenToEnd) {
  ChildProcess child = ChildProcess::connectedOfUser(someUser);
  const auto process = WatchedProcess::ofPeer(child.socket());
  EXPECT_TRUE(process->isRunning());
  child.kill();
  EXPECT_FALSE(process->isRunning());
}

TEST_F(PeerTest, AReusedProcessNumberIsNotTheProcess) {
  ChildProcess child = ChildProcess::connectedOfUser(someUser);
  if (!hasPeerDescriptors(child.socket())) GTEST_SKIP() << "the kernel has no SO_PEERPIDFD";
  const auto before = WatchedProcess::ofPeer(child.socket())->identity();
  child.kill();
  child.reap();
  const std::optional<ChildProcess> successor = ChildProcess::successorOf(before);
  if (!successor) GTEST_SKIP() << "process numbers cannot be chosen here";

  ASSERT_NE(processStartTime(before.pid), std::nullopt) << "the number is in use again";
  EXPECT_FALSE(before.isRunning());
  const auto after = WatchedProcess::ofPeer(child.socket());
  ASSERT_FALSE(after);
  EXPECT_EQ(after.error().code(), 3) << "no such process";
}

TEST_F(PeerTest, WhatIsNoConnectedSocketIsRefused) {
  const FileDescriptor file(::open("/dev/null", O_RDWR | O_CLOEXEC));
  const FileDescriptor internet(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const FileDescriptor unconnected(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  for (const FileDescriptor* descriptor : {&file, &internet, &unconnected}) {
    EXPECT_FALSE(WatchedProcess::ofPeer(descriptor->get()));
  }
  EXPECT_FALSE(WatchedProcess::ofPeer(-1));
}

TEST_F(PeerTest, NoDescriptorIsLeftBehind) {
  ChildProcess child = ChildProcess::connectedOfUser(someUser);
  const int before = ::dup(child.socket());
  FileDescriptor closed(before);
  closed.reset();
  for (int i = 0; i < 10; ++i) (void)WatchedProcess::ofPeer(child.socket());
  const FileDescriptor after(::dup(child.socket()));
  EXPECT_EQ(after.get(), before) << "the lowest free descriptor is the same";
}

}  // namespace
}  // namespace corvane
