#include <gtest/gtest.h>

#include "foundation/Unicode.h"

namespace corvane {
namespace {

TEST(UnicodeTest, WellFormedTextOfEveryLengthPasses) {
  EXPECT_TRUE(isUTF8("a\xC2\x80\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"));
  EXPECT_TRUE(isUTF8(""));
}

TEST(UnicodeTest, MalformedTextFails) {
  for (const char* text :
       {"\x80", "\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xF0\x80\x80\xAF", "\xED\xA0\x80",
        "\xF4\x90\x80\x80", "\xFF", "\xF8\x88\x80\x80\x80", "a\xE2\x82", "\xE2\x28\xA1"}) {
    EXPECT_FALSE(isUTF8(text)) << testing::PrintToString(text);
  }
}

TEST(UnicodeTest, EachByteThatBeginsNoCharacterIsReplaced) {
  std::string_view text = "a\xC3\x28\xE2\x82\xC3\xA4";
  std::u32string characters;
  while (!text.empty()) characters += takeCharacter(text);
  EXPECT_EQ(characters, U"a\uFFFD(\uFFFD\uFFFD\u00E4");
}

TEST(UnicodeTest, UTF16AndBack) {
  const std::string text = "a\xC3\xA4\xE6\x97\xA5\xF0\x9F\x98\x80";
  const std::u16string units = u"a\u00E4\u65E5\U0001F600";
  EXPECT_EQ(utf16FromString(text), units);
  EXPECT_EQ(stringFromUTF16(units), text);
}

TEST(UnicodeTest, ALoneSurrogateIsNoText) {
  const char16_t high = 0xD83D;
  const char16_t low = 0xDE00;
  EXPECT_FALSE(stringFromUTF16(std::u16string{high}));
  EXPECT_FALSE(stringFromUTF16(std::u16string{low, high}));
  EXPECT_FALSE(stringFromUTF16(std::u16string{high, u'a'}));
}

}  // namespace
}  // namespace corvane
