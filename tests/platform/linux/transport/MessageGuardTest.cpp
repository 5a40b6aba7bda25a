#include <memory>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>

#include "platform/linux/transport/DescriptorReceiver.h"
#include "platform/linux/transport/MessageGuard.h"
#include "platform/linux/transport/RequestHeader.h"
#include "tests/platform/linux/transport/Messages.h"
#include "tests/platform/linux/transport/SocketPair.h"

namespace corvane {
namespace {

using Result = MessageGuard::Result;

const std::string handshake = std::string(1, '\0') + "AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n";

/// A guard between a peer and the library, which the test reads for.
class MessageGuardTest : public testing::Test {
 protected:
  /// Pumps until there is nothing more, or no more can be.
  Result pumpAll() {
    Result result = Result::Passed;
    while (result == Result::Passed) {
      result = guard.pump();
      passed += received(library.theirs.get());
    }
    return result;
  }

  Result send(const std::string& bytes, std::size_t descriptors = 0) {
    peer.send(bytes, descriptors);
    return pumpAll();
  }

  void shakeHands() {
    ASSERT_EQ(send(handshake), Result::Waiting);
    ASSERT_FALSE(guard.isInHandshake());
    passed.clear();
  }

  static std::string messageOf(std::uint32_t size) {
    return fixedHeader({.bodySize = size - static_cast<std::uint32_t>(fixedHeaderSize)}, 0);
  }

  SocketPair peer;
  SocketPair library;
  std::shared_ptr<PeerLimits> limits = std::make_shared<PeerLimits>();
  PeerLimits::Share share{limits, 1000};
  MessageGuard guard{peer.ours.get(), std::move(library.ours), share};
  std::string passed;
};

constexpr std::uint32_t largest = maximumMessageSize;

TEST_F(MessageGuardTest, TheHandshakeIsPassedOnLineByLine) {
  peer.send(handshake + requestHeader(0));
  EXPECT_EQ(guard.pump(), Result::Passed);
  EXPECT_EQ(received(library.theirs.get()), handshake.substr(0, 16));
  EXPECT_TRUE(guard.deadline());
  EXPECT_EQ(guard.pump(), Result::Passed);
  EXPECT_EQ(received(library.theirs.get()), "DATA\r\n");
  EXPECT_EQ(guard.pump(), Result::Passed);
  EXPECT_EQ(received(library.theirs.get()), "BEGIN\r\n");
  EXPECT_FALSE(guard.isInHandshake());
  EXPECT_FALSE(guard.deadline());
  EXPECT_EQ(pumpAll(), Result::Waiting);
  EXPECT_EQ(passed, requestHeader(0));
}

TEST_F(MessageGuardTest, AHandshakeMayHaveOnlySoManyBytes) {
  EXPECT_EQ(send(std::string(1, '\0') + std::string(4095, 'A')), Result::Waiting);
  EXPECT_EQ(passed.size(), 4096U);
  EXPECT_EQ(send("A"), Result::Refused);
  EXPECT_EQ(passed.size(), 4096U);
}

TEST_F(MessageGuardTest, AHandshakeBeginsWithAZero) {
  EXPECT_EQ(send(handshake.substr(1)), Result::Refused);
  EXPECT_EQ(passed, "");
}

TEST_F(MessageGuardTest, DescriptorsThatComeWithTheHandshakeAreDropped) {
  const int before = openDescriptors();
  EXPECT_EQ(send(handshake, 3), Result::Waiting);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(passed, handshake);
}

TEST_F(MessageGuardTest, OneMessageIsPassedOnAtATime) {
  shakeHands();
  peer.send(requestHeader(0) + requestHeader(0));
  EXPECT_EQ(guard.pump(), Result::Passed);
  EXPECT_EQ(received(library.theirs.get()), requestHeader(0));
  EXPECT_FALSE(guard.deadline());
  EXPECT_EQ(pumpAll(), Result::Waiting);
  EXPECT_EQ(passed, requestHeader(0));
}

TEST_F(MessageGuardTest, AMessageThatComesByteByByteIsPassedOnWhole) {
  shakeHands();
  for (const char byte : requestHeader(0)) {
    EXPECT_EQ(passed, "");
    EXPECT_EQ(send(std::string(1, byte)), Result::Waiting);
    EXPECT_EQ(guard.deadline().has_value(), passed.empty());
  }
  EXPECT_EQ(passed, requestHeader(0));
}

TEST_F(MessageGuardTest, AMessageWithoutAByteOrderIsRefused) {
  shakeHands();
  EXPECT_EQ(send(fixedHeader({.order = 'x'}, 0)), Result::Refused);
  EXPECT_EQ(passed, "");
}

TEST_F(MessageGuardTest, AMessageOfTheLargestSizeIsTaken) {
  shakeHands();
  EXPECT_EQ(send(messageOf(largest)), Result::Waiting);
  EXPECT_TRUE(guard.deadline());
}

TEST_F(MessageGuardTest, ALargerBodyIsRefused) {
  shakeHands();
  EXPECT_EQ(send(messageOf(largest + 1)), Result::Refused);
}

TEST_F(MessageGuardTest, LargerFieldsAreRefused) {
  shakeHands();
  EXPECT_EQ(send(fixedHeader({}, largest - fixedHeaderSize + 1)), Result::Refused);
}

TEST_F(MessageGuardTest, FieldsAndBodyThatAreTogetherLargerAreRefused) {
  shakeHands();
  EXPECT_EQ(send(fixedHeader({.bodySize = largest / 2}, largest / 2)), Result::Refused);
}

TEST_F(MessageGuardTest, SizesBeyondAllNumbersAreRefused) {
  shakeHands();
  EXPECT_EQ(send(fixedHeader({.bodySize = 0xfffffff8}, 0xffffffff)), Result::Refused);
}

TEST_F(MessageGuardTest, AMessageIsCountedForItsUser) {
  PeerLimits::Share other(limits, 1000);
  ASSERT_TRUE(other.takeMessage(maximumMessageBytesPerUser - largest + 1));
  shakeHands();
  EXPECT_EQ(send(messageOf(largest)), Result::Refused);
}

TEST_F(MessageGuardTest, TheDescriptorsOfARequestArePassedOn) {
  shakeHands();
  const int before = openDescriptors();
  EXPECT_EQ(send(requestHeader(3), 3), Result::Waiting);
  EXPECT_EQ(passed, requestHeader(3));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(MessageGuardTest, AnotherNumberOfDescriptorsThanAnnouncedIsRefused) {
  shakeHands();
  const int before = openDescriptors();
  EXPECT_EQ(send(requestHeader(3), 2), Result::Refused);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(passed, "");
}

TEST_F(MessageGuardTest, DescriptorsWithAHeaderThatIsWrongAreRefused) {
  for (const MessageStart& wrong :
       {MessageStart{.serial = 0, .fields = requestFields(1)}, MessageStart{.fields = {path()}}}) {
    const SocketPair other;
    SocketPair library;
    MessageGuard guard(other.ours.get(), std::move(library.ours), share);
    other.send(handshake);
    while (guard.isInHandshake()) ASSERT_EQ(guard.pump(), Result::Passed);
    const int before = openDescriptors();
    other.send(header(wrong), 1);
    EXPECT_EQ(guard.pump(), Result::Refused);
    EXPECT_EQ(openDescriptors(), before);
  }
}

TEST_F(MessageGuardTest, DescriptorsThatComeAfterTheFirstByteAreRefused) {
  shakeHands();
  const std::string whole = requestHeader(1);
  EXPECT_EQ(send(whole.substr(0, 1)), Result::Waiting);
  const int before = openDescriptors();
  EXPECT_EQ(send(whole.substr(1), 1), Result::Refused);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(passed, "");
}

TEST_F(MessageGuardTest, DescriptorsThatComeWithABodyAreRefused) {
  shakeHands();
  EXPECT_EQ(send(messageOf(100)), Result::Waiting);
  EXPECT_EQ(send("x", 1), Result::Refused);
  EXPECT_EQ(passed, "");
}

/// A socket, and what is received from it.
class DescriptorReceiverTest : public testing::Test {
 protected:
  SocketPair peer;
};

TEST_F(DescriptorReceiverTest, OnlyTheFirstByteIsTakenWithItsDescriptors) {
  peer.send("some", 2);
  const auto descriptors = takeDescriptors(peer.ours.get(), 2, 1000);
  ASSERT_TRUE(descriptors);
  EXPECT_EQ(descriptors->size(), 2U);
  EXPECT_EQ(received(peer.ours.get()), "ome");
}

TEST_F(DescriptorReceiverTest, ProgramsThatAreStartedGetNone) {
  peer.send("x", 1);
  const auto descriptors = takeDescriptors(peer.ours.get(), 1, 1000);
  ASSERT_TRUE(descriptors);
  EXPECT_NE(::fcntl(descriptors->front().get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(DescriptorReceiverTest, FewerOrMoreThanExpectedAreNotTaken) {
  const int before = openDescriptors();
  for (std::size_t expected = 1; expected <= maximumMessageDescriptors; ++expected) {
    for (const std::size_t sent : {1U, 2U, 3U, 4U, 5U, 253U}) {
      peer.send("x", sent);
      EXPECT_EQ(takeDescriptors(peer.ours.get(), expected, 1000).has_value(), sent == expected)
          << expected << " " << sent;
    }
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(DescriptorReceiverTest, NoneAndMoreThanThereMayBeAreNotTaken) {
  for (const std::size_t count : {std::size_t{0}, maximumMessageDescriptors + 1}) {
    peer.send("x", count);
    EXPECT_FALSE(takeDescriptors(peer.ours.get(), count, 1000));
    EXPECT_EQ(received(peer.ours.get()), "x");
  }
}

}  // namespace
}  // namespace corvane
