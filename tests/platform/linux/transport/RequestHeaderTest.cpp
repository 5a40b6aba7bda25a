#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/linux/transport/RequestHeader.h"
#include "tests/platform/linux/transport/Messages.h"

namespace corvane {
namespace {

std::optional<std::uint32_t> announced(const std::string& header) {
  return announcedDescriptors(std::as_bytes(std::span(header)));
}

TEST(RequestHeaderTest, TheNumberOfARequestIsReadInBothByteOrders) {
  for (const char order : {'l', 'B'}) {
    for (const std::uint32_t count : {0U, 1U, 2U, 4U, 5U, 0xffffffffU}) {
      EXPECT_EQ(announced(requestHeader(count, order)), count) << order;
    }
  }
}

TEST(RequestHeaderTest, FieldsMayBeInAnyOrder) {
  EXPECT_EQ(announced(header({.fields = {unixFds(2), signature(), member(), path(), interface()}})),
            2U);
}

TEST(RequestHeaderTest, EveryPartOfTheHeaderMustBeThere) {
  const std::string whole = requestHeader(1);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(announced(whole.substr(0, size)), std::nullopt) << size;
  }
  EXPECT_EQ(announced(whole + std::string(8, '\0')), std::nullopt);
}

// Whatever byte is another: it is the flags, the body's length, the serial, the number, or refused.
TEST(RequestHeaderTest, NoByteCanBeChangedWithoutNotice) {
  const std::string whole = requestHeader(1);
  const std::size_t number = whole.rfind(std::string("\x09\x01u\0", 4)) + 4;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string changed = whole;
      changed[i] = static_cast<char>(changed[i] ^ (1 << bit));
      const bool isFree = i == 2 || (i >= 4 && i < 12) || (i >= number && i < number + 4);
      const bool isSerialZero = changed.substr(8, 4) == std::string(4, '\0');
      EXPECT_EQ(announced(changed).has_value(), isFree && !isSerialZero) << i << " " << bit;
    }
  }
}

TEST(RequestHeaderTest, EachFieldIsNeededOnce) {
  const std::vector<std::string> fields = requestFields(1);
  for (std::size_t i = 0; i < fields.size(); ++i) {
    std::vector<std::string> others = fields;
    others.erase(others.begin() + static_cast<std::ptrdiff_t>(i));
    EXPECT_EQ(announced(header({.fields = others})), std::nullopt) << i;
    std::vector<std::string> twice = fields;
    twice.push_back(fields[i]);
    EXPECT_EQ(announced(header({.fields = twice})), std::nullopt) << i;
  }
}

TEST(RequestHeaderTest, SizesAreReadInBothByteOrdersAndNoOther) {
  const auto sizesOf = [](const std::string& header) {
    return messageSizes(std::as_bytes(std::span(header)).first<fixedHeaderSize>());
  };
  for (const char order : {'l', 'B'}) {
    const auto sizes = sizesOf(fixedHeader({.order = order, .bodySize = 0x01020304}, 0xfffffff9));
    ASSERT_TRUE(sizes);
    EXPECT_EQ(sizes->body, 0x01020304U);
    EXPECT_EQ(sizes->fields, 0xfffffff9U);
    EXPECT_EQ(sizes->rest(), 0x100000000U + 0x01020304U);
  }
  EXPECT_FALSE(sizesOf(fixedHeader({.order = 'x'}, 0)));
}

}  // namespace
}  // namespace corvane
