#include <algorithm>
#include <climits>

#include <gtest/gtest.h>

#include "foundation/Unicode.h"
#include "platform/linux/authorization/DialogText.h"

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
