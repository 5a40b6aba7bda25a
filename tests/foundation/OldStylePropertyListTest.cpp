#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/PropertyList.h"

namespace corvane {
namespace {

using testing::HasSubstr;

Result<PropertyList> read(std::string_view text) {
  return readPropertyList(std::as_bytes(std::span(text)));
}

std::optional<Value> value(std::string_view text) {
  const auto list = read(text);
  if (!list) return std::nullopt;
  EXPECT_EQ(list->format, PropertyListFormat::OldStyle);
  return list->root;
}

std::string failure(std::string_view text) {
  const auto list = read(text);
  return list ? "" : list.error().localizedDescription();
}

std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  for (std::size_t i = 0; i < count; ++i) result += text;
  return result;
}

TEST(OldStylePropertyListTest, PlainStringsNeedNoQuotes) {
  EXPECT_EQ(value("hello"), Value("hello"));
  EXPECT_EQ(value("  /usr/local:$HOME/a_b-c.d  \n"), Value("/usr/local:$HOME/a_b-c.d"));
  EXPECT_EQ(value("42"), Value("42"));
}

TEST(OldStylePropertyListTest, QuotedStringsHaveEscapes) {
  EXPECT_EQ(value(R"("a \"b\" 'c' \\ \n\t\a\b\f\r\v\101\0 \U00e4 \Ud83d\ude00" )"),
            std::nullopt);  // the mark of a unit is a capital U
  EXPECT_EQ(value(R"("a \"b\" 'c' \\ \n\t\a\b\f\r\v\101\0 \U00e4 \Ud83d\Ude00" )"),
            Value(std::string("a \"b\" 'c' \\ \n\t\a\b\f\r\v"
                              "A\0 \xC3\xA4 \xF0\x9F\x98\x80",
                              29)));
  EXPECT_EQ(value(R"("\/ \U41 \Ue4x \341 \200|\375 \12")"),
            Value("/ A \xC3\xA4x \xC3\x86 \xC2\xA0|\xC3\xBF \n"));
  EXPECT_EQ(value("'it\\'s \"so\"'"), Value("it's \"so\""));
  EXPECT_EQ(value("\"one\\\ntwo\nthree\""), Value("one\ntwo\nthree"));
  EXPECT_EQ(value("\"\""), Value(""));
  EXPECT_EQ(value("\"\xE6\x97\xA5\xE6\x9C\xAC\""), Value("\xE6\x97\xA5\xE6\x9C\xAC"));
}

TEST(OldStylePropertyListTest, DataStandsInAngleBrackets) {
  EXPECT_EQ(value("<00ff 7F\n a0>"), Value(dataFromString(std::string_view("\0\xFF\x7F\xA0", 4))));
  EXPECT_EQ(value("<>"), Value(Data()));
  EXPECT_EQ(value("( <da> )"), Value(Array{dataFromString("\xDA")}));
}

TEST(OldStylePropertyListTest, ArraysAndDictionariesNest) {
  EXPECT_EQ(value("(a, \"b c\", (), {}, { k = (1,); \"x y\" = <01>; })"),
            Value(Array{"a", "b c", Array{}, Dictionary{},
                        Dictionary{{"k", Array{"1"}}, {"x y", dataFromString("\1")}}}));
}

TEST(OldStylePropertyListTest, EntriesWithoutBracesAreADictionary) {
  EXPECT_EQ(value("/* A table. */\n\"Key one\" = \"Value\"; // end\nplain=word;\n"),
            Value(Dictionary{{"Key one", "Value"}, {"plain", "word"}}));
}

TEST(OldStylePropertyListTest, AnEntryMayBeItsOwnValue) {
  EXPECT_EQ(value("one; \"t w o\" ;\nthree = 3;"),
            Value(Dictionary{{"one", "one"}, {"t w o", "t w o"}, {"three", "3"}}));
  EXPECT_EQ(value("{ a; b = (c); }"), Value(Dictionary{{"a", "a"}, {"b", Array{"c"}}}));
  EXPECT_THAT(failure("a; a = 2;"), HasSubstr("the key \"a\" occurs twice"));
}

TEST(OldStylePropertyListTest, ATableMayBeEmpty) {
  for (const char* text : {"", " \n", "// nothing", "/* no\nthing */\n", "\xEF\xBB\xBF"}) {
    EXPECT_EQ(value(text), Value(Dictionary())) << text;
  }
}

TEST(OldStylePropertyListTest, UTF16WithAByteOrderMarkIsRead) {
  const std::u16string text = u"\"a\u00E4\U0001F600\" = \"\u65E5\";";
  std::string big = "\xFE\xFF";
  std::string little = "\xFF\xFE";
  for (const char16_t unit : text) {
    const char high = static_cast<char>(unit >> 8);
    const char low = static_cast<char>(unit & 0xFF);
    big += {high, low};
    little += {low, high};
  }
  const Value expected = Dictionary{{"a\xC3\xA4\xF0\x9F\x98\x80", "\xE6\x97\xA5"}};
  EXPECT_EQ(value(big), expected);
  EXPECT_EQ(value(little), expected);
  EXPECT_EQ(value("\xEF\xBB\xBFkey = value;"), Value(Dictionary{{"key", "value"}}));
  EXPECT_NE(failure(big + "x"), "");
}

TEST(OldStylePropertyListTest, WhatIsDamagedIsAnError) {
  for (const char* text :
       {"/* open",  "a b",         "\"open",      "\"\\",      "\"\\q\"",       "\"\\U\"",
        "\"\\Ux\"", "\"\\Ud83d\"", "\"\\Ude00\"", "\"\\376\"", "\"\\777\"",     "<0>",
        "<0x>",     "<00",         "(",           "(a b)",     "(a,,b)",        "(,)",
        "(a",       "{",           "{a}",         "{a=;}",     "{a=b}",         "{a=b;",
        "{a=b;c}",  "{a=b; a=c;}", "a = b",       "a = b; c",  "(a) = b;",      "<00> = b;",
        "\xC3\xA4", "\"\xFF\"",    "a,b",         "*",         "a = b; a = b;", ")",
        "}",        ";",           "{(a)=b;}"}) {
    EXPECT_NE(failure(text), "") << text;
  }
}

TEST(OldStylePropertyListTest, TheErrorTellsTheLineAndTheReason) {
  EXPECT_EQ(failure("{\n  a = b;\n  c = d\n}"), "Line 4: an entry lacks \";\".");
  EXPECT_THAT(failure("a = 1; a = 2;"), HasSubstr("the key \"a\" occurs twice"));
}

TEST(OldStylePropertyListTest, ValuesNestedDeeplyAreAnError) {
  EXPECT_THAT(failure(repeated("(", 100'000)), HasSubstr("nested too deeply"));
  EXPECT_THAT(failure(repeated("{a=", 100'000)), HasSubstr("nested too deeply"));
  EXPECT_NE(
      value(repeated("(", propertyListMaximumDepth) + repeated(")", propertyListMaximumDepth)),
      std::nullopt);
}

TEST(OldStylePropertyListTest, TooManyBytesOrValuesAreAnError) {
  EXPECT_THAT(failure("\"" + std::string(std::size_t{100} << 20U, 'a') + "\""),
              HasSubstr("too large"));
  EXPECT_THAT(failure("(" + repeated("a,", propertyListMaximumValues) + ")"),
              HasSubstr("too many values"));
  EXPECT_NE(value("(" + repeated("a,", propertyListMaximumValues - 1) + ")"), std::nullopt);
  std::string text = "\xFF\xFE\"";
  text += std::string("\0", 1) + repeated("\xE5\x65", propertyListMaximumBytes / 3 + 1);
  EXPECT_THAT(failure(text + std::string("\"\0", 2)), HasSubstr("too large"));
}

TEST(OldStylePropertyListTest, ATableCountsItsValuesAsADictionaryDoes) {
  for (const char* entry : {"=a;", ";"}) {
    std::string text;
    for (std::size_t i = 0; i < propertyListMaximumValues - 1; ++i) {
      text += "k" + std::to_string(i) + entry;
    }
    EXPECT_NE(value(text), std::nullopt);
    EXPECT_THAT(failure(text + "one=more;"), HasSubstr("too many values"));
    EXPECT_THAT(failure(text + "more;"), HasSubstr("too many values"));
  }
  const std::string deep =
      repeated("(", propertyListMaximumDepth - 1) + repeated(")", propertyListMaximumDepth - 1);
  EXPECT_NE(value("a = " + deep + ";"), std::nullopt);
  EXPECT_THAT(failure("a = (" + deep + ");"), HasSubstr("nested too deeply"));
}

}  // namespace
}  // namespace corvane
