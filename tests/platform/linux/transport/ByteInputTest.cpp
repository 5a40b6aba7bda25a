#include <array>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "foundation/POSIXError.h"
#include "platform/linux/transport/ByteInput.h"
#include "tests/platform/linux/transport/SocketPair.h"

namespace corvane {
namespace {

TEST(ByteInputTest, BytesAreHandedOnAsTheyCome) {
  SocketPair peer;
  ByteInput input(peer.ours.get());
  const FileDescriptor reading = input.takeReadingEnd();
  EXPECT_TRUE(input.pump());
  peer.send("some");
  EXPECT_TRUE(input.pump());
  EXPECT_EQ(received(reading.get()), "some");
}

TEST(ByteInputTest, TheEndOfThePeerIsSeen) {
  SocketPair peer;
  const ByteInput input(peer.ours.get());
  peer.theirs.reset();
  EXPECT_EQ(input.pump().error(), posixErrorFromHost(ECONNRESET));
}

TEST(ByteInputTest, DescriptorsAreNotTakenAndEndIt) {
  SocketPair peer;
  ByteInput input(peer.ours.get());
  const FileDescriptor reading = input.takeReadingEnd();
  const int before = openDescriptors();
  peer.send("some", 3);
  EXPECT_EQ(input.pump().error(), posixErrorFromHost(EPROTO));
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(received(reading.get()), "");
}

}  // namespace
}  // namespace corvane
