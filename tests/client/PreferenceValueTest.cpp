#include <limits>

#include <gtest/gtest.h>

#include "client/cli/commands/PreferenceValue.h"
#include "foundation/PropertyList.h"

namespace corvane::cli {
namespace {

// What the helper makes of it.
std::optional<Value> sent(ValueKind kind, const std::string& text) {
  const auto list = propertyListOf(kind, text);
  if (!list) return std::nullopt;
  return readPropertyList(dataFromString(*list))->root;
}

TEST(PreferenceValueTest, TextIsItselfWhateverIsInIt) {
  for (const std::string text :
       {"", " ", "hello world", "gr\u00FCn", "\"quoted\"", "back\\slash\\", "(de, en)", "{a = b;}",
        "<0a>", "<plist><true/></plist>", "4", "true", "two\nlines\ttab", "\x1b[1m", "// none",
        "bplist00", "\\U00e4"}) {
    EXPECT_EQ(sent(ValueKind::Text, text), Value(text)) << text;
  }
  EXPECT_FALSE(propertyListOf(ValueKind::Text, "\xFF"));
}

TEST(PreferenceValueTest, Booleans) {
  for (const char* text : {"true", "yes", "1"}) {
    EXPECT_EQ(sent(ValueKind::Boolean, text), Value(true));
  }
  for (const char* text : {"false", "no", "0"}) {
    EXPECT_EQ(sent(ValueKind::Boolean, text), Value(false));
  }
  for (const char* text : {"", "2", "maybe", "TRUE "}) {
    EXPECT_FALSE(propertyListOf(ValueKind::Boolean, text)) << text;
  }
}

TEST(PreferenceValueTest, IntegersOf64Bits) {
  EXPECT_EQ(sent(ValueKind::Integer, "-5"), Value(-5));
  EXPECT_EQ(sent(ValueKind::Integer, "0x1F"), Value(31));
  EXPECT_EQ(sent(ValueKind::Integer, "-9223372036854775808"),
            Value(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(sent(ValueKind::Integer, "18446744073709551615"),
            Value(std::numeric_limits<std::uint64_t>::max()));
  for (const char* text :
       {"", "four", "4.5", "18446744073709551616", "1</integer><integer>2", "4 4"}) {
    EXPECT_FALSE(propertyListOf(ValueKind::Integer, text)) << text;
  }
}

TEST(PreferenceValueTest, Reals) {
  EXPECT_EQ(sent(ValueKind::Real, "1.5"), Value(1.5));
  EXPECT_EQ(sent(ValueKind::Real, "-2e3"), Value(-2000.0));
  for (const char* text : {"", "1,5", "one", "1.5.2"}) {
    EXPECT_FALSE(propertyListOf(ValueKind::Real, text)) << text;
  }
}

TEST(PreferenceValueTest, Dates) {
  EXPECT_EQ(sent(ValueKind::Date, "2001-01-02T00:00:00Z"), Value(Date{86400}));
  for (const char* text : {"", "tomorrow", "2001-13-01T00:00:00Z"}) {
    EXPECT_FALSE(propertyListOf(ValueKind::Date, text)) << text;
  }
}

TEST(PreferenceValueTest, DataInHexadecimalDigits) {
  EXPECT_EQ(sent(ValueKind::Data, "0aFF 10"),
            Value(Data{std::byte{0x0A}, std::byte{0xFF}, std::byte{0x10}}));
  EXPECT_EQ(sent(ValueKind::Data, ""), Value(Data()));
  for (const char* text : {"0", "xy", "0a> <0b", "plist"}) {
    EXPECT_FALSE(propertyListOf(ValueKind::Data, text)) << text;
  }
}

}  // namespace
}  // namespace corvane::cli
