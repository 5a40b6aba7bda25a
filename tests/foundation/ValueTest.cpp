#include <limits>

#include <gtest/gtest.h>

#include "foundation/Value.h"

namespace corvane {
namespace {

TEST(NumberTest, BooleanIsNotTheIntegerOne) {
  EXPECT_TRUE(Number(true).isBoolean());
  EXPECT_FALSE(Number(1).isBoolean());
  EXPECT_NE(Number(true), Number(1));
}

TEST(NumberTest, IntValueTakesTheLowThirtyTwoBits) {
  EXPECT_EQ(Number(std::int64_t{0x100000005}).intValue(), 5);
  EXPECT_EQ(Number(-1).intValue(), -1);
  EXPECT_EQ(Number(std::numeric_limits<std::uint64_t>::max()).intValue(), -1);
}

TEST(NumberTest, DoublesAreTruncatedAndHeldToTheRange) {
  EXPECT_EQ(Number(2.9).longLongValue(), 2);
  EXPECT_EQ(Number(-2.9).longLongValue(), -2);
  EXPECT_EQ(Number(1e300).longLongValue(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Number(-1e300).longLongValue(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Number(std::numeric_limits<double>::quiet_NaN()).longLongValue(), 0);
}

TEST(DictionaryTest, KeepsTheOrderOfItsKeys) {
  Dictionary dictionary{{"b", 1}, {"a", 2}};
  dictionary.set("c", 3);
  dictionary.set("b", 4);
  std::string keys;
  for (const auto& [key, value] : dictionary) keys += key;
  EXPECT_EQ(keys, "bac");
  EXPECT_EQ(*dictionary.find("b"), Value(4));
}

TEST(DictionaryTest, EqualityIgnoresOrder) {
  EXPECT_EQ((Dictionary{{"a", 1}, {"b", "x"}}), (Dictionary{{"b", "x"}, {"a", 1}}));
  EXPECT_NE((Dictionary{{"a", 1}}), (Dictionary{{"a", 2}}));
}

TEST(DictionaryTest, RemovingAnAbsentKeyChangesNothing) {
  Dictionary dictionary{{"a", 1}};
  EXPECT_FALSE(dictionary.remove("b"));
  EXPECT_TRUE(dictionary.remove("a"));
  EXPECT_TRUE(dictionary.empty());
}

TEST(ValueTest, EachKindAnswersOnlyToItself) {
  const Value text("x");
  EXPECT_NE(text.string(), nullptr);
  EXPECT_EQ(text.number(), nullptr);
  EXPECT_STREQ(text.className(), "string");
  EXPECT_STREQ(Value(Data()).className(), "data");
  EXPECT_STREQ(Value(Dictionary()).className(), "dictionary");
}

}  // namespace
}  // namespace corvane
