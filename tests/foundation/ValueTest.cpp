#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "foundation/Value.h"

namespace corvane {
namespace {

TEST(NumberTest, BooleanIsNotTheIntegerOne) {
  EXPECT_TRUE(Number(true).isBoolean());
  EXPECT_FALSE(Number(1).isBoolean());
  EXPECT_NE(Number(true), Number(1));
}

TEST(NumberTest, IntegersAreEqualWhateverTheirSign) {
  EXPECT_EQ(Number(5U), Number(5));
  EXPECT_FALSE(Number(5U).isUnsigned());
  EXPECT_TRUE(Number(std::uint64_t{1} << 63U).isUnsigned());
  EXPECT_NE(Number(std::numeric_limits<std::uint64_t>::max()), Number(-1));
}

TEST(NumberTest, RealsAreEqualWhenTheyAreWrittenAlike) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NE(Number(-0.0), Number(0.0));
  EXPECT_EQ(Number(-0.0), Number(-0.0));
  EXPECT_EQ(Number(nan), Number(nan));
  EXPECT_NE(Number(1.0), Number(1));
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
  // The first ones out of range.
  EXPECT_EQ(Number(std::ldexp(1.0, 63)).longLongValue(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Number(std::ldexp(1.0, 64)).unsignedLongLongValue(),
            std::numeric_limits<std::uint64_t>::max());
}

TEST(DictionaryTest, OnlyATextIsTheTextOfAKey) {
  const Dictionary dictionary{{"name", "Ada"}, {"age", 36}};
  EXPECT_EQ(dictionary.text("name"), "Ada");
  EXPECT_EQ(dictionary.text("age"), std::nullopt);
  EXPECT_EQ(dictionary.text("other"), std::nullopt);
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

TEST(DictionaryTest, EqualityTellsKeysAndValuesApart) {
  EXPECT_NE((Dictionary{{"a", 1}, {"b", 2}}), (Dictionary{{"b", 1}, {"a", 2}}));
  EXPECT_NE((Dictionary{{"a", 1}, {"b", 2}}), (Dictionary{{"a", 1}, {"c", 2}}));
  EXPECT_NE((Dictionary{{"a", 1}}), (Dictionary{{"a", 1}, {"b", 2}}));
}

TEST(DictionaryTest, LargeOnesAreComparedInTimeInProportion) {
  // One by one these would take minutes.
  const int count = 500'000;
  Dictionary rising;
  Dictionary falling;
  for (int i = 0; i < count; ++i) {
    rising.append("key " + std::to_string(i), i);
    falling.append("key " + std::to_string(count - 1 - i), count - 1 - i);
  }
  EXPECT_TRUE(rising == falling);
  falling.set("key 0", 1);
  EXPECT_FALSE(rising == falling);
}

TEST(DictionaryTest, DeepOnesAreComparedInTimeInProportion) {
  Dictionary one{{"a", 1}, {"b", 2}};
  Dictionary other{{"b", 2}, {"a", 1}};
  for (int depth = 0; depth < 500; ++depth) {
    Dictionary outer{{"in", std::move(one)}, {"b", 2}};
    one = std::move(outer);
    Dictionary turned{{"b", 2}, {"in", std::move(other)}};
    other = std::move(turned);
  }
  EXPECT_TRUE(one == other);
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
