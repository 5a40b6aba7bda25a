#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include <gtest/gtest.h>

#include "foundation/POSIXError.h"
#include "foundation/Result.h"
#include "foundation/Value.h"

namespace corvane {
namespace {

const Error gone = posixError(POSIXErrorCode::NoEntry);

TEST(ResultTest, ASuccessHoldsItsValue) {
  const Result<std::string> result = "made";
  ASSERT_TRUE(result);
  EXPECT_EQ(*result, "made");
  EXPECT_EQ(result->size(), 4U);
}

TEST(ResultTest, AFailureHoldsItsReason) {
  const Result<std::string> result = gone;
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error(), gone);
}

TEST(ResultTest, WhatIsNotThereIsNeverHandedOut) {
  const Result<std::string> made = "made";
  const Result<std::string> failed = gone;
  EXPECT_THROW((void)made.error(), std::bad_variant_access);
  EXPECT_THROW((void)*failed, std::bad_variant_access);
  EXPECT_THROW((void)failed->size(), std::bad_variant_access);
  EXPECT_THROW((void)Result<void>().error(), std::bad_optional_access);
}

TEST(ResultTest, AnErrorIsAFailureEvenWhereItCouldBeAValue) {
  EXPECT_FALSE(Result<Value>(gone));
  Error changeable = gone;
  EXPECT_FALSE(Result<Value>(changeable));
  EXPECT_FALSE(Result<Value>(std::move(changeable)));
  const Result<Value> value = Value(gone);
  ASSERT_TRUE(value);
  EXPECT_EQ(*value->error(), gone);
}

TEST(ResultTest, AbsenceIsNoFailure) {
  const Result<std::optional<std::string>> absent = std::nullopt;
  ASSERT_TRUE(absent);
  EXPECT_EQ(*absent, std::nullopt);
}

TEST(ResultTest, ValuesAreMovedInAndOut) {
  auto number = std::make_unique<int>(7);
  const int* const place = number.get();
  Result<std::unique_ptr<int>> result = std::move(number);
  const Result<std::unique_ptr<int>> moved = std::move(result);
  EXPECT_EQ(moved->get(), place);
  const std::unique_ptr<int> taken = *Result<std::unique_ptr<int>>(std::make_unique<int>(8));
  EXPECT_EQ(*taken, 8);
}

TEST(ResultTest, AResultIsCopiedAndReplacedAsAWhole) {
  Result<std::string> result = gone;
  const Result<std::string> failed = result;
  result = "made";
  ASSERT_TRUE(result);
  EXPECT_EQ(*result, "made");
  EXPECT_EQ(failed.error(), gone);
}

TEST(ResultTest, WithoutAValueThereIsSuccessOrTheReason) {
  EXPECT_TRUE(Result<void>());
  const Result<void> failed = gone;
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error(), gone);
}

TEST(ResultTest, TheReasonMayBeOfATypeOfItsOwn) {
  enum class Absence { Away, Dead };
  const Result<int, Absence> failed = Absence::Dead;
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error(), Absence::Dead);
  EXPECT_EQ((*Result<int, Absence>(3)), 3);
  EXPECT_FALSE((Result<void, Absence>(Absence::Away)));
}

}  // namespace
}  // namespace corvane
