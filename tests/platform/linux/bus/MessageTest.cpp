#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "foundation/FileDescriptor.h"
#include "platform/linux/bus/MessageReader.h"
#include "platform/linux/bus/MessageWriter.h"

namespace corvane {
namespace {

/// A message that is written and then read.
class MessageTest : public testing::Test {
 protected:
  MessageTest() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    peer.reset(ends[1]);
    sd_bus* raw = nullptr;
    EXPECT_GE(sd_bus_new(&raw), 0);
    bus.reset(raw);
    EXPECT_GE(sd_bus_set_fd(raw, ends[0], ends[0]), 0);
    EXPECT_GE(sd_bus_start(raw), 0);
  }

  MessageWriter newCall() const {
    return MessageWriter::ofCall(bus.get(), nullptr, "/a", "a.b", "C");
  }

  /// What was written, from its begin.
  static MessageReader read(const MessageWriter& writer) {
    EXPECT_EQ(writer.result(), 0);
    EXPECT_GE(sd_bus_message_seal(writer.message(), 1, 0), 0);
    return MessageReader(writer.message());
  }

  Bus bus;
  FileDescriptor peer;
};

TEST_F(MessageTest, WhatIsWrittenIsRead) {
  const std::vector<std::byte> bytes = {std::byte{0}, std::byte{255}};
  MessageWriter writer = newCall();
  writer.append("sb", "text", 1);
  writer.appendBytes(bytes);
  writer.appendContainer('a', "(iv)", [&] {
    for (const int number : {7, 8}) writer.append("(iv)", number, "s", "in it");
  });

  MessageReader reader = read(writer);
  EXPECT_EQ(reader.text(), "text");
  EXPECT_TRUE(reader.boolean());
  const auto read = reader.bytes();
  EXPECT_EQ(std::vector<std::byte>(read.begin(), read.end()), bytes);
  std::vector<std::int32_t> numbers;
  reader.array("(iv)", [&] {
    reader.container('r', "iv", [&] {
      numbers.push_back(reader.basic<std::int32_t>('i'));
      EXPECT_EQ(reader.nextType().type, 'v');
      reader.container('v', "s", [&] { EXPECT_EQ(reader.text(), "in it"); });
    });
  });
  EXPECT_EQ(numbers, (std::vector<std::int32_t>{7, 8}));
  EXPECT_TRUE(reader.isAtEnd());
  EXPECT_EQ(reader.nextType().type, 0);
  EXPECT_EQ(reader.result(), 0);
}

TEST_F(MessageTest, WritingKeepsTheFirstFailure) {
  MessageWriter writer = newCall();
  writer.append("o", "no object path");
  EXPECT_EQ(writer.result(), -EINVAL);
  bool isFilled = false;
  writer.appendContainer('a', "s", [&] { isFilled = true; });
  EXPECT_FALSE(isFilled);
  writer.append("s", "text");
  writer.send();
  EXPECT_EQ(writer.result(), -EINVAL);
  EXPECT_EQ(writer.message(), nullptr) << "half a message is of no use";
}

TEST_F(MessageTest, AFailureInAContainerIsOneOfTheMessage) {
  MessageWriter writer = newCall();
  writer.appendContainer('a', "s", [&] { writer.append("i", 1); });
  EXPECT_EQ(writer.result(), -ENXIO);
}

TEST_F(MessageTest, AMessageThatCannotBeBegunIsAFailure) {
  EXPECT_EQ(MessageWriter::ofCall(bus.get(), nullptr, "no path", "a.b", "C").result(), -EINVAL);
}

TEST_F(MessageTest, ReadingKeepsTheFirstFailure) {
  MessageWriter writer = newCall();
  writer.append("si", "text", 1);
  MessageReader reader = read(writer);
  EXPECT_EQ(reader.basic<std::int32_t>('i'), 0);
  EXPECT_EQ(reader.result(), -ENXIO);
  // What could be read is not: whoever reads may be out of step.
  EXPECT_EQ(reader.text(), "");
  EXPECT_TRUE(reader.bytes().empty());
  EXPECT_TRUE(reader.isAtEnd());
  EXPECT_EQ(reader.nextType().type, 0);
  reader.fail(-E2BIG);
  EXPECT_EQ(reader.result(), -ENXIO);
}

TEST_F(MessageTest, WhatAnArrayIsReadForEndsWithTheFirstFailure) {
  MessageWriter writer = newCall();
  writer.append("as", 3, "a", "b", "c");
  MessageReader reader = read(writer);
  int elements = 0;
  reader.array("s", [&] {
    ++elements;
    reader.fail(-EBADMSG);
  });
  EXPECT_EQ(elements, 1);
  EXPECT_EQ(reader.result(), -EBADMSG);
}

TEST_F(MessageTest, NothingIsReadBeyondTheEndOfAContainer) {
  MessageWriter writer = newCall();
  writer.append("as", 1, "a");
  MessageReader reader = read(writer);
  reader.container('a', "s", [&] {
    EXPECT_EQ(reader.text(), "a");
    EXPECT_EQ(reader.text(), "");
  });
  EXPECT_EQ(reader.result(), -EBADMSG);
}

TEST_F(MessageTest, WhatMayBeThereIsThereOnceOrNot) {
  for (int count = 0; count <= 2; ++count) {
    MessageWriter writer = newCall();
    writer.appendContainer('a', "s", [&] {
      for (int i = 0; i < count; ++i) writer.append("s", "text");
    });
    MessageReader reader = read(writer);
    std::string text;
    reader.optional("s", [&] { text = reader.text(); });
    EXPECT_EQ(reader.result(), count < 2 ? 0 : -EBADMSG);
    EXPECT_EQ(text, count > 0 ? "text" : "");
  }
}

}  // namespace
}  // namespace corvane
