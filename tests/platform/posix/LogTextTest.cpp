#include <gtest/gtest.h>

#include "platform/posix/LogText.h"

namespace corvane {
namespace {

TEST(LogTextTest, WhatCanBeShownStaysAsItIs) {
  for (const char* text : {"", "plain \\ 'text'", "Löschen 删除 🗑", "\u00A0"}) {
    EXPECT_EQ(singleLine(text), text);
  }
}

TEST(LogTextTest, ControlCharactersAreWrittenOut) {
  EXPECT_EQ(singleLine("a\nb\x1b[31m\t\x7f"), "a\\x0ab\\x1b[31m\\x09\\x7f");
  EXPECT_EQ(singleLine(std::string_view("\0", 1)), "\\x00");
  EXPECT_EQ(singleLine("\u0080\u009b\u009f"), "\\xc2\\x80\\xc2\\x9b\\xc2\\x9f");
}

TEST(LogTextTest, WhatIsNotUTF8IsWrittenOut) {
  EXPECT_EQ(singleLine("a\xff"
                       "b\xc3"),
            "a\\xffb\\xc3");
  EXPECT_EQ(singleLine("\x9b"), "\\x9b");
  EXPECT_EQ(singleLine("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "a surrogate";
}

}  // namespace
}  // namespace corvane
