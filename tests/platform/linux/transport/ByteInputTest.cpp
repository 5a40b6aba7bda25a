#include <array>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "platform/linux/transport/ByteInput.h"
#include "tests/platform/linux/transport/SocketPair.h"

namespace corvane {
namespace {

TEST(ByteInputTest, BytesAreHandedOnAsTheyCome) {
  SocketPair peer;
  ByteInput input(peer.ours.get());
  const FileDescriptor reading = input.takeReadingEnd();
  EXPECT_EQ(input.pump(), 0);
  peer.send("some");
  EXPECT_EQ(input.pump(), 0);
  EXPECT_EQ(received(reading.get()), "some");
}

TEST(ByteInputTest, TheEndOfThePeerIsSeen) {
  SocketPair peer;
  const ByteInput input(peer.ours.get());
  peer.theirs.reset();
  EXPECT_EQ(input.pump(), -ECONNRESET);
}

TEST(ByteInputTest, DescriptorsAreNotTakenAndEndIt) {
  SocketPair peer;
  ByteInput input(peer.ours.get());
  const FileDescriptor reading = input.takeReadingEnd();
  const int before = openDescriptors();
  peer.send("some", 3);
  EXPECT_EQ(input.pump(), -EPROTO);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(received(reading.get()), "");
}

}  // namespace
}  // namespace corvane
