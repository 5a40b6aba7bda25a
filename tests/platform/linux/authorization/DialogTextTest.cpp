#include <algorithm>
#include <climits>

#include <gtest/gtest.h>

#include "foundation/Unicode.h"
#include "platform/linux/authorization/polkit/DialogText.h"

namespace corvane {
namespace {

std::size_t characterCount(std::string_view text) {
  std::size_t count = 0;
  while (!text.empty() && takeUTF8Character(text)) ++count;
  EXPECT_TRUE(text.empty()) << "not UTF-8";
  return count;
}

TEST(DialogTextTest, PlainTextIsKept) {
  for (const char* text :
       {"Vantor möchte 3 Dateien löschen.", "删除文件？", "🗑 10% (a/b) 'c' \"d\""}) {
    EXPECT_EQ(dialogText(text), text);
  }
}

TEST(DialogTextTest, MarkupLosesItsMeaningAndKeepsItsLook) {
  EXPECT_EQ(dialogText("<b>a</b> & $(user)"), "‹b›a‹/b› ＆ ＄(user)");
  EXPECT_EQ(dialogText("&lt;i&gt;"), "＆lt;i＆gt;");
}

TEST(DialogTextTest, ControlCharactersBecomeOneSpace) {
  EXPECT_EQ(dialogText("a\n\n\r\t b\x1b[31mc\x07"), "a b [31mc");
  EXPECT_EQ(dialogText(std::string("a\0b", 3)), "a b");
  EXPECT_EQ(dialogText("a\u0085\u2028\u2029\u009bb"), "a b");
  EXPECT_EQ(dialogText("  a  "), "a");
}

TEST(DialogTextTest, WhatReordersOrHidesTextIsRemoved) {
  EXPECT_EQ(dialogText("a\u202Eb\u2066c\u200B\uFEFF\u00ADd\U000E0041"), "abcd");
}

TEST(DialogTextTest, EveryFormattingCharacterIsRemoved) {
  struct Range {
    char32_t first;
    char32_t last;
  };
  // Those of Unicode's category Cf, whose neighbours are none but where it says so.
  constexpr Range ranges[] = {{0xAD, 0xAD},       {0x600, 0x605},     {0x61C, 0x61C},
                              {0x6DD, 0x6DD},     {0x70F, 0x70F},     {0x890, 0x891},
                              {0x8E2, 0x8E2},     {0x180E, 0x180E},   {0x200B, 0x200F},
                              {0x202A, 0x202E},   {0x2060, 0x2064},   {0x2066, 0x206F},
                              {0xFEFF, 0xFEFF},   {0xFFF9, 0xFFFB},   {0x110BD, 0x110BD},
                              {0x110CD, 0x110CD}, {0x13430, 0x13438}, {0x1BCA0, 0x1BCA3},
                              {0x1D173, 0x1D17A}, {0xE0001, 0xE0001}, {0xE0020, 0xE007F}};
  for (const auto& [first, last] : ranges) {
    for (char32_t character = first; character <= last; ++character) {
      std::string text = "a";
      appendUTF8(text, character);
      EXPECT_EQ(dialogText(text + "b"), "ab") << std::hex << std::uint32_t{character};
    }
  }
  for (const char32_t visible :
       {0x5FFU,   0x606U,   0x6DCU,   0x6DEU,   0x70EU,   0x710U,   0x88FU,
        0x892U,   0x8E1U,   0x8E3U,   0x110BCU, 0x110BEU, 0x110CCU, 0x110CEU,
        0x1342FU, 0x13439U, 0x1BC9FU, 0x1BCA4U, 0x1D172U, 0x1D17BU}) {
    std::string text;
    appendUTF8(text, visible);
    EXPECT_EQ(dialogText(text), text) << std::hex << std::uint32_t{visible};
  }
  EXPECT_EQ(dialogText("a\u1680b"), "a b");
}

TEST(DialogTextTest, NothingVisibleIsEmpty) {
  EXPECT_EQ(dialogText(""), "");
  EXPECT_EQ(dialogText(" \n\u200B\u3000"), "");
}

TEST(DialogTextTest, BrokenUTF8IsReplaced) {
  EXPECT_EQ(dialogText("a\xff\xc3"
                       "b\xe2\x82"),
            "a\uFFFD\uFFFDb\uFFFD\uFFFD");
}

TEST(DialogTextTest, LengthIsBounded) {
  EXPECT_EQ(dialogText(std::string(dialogTextLimit - 1, 'a')),
            std::string(dialogTextLimit - 1, 'a'));
  const std::string text = dialogText(std::string(1 << 20, 'a'));
  EXPECT_EQ(text, std::string(dialogTextLimit - 1, 'a') + "…");
  std::string wide;
  for (int i = 0; i < 100'000; ++i) wide += "ä 🗑";
  EXPECT_LE(characterCount(dialogText(wide)), dialogTextLimit);
}

TEST(DialogIconTest, PathsAndNamesAreKeptAsTheyAre) {
  for (const char* icon : {"", "/usr/share/icons/Ä b.png", "edit-delete", "/no/such/file"}) {
    EXPECT_EQ(dialogIcon(icon), icon);
  }
}

TEST(DialogIconTest, AnythingElseIsNoIcon) {
  for (const std::string& icon :
       {std::string("/a\nb"), std::string("/<b>"), std::string("/a\xff"), std::string("/a\u202Eb"),
        std::string(PATH_MAX, 'a'), std::string("/a\0b", 4)}) {
    EXPECT_EQ(dialogIcon(icon), "");
  }
}

}  // namespace
}  // namespace corvane
