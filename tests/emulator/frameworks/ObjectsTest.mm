#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/macos/frameworks/Foundation.h"
#include "tests/platform/macos/LivingObjects.h"

// The runtime, without the compiler between.
extern "C" {
void objc_release(void* object);
}

@interface Base : NSObject
@property(copy) NSString* (^block)(void);
@property(weak) id other;
- (int)number;
@end
@implementation Base {
  int _number;
}
- (instancetype)init {
  self = [super init];
  if (self != nil) _number = 1;
  return self;
}
- (int)number {
  return _number;
}
@end

@interface Derived : Base
- (double)half:(double)value plus:(int)a and:(int)b and:(int)c and:(int)d and:(int)e;
@end
@implementation Derived {
  int _number;
}
- (instancetype)init {
  self = [super init];
  if (self != nil) _number = 2;
  return self;
}
- (int)number {
  return [super number] + 10 * _number;
}
- (double)half:(double)value plus:(int)a and:(int)b and:(int)c and:(int)d and:(int)e {
  return value / 2 + a + b + c + d + e;
}
@end

namespace corvane {
namespace {

class EmulatedObjectsTest : public WithoutLeftovers {};

TEST_F(EmulatedObjectsTest, AMessageGetsToTheMethodOfTheClassAndToThatOfItsParent) {
  @autoreleasepool {
    EXPECT_EQ([[[Base alloc] init] number], 1);
    EXPECT_EQ([[[Derived alloc] init] number], 21);
    EXPECT_EQ(([[[Derived alloc] init] half:1 plus:1 and:2 and:3 and:4 and:5]), 15.5);
  }
}

TEST_F(EmulatedObjectsTest, NilAnswersNothing) {
  Derived* const nobody = nil;
  EXPECT_EQ([nobody number], 0);
  EXPECT_EQ(([nobody half:1 plus:1 and:2 and:3 and:4 and:5]), 0);
}

TEST_F(EmulatedObjectsTest, AWeakReferenceEndsWithItsObject) {
  @autoreleasepool {
    Base* const holder = [[Base alloc] init];
    @autoreleasepool {
      Base* const held = [[Base alloc] init];
      holder.other = held;
      EXPECT_EQ(holder.other, held);
    }
    EXPECT_EQ(holder.other, nil);
  }
}

TEST_F(EmulatedObjectsTest, ABlockKeepsWhatItUses) {
  @autoreleasepool {
    Base* const holder = [[Base alloc] init];
    @autoreleasepool {
      NSString* const text = [[NSString alloc] initWithBytes:"abc"
                                                      length:3
                                                    encoding:NSUTF8StringEncoding];
      holder.block = ^{
        return text;
      };
    }
    EXPECT_TRUE([holder.block() isEqual:@"abc"]);
  }
}

TEST_F(EmulatedObjectsTest, WhatIsKeptInACircleIsCounted) {
  const std::int64_t before = emulator_living_objects();
  Base* holder = nil;
  @autoreleasepool {
    holder = [[Base alloc] init];
    Base* const circle = holder;
    holder.block = ^{
      return circle != nil ? @"there" : @"gone";
    };
  }
  EXPECT_EQ(emulator_living_objects(), before + 2);
  @autoreleasepool {
    holder.block = nil;
    holder = nil;
  }
  EXPECT_EQ(emulator_living_objects(), before);
}

using EmulatorDeathTest = EmulatedObjectsTest;

TEST_F(EmulatorDeathTest, AnObjectThatIsReleasedTwiceEndsTheProcess) {
  EXPECT_EXIT(
      {
        void* const object = (__bridge_retained void*)[[Base alloc] init];
        objc_release(object);
        objc_release(object);
      },
      testing::ExitedWithCode(126), "an object is used after its end: Base");
}

TEST_F(EmulatorDeathTest, AMessageToAnObjectAfterItsEndEndsTheProcess) {
  EXPECT_EXIT(
      {
        __unsafe_unretained Base* gone = nil;
        @autoreleasepool {
          Base* const there = [[Base alloc] init];
          gone = there;
        }
        [gone number];
      },
      testing::ExitedWithCode(126), "an object is used after its end: Base");
}

TEST_F(EmulatorDeathTest, AMessageThatAClassHasNotEndsTheProcess) {
  EXPECT_EXIT([(id)[[Base alloc] init] objectAtIndex:0], testing::ExitedWithCode(126),
              "-Base has no objectAtIndex:");
}

}  // namespace
}  // namespace corvane
