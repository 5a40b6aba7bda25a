#include <cmath>
#include <limits>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/macos/values/Guarded.h"
#include "platform/macos/values/ObjectValue.h"
#include "tests/platform/macos/LivingObjects.h"

@interface NSNull : NSObject
@end

/// A text that has a character that no UTF-8 is for.
@interface UnwritableText : NSString
@end
@implementation UnwritableText
- (NSData*)dataUsingEncoding:(NSStringEncoding)__unused encoding {
  return nil;
}
@end

namespace corvane {
namespace {

class ObjectValuesTest : public WithoutLeftovers {};

std::optional<Value> thereAndBack(const Value& value) {
  @autoreleasepool {
    return valueFromObject(objectFromValue(value));
  }
}

bool hasObject(const Value& value) {
  @autoreleasepool {
    return objectFromValue(value) != nil;
  }
}

// `make` makes an object, which may be in pools.
template <typename Make>
std::optional<Value> valueOf(Make make) {
  @autoreleasepool {
    return valueFromObject(make());
  }
}

Data bytes(std::size_t count) {
  Data data(count);
  for (std::size_t i = 0; i < count; ++i) data[i] = static_cast<std::byte>(i % 251);
  return data;
}

TEST_F(ObjectValuesTest, EveryKindOfValueComesBackAsItWas) {
  const Value values[] = {"text",
                          "",
                          "\xc3\xa9t\xc3\xa9 \xf0\x9f\x98\x80",
                          std::string("a\0b", 3),
                          7,
                          -1,
                          0.5,
                          bytes(300),
                          Data{},
                          Date{-1.25},
                          Array{},
                          Array{"a", 1, Array{true}},
                          Dictionary{},
                          Dictionary{{"", "empty"}, {"key", Dictionary{{"inner", 2}}}},
                          Error("domain", -5)};
  for (const Value& value : values) {
    EXPECT_TRUE(thereAndBack(value) == value) << &value - values;
  }
}

TEST_F(ObjectValuesTest, TruthIsToldFromZeroAndOne) {
  for (const bool flag : {false, true}) {
    const auto back = thereAndBack(flag);
    ASSERT_TRUE(back && back->number() != nullptr);
    EXPECT_TRUE(back->number()->isBoolean());
    EXPECT_EQ(back->number()->boolValue(), flag);
  }
  for (const int number : {0, 1}) {
    const auto back = thereAndBack(number);
    ASSERT_TRUE(back && back->number() != nullptr);
    EXPECT_FALSE(back->number()->isBoolean());
    EXPECT_EQ(back->number()->longLongValue(), number);
  }
}

TEST_F(ObjectValuesTest, TheGreatestAndTheLeastNumbersComeBack) {
  const Value values[] = {std::numeric_limits<std::int64_t>::min(),
                          std::numeric_limits<std::int64_t>::max(),
                          std::numeric_limits<std::uint64_t>::max(),
                          std::uint64_t{1} << 63,
                          std::numeric_limits<double>::max(),
                          std::numeric_limits<double>::denorm_min(),
                          std::numeric_limits<double>::infinity(),
                          std::nan(""),
                          -0.0,
                          1.0};
  for (const Value& value : values) {
    EXPECT_TRUE(thereAndBack(value) == value) << &value - values;
  }
}

TEST_F(ObjectValuesTest, ErrorsInErrorsComeBack) {
  const Error innermost(NSPOSIXErrorDomain, 13, {{NSFilePathErrorKey, "/a/b"}});
  const Error inner("inner", 2, {{NSUnderlyingErrorKey, innermost}, {"list", Array{innermost}}});
  const Error outer("outer", std::numeric_limits<std::int64_t>::min(),
                    {{NSUnderlyingErrorKey, inner}});
  EXPECT_TRUE(thereAndBack(outer) == Value(outer));
}

TEST_F(ObjectValuesTest, NilIsNoValue) {
  EXPECT_EQ(valueFromObject(nil), std::nullopt);
  EXPECT_EQ(textFromObject(nil), std::nullopt);
  EXPECT_EQ(dataFromObject(nil), Data{});
}

TEST_F(ObjectValuesTest, WhatHoldsAnObjectOfAnotherClassIsNoValue) {
  EXPECT_EQ(valueOf([] { return [[NSNull alloc] init]; }), std::nullopt);
  EXPECT_EQ(valueOf([] {
              NSMutableArray* const list = [NSMutableArray array];
              [list addObject:@"text"];
              [list addObject:[[NSNull alloc] init]];
              return list;
            }),
            std::nullopt);
  EXPECT_EQ(valueOf([] {
              NSMutableDictionary* const inner = [NSMutableDictionary dictionary];
              [inner setObject:[[NSNull alloc] init] forKey:@"key"];
              NSMutableDictionary* const outer = [NSMutableDictionary dictionary];
              [outer setObject:inner forKey:@"key"];
              return outer;
            }),
            std::nullopt);
}

TEST_F(ObjectValuesTest, ADictionaryWithAKeyThatIsNoTextIsNoValue) {
  EXPECT_EQ(valueOf([] {
              NSMutableDictionary* const all = [NSMutableDictionary dictionary];
              [all setObject:@"text" forKey:[NSNumber numberWithLongLong:1]];
              return all;
            }),
            std::nullopt);
}

TEST_F(ObjectValuesTest, WhatIsNoValueIsLeftOutOfAnErrorsUserInformation) {
  const auto value = valueOf([] {
    NSMutableDictionary* const all = [NSMutableDictionary dictionary];
    [all setObject:@"kept" forKey:@"text"];
    [all setObject:[[NSNull alloc] init] forKey:@"null"];
    [all setObject:@"lost" forKey:[NSNumber numberWithLongLong:1]];
    [all setObject:[[UnwritableText alloc] init] forKey:@"unwritable"];
    return [NSError errorWithDomain:@"domain" code:3 userInfo:all];
  });
  EXPECT_TRUE(value == Value(Error("domain", 3, {{"text", "kept"}})));
}

TEST_F(ObjectValuesTest, AnErrorWithoutUserInformationHasNone) {
  const auto value = valueOf([] { return [NSError errorWithDomain:@"d" code:1 userInfo:nil]; });
  EXPECT_TRUE(value == Value(Error("d", 1)));
}

TEST_F(ObjectValuesTest, ATextThatUTF8CannotWriteIsNoValue) {
  EXPECT_EQ(valueOf([] { return [[UnwritableText alloc] init]; }), std::nullopt);
  EXPECT_EQ(valueOf([] {
              NSMutableDictionary* const all = [NSMutableDictionary dictionary];
              [all setObject:@"text" forKey:[[UnwritableText alloc] init]];
              return all;
            }),
            std::nullopt);
}

TEST_F(ObjectValuesTest, BytesThatAreNoUTF8MakeNoText) {
  for (const char* const text : {"\xff", "a\xc3", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
    EXPECT_FALSE(hasObject(text)) << text;
    EXPECT_FALSE(hasObject(Array{"fine", text}));
    EXPECT_FALSE(hasObject(Dictionary{{"fine", Array{text}}}));
    EXPECT_FALSE(hasObject(Dictionary{{text, "fine"}}));
  }
}

TEST_F(ObjectValuesTest, OfAnErrorBytesThatAreNoUTF8AreLeftOut) {
  const Error error("\xff", 4, {{"kept", "text"}, {"lost", "\xff"}, {"\xff", "lost"}});
  EXPECT_TRUE(thereAndBack(error) == Value(Error("", 4, {{"kept", "text"}})));
}

// `depth` collections in each other, of each kind by turns.
Value nested(int depth) {
  Value value = "innermost";
  for (int i = 0; i < depth; ++i) {
    switch (i % 3) {
      case 0:
        value = Array{value};
        break;
      case 1:
        value = Dictionary{{"key", value}};
        break;
      default:
        value = Error("domain", i, {{"key", value}});
    }
  }
  return value;
}

TEST_F(ObjectValuesTest, AsDeepAsMessagesMayBeItComesBack) {
  EXPECT_TRUE(thereAndBack(nested(32)) == nested(32));
}

TEST_F(ObjectValuesTest, DeeperItIsNoValue) {
  Value list = "innermost";
  for (int i = 0; i < 33; ++i) list = Array{list};
  EXPECT_EQ(thereAndBack(list), std::nullopt);
  for (int i = 0; i < 5000; ++i) list = Array{list};
  EXPECT_EQ(thereAndBack(list), std::nullopt);
}

TEST_F(ObjectValuesTest, AHundredMegabytesOfBytesComeBack) {
  const Value value = bytes(100'000'000);
  EXPECT_TRUE(thereAndBack(value) == value);
}

TEST_F(ObjectValuesTest, AnExceptionOfTheSystemsBecomesOneOfOurs) {
  try {
    guarded([] { [[NSMutableArray array] objectAtIndex:3]; });
    FAIL() << "nothing was raised";
  } catch (const Exception& exception) {
    EXPECT_EQ(exception.name(), "NSRangeException");
    EXPECT_EQ(exception.reason(), "there are 0 objects and none at 3");
  }
}

TEST_F(ObjectValuesTest, AnExceptionOfOursPassesAsItIs) {
  EXPECT_THROW(guarded([]() -> int {
                 NSMutableArray* const list = [NSMutableArray array];
                 [list addObject:@"text"];
                 throw std::invalid_argument("ours");
               }),
               std::invalid_argument);
}

TEST_F(ObjectValuesTest, WhatIsGuardedHandsItsResultOut) {
  EXPECT_EQ(guarded([] { return textFromObject(@"constant"); }), "constant");
}

}  // namespace
}  // namespace corvane
