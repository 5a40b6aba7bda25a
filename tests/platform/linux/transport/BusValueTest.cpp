#include <cerrno>
#include <limits>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "platform/linux/bus/Bus.h"
#include "platform/linux/transport/BusValue.h"
#include "platform/linux/transport/LocalSocket.h"
#include "platform/linux/transport/PeerBus.h"
#include "tests/platform/linux/transport/Messages.h"

namespace corvane {
namespace {

Data bytes(std::string_view text) {
  return dataFromString(text);
}

/// A message that is written and read.
class BusValueTest : public testing::Test {
 protected:
  BusValueTest() {
    auto [ours, theirs] = connectedSockets();
    const int descriptor = ours.release();
    sd_bus* rawBus = nullptr;
    EXPECT_GE(sd_bus_new(&rawBus), 0);
    bus.reset(rawBus);
    EXPECT_GE(sd_bus_set_fd(rawBus, descriptor, descriptor), 0);
    EXPECT_GE(sd_bus_start(rawBus), 0);
    peer = std::move(theirs);
    begin();
  }

  void begin() {
    sd_bus_message* raw = nullptr;
    EXPECT_GE(sd_bus_message_new_method_call(bus.get(), &raw, nullptr, "/a", "a.b", "C"), 0);
    message.reset(raw);
  }

  template <typename... Values>
  void append(const char* signature, Values... values) {
    ASSERT_GE(sd_bus_message_append(message.get(), signature, values...), 0) << signature;
  }

  /// Reads what has been appended, of type `av`.
  int read(Array& array, const TakeMemory& takeMemory = {}) {
    EXPECT_GE(sd_bus_message_seal(message.get(), 1, 0), 0);
    MessageReader reader(message.get());
    array = readArray(reader, takeMemory);
    begin();
    return reader.result();
  }

  /// The one value of an `av`, which must be readable.
  Value readOne() {
    Array array;
    EXPECT_GE(read(array), 0);
    EXPECT_EQ(array.size(), 1U);
    return array.empty() ? Value("nothing") : array.front();
  }

  int readFailing() {
    Array array;
    return read(array);
  }

  void open(char type, const char* contents) {
    ASSERT_GE(sd_bus_message_open_container(message.get(), type, contents), 0);
  }
  void close() { ASSERT_GE(sd_bus_message_close_container(message.get()), 0); }

  /// A list of a number in so many variants, one in the other.
  void appendNested(int variants) {
    open('a', "v");
    for (int i = 1; i < variants; ++i) open('v', "v");
    append("v", "i", 1);
    for (int i = 1; i < variants; ++i) close();
    close();
  }

  void appendTexts(int count, const std::string& text) {
    open('a', "v");
    open('v', "as");
    open('a', "s");
    for (int i = 0; i < count; ++i) append("s", text.c_str());
    for (int i = 0; i < 3; ++i) close();
  }

  Bus bus;
  FileDescriptor peer;
  BusMessage message;
};

TEST_F(BusValueTest, EveryKindOfNumberIsRead) {
  append("av", 1, "y", 255);
  EXPECT_EQ(readOne(), Value(255U));
  append("av", 1, "n", -32768);
  EXPECT_EQ(readOne(), Value(-32768));
  append("av", 1, "q", 65535);
  EXPECT_EQ(readOne(), Value(65535U));
  append("av", 1, "i", std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(readOne(), Value(std::numeric_limits<std::int32_t>::min()));
  append("av", 1, "u", std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(readOne(), Value(std::numeric_limits<std::uint32_t>::max()));
  append("av", 1, "x", std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(readOne(), Value(std::numeric_limits<std::int64_t>::min()));
  append("av", 1, "t", std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(readOne(), Value(std::numeric_limits<std::uint64_t>::max()));
  append("av", 1, "d", -0.5);
  EXPECT_EQ(readOne(), Value(-0.5));
  append("av", 1, "b", 1);
  EXPECT_EQ(readOne(), Value(true));
}

TEST_F(BusValueTest, EveryOtherKindIsRead) {
  append("av", 1, "s", "text");
  EXPECT_EQ(readOne(), Value("text"));
  append("av", 1, "v", "s", "in another");
  EXPECT_EQ(readOne(), Value("in another"));
  append("av", 1, "ay", 3, 'a', 0, 'b');
  EXPECT_EQ(readOne(), Value(bytes({"a\0b", 3})));
  append("av", 1, "ay", 0);
  EXPECT_EQ(readOne(), Value(Data()));
  append("av", 1, "as", 2, "one", "two");
  EXPECT_EQ(readOne(), Value(Array{"one", "two"}));
  append("av", 1, "av", 2, "s", "one", "i", 2);
  EXPECT_EQ(readOne(), Value(Array{"one", 2}));
  append("av", 1, "aai", 2, 1, 1, 0);
  EXPECT_EQ(readOne(), Value(Array{Array{1}, Array()}));
  append("av", 1, "a{sv}", 2, "b", "i", 1, "a", "s", "text");
  EXPECT_EQ(readOne(), Value(Dictionary{{"b", 1}, {"a", "text"}}));
  append("av", 1, "(sxa{sv})", "domain", std::int64_t{-5}, 1, "why", "s", "so");
  EXPECT_EQ(readOne(), Value(Error("domain", -5, {{"why", "so"}})));
}

TEST_F(BusValueTest, NoOtherTypeIsRead) {
  append("av", 1, "o", "/a");
  EXPECT_EQ(readFailing(), -EBADMSG);
  append("av", 1, "g", "s");
  EXPECT_EQ(readFailing(), -EBADMSG);
  append("av", 1, "h", 0);
  EXPECT_EQ(readFailing(), -EBADMSG);
  append("av", 1, "(ss)", "a", "b");
  EXPECT_EQ(readFailing(), -EBADMSG);
  append("av", 1, "a{ss}", 1, "a", "b");
  EXPECT_EQ(readFailing(), -EBADMSG);
  append("av", 1, "a{iv}", 1, 1, "s", "b");
  EXPECT_EQ(readFailing(), -EBADMSG);
  append("av", 1, "ao", 1, "/a");
  EXPECT_EQ(readFailing(), -EBADMSG);
}

TEST_F(BusValueTest, ValuesAreNestedOnlySoDeep) {
  appendNested(31);
  EXPECT_EQ(readOne(), Value(1));
  appendNested(32);
  EXPECT_EQ(readFailing(), -EBADMSG);
}

TEST_F(BusValueTest, ListsAreNestedOnlySoDeep) {
  for (const int depth : {15, 16}) {
    open('a', "v");
    for (int i = 0; i < depth; ++i) {
      open('v', "av");
      open('a', "v");
    }
    append("v", "i", 1);
    for (int i = 0; i < depth; ++i) {
      close();
      close();
    }
    close();
    EXPECT_EQ(readFailing() >= 0, depth == 15);
  }
}

TEST_F(BusValueTest, WhatIsNotNestedMayBeMany) {
  append("av", 3, "i", 1, "i", 2, "v", "v", "i", 3);
  EXPECT_GE(readFailing(), 0);
  open('a', "v");
  for (int i = 0; i < 100; ++i) append("v", "i", i);
  close();
  EXPECT_GE(readFailing(), 0);
}

// The list itself is a value as well.
TEST_F(BusValueTest, OnlySoManyValuesAreSmall) {
  appendTexts(16383, "7 bytes");
  EXPECT_GE(readFailing(), 0);
  appendTexts(16384, "7 bytes");
  EXPECT_EQ(readFailing(), -E2BIG);
  appendTexts(16384, "8  bytes");
  EXPECT_GE(readFailing(), 0);
}

TEST_F(BusValueTest, AKeyMayNotBeThereTwice) {
  append("av", 1, "a{sv}", 3, "a", "i", 1, "b", "i", 2, "a", "i", 3);
  EXPECT_EQ(readFailing(), -EBADMSG);
  append("av", 1, "(sxa{sv})", "domain", std::int64_t{1}, 2, "a", "i", 1, "a", "i", 1);
  EXPECT_EQ(readFailing(), -EBADMSG);
}

TEST_F(BusValueTest, MemoryIsAskedForBeforeItIsTaken) {
  std::size_t asked = 0;
  const TakeMemory count = [&](std::size_t size) {
    asked += size;
    return true;
  };
  Array array;
  appendTexts(1000, std::string(1000, 'x'));
  EXPECT_GE(read(array, count), 0);
  EXPECT_GE(asked, 1000 * (1000 + sizeof(Value)));

  const std::string large(200000, 'x');
  const auto refuseLarge = [](std::size_t size) { return size < 100000; };
  appendTexts(1, large);
  EXPECT_EQ(read(array, refuseLarge), -E2BIG);
  append("av", 1, "a{sv}", 1, large.c_str(), "i", 1);
  EXPECT_EQ(read(array, refuseLarge), -E2BIG);
  open('a', "v");
  open('v', "ay");
  ASSERT_GE(sd_bus_message_append_array(message.get(), 'y', large.data(), large.size()), 0);
  close();
  close();
  EXPECT_EQ(read(array, refuseLarge), -E2BIG);
}

TEST_F(BusValueTest, AnErrorIsThereOnceOrNot) {
  for (int count = 0; count <= 2; ++count) {
    begin();
    open('a', "(sxa{sv})");
    for (int i = 0; i < count; ++i) append("(sxa{sv})", "domain", std::int64_t{7}, 0);
    close();
    ASSERT_GE(sd_bus_message_seal(message.get(), 1, 0), 0);
    MessageReader reader(message.get());
    const std::optional<Error> error = readOptionalError(reader);
    EXPECT_EQ(reader.result() >= 0, count < 2);
    EXPECT_EQ(error.has_value(), count > 0);
  }
}

TEST_F(BusValueTest, WhatIsWrittenIsReadAsItWas) {
  const Array values{"text",
                     "",
                     true,
                     -1,
                     std::numeric_limits<std::uint64_t>::max(),
                     0.25,
                     bytes({"\0\xff", 2}),
                     Data(),
                     Array{"only", "texts"},
                     Array{"text", 1, Array()},
                     Array(),
                     Dictionary{{"key", Dictionary{{"", "value"}}}},
                     Error("domain", 3, {{"key", Array{1}}})};
  open('a', "v");
  MessageWriter writer(message.get());
  for (const Value& value : values) appendVariant(writer, value);
  ASSERT_GE(writer.result(), 0);
  close();
  Array again;
  EXPECT_GE(read(again), 0);
  EXPECT_EQ(again, values);
}

/// What a peer sends as the body of a message, `av`, with one text in it.
class BusTextTest : public testing::Test {
 protected:
  /// How the text is read, or -ENOMSG if the library does not hand it out at all.
  static int readText(const std::string& text) {
    auto [ours, theirs] = connectedSockets();
    auto [input, forward] = connectedSockets();
    const Bus bus = *makePeerBus(std::move(ours), BusRole::Server, std::move(input));
    int result = -ENOMSG;
    sd_bus_add_filter(bus.get(), nullptr, &readMessage, &result);
    const std::string content = std::string("\1s\0", 3) + std::string(1, '\0') +
                                number(static_cast<std::uint32_t>(text.size())) + text +
                                std::string(1, '\0');
    const std::string body = number(static_cast<std::uint32_t>(content.size())) + content;
    const std::string sent =
        std::string(1, '\0') + "AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n" +
        header({.bodySize = static_cast<std::uint32_t>(body.size()),
                .fields = {path(), interface(), member(), textField(8, 'g', "av")}}) +
        body;
    EXPECT_EQ(::send(forward.get(), sent.data(), sent.size(), 0),
              static_cast<ssize_t>(sent.size()));
    while (sd_bus_process(bus.get(), nullptr) > 0) {
    }
    return result;
  }

 private:
  static int readMessage(sd_bus_message* message, void* result, sd_bus_error* /*error*/) {
    MessageReader reader(message);
    readArray(reader);
    *static_cast<int*>(result) = reader.result();
    return 1;
  }
};

TEST_F(BusTextTest, TextIsUTF8) {
  EXPECT_GE(readText("text \xc3\xa4 \xf0\x9f\x98\x80"), 0);
  for (const char* text : {"\xff", "\xc3(", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
    EXPECT_EQ(readText(text), -EBADMSG);
  }
}

TEST_F(BusTextTest, TextHasNoZeroInIt) {
  EXPECT_EQ(readText(std::string("a\0b", 3)), -EBADMSG);
}

}  // namespace
}  // namespace corvane
