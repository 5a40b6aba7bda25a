#include <gtest/gtest.h>

#include "client/Ending.h"
#include "foundation/POSIXError.h"
#include "platform/AuthorizationStatus.h"

namespace corvane {
namespace {

using Ending = PrivilegedHelperClient::Ending;
using Outcome = PrivilegedHelperClient::Outcome;

AuthorizationDialogs nobody() {
  return AuthorizationDialogs::Nobody;
}
AuthorizationDialogs noAuthority() {
  return AuthorizationDialogs::NoAuthority;
}
AuthorizationDialogs notToBeLookedAt() {
  ADD_FAILURE() << "the system is looked at for nothing";
  return AuthorizationDialogs::Nobody;
}

Ending endingOfError(const Error& error, std::optional<bool> wasAuthorized,
                     bool wasCancelRequested = false) {
  return endingOf(
      Outcome{
          .error = error, .wasAuthorized = wasAuthorized, .wasCancelRequested = wasCancelRequested},
      &notToBeLookedAt);
}

TEST(EndingTest, WhatSucceededIsDoneEvenIfItWasToBeCancelled) {
  EXPECT_EQ(endingOf(Outcome(), &notToBeLookedAt), Ending::Done);
  EXPECT_EQ(endingOf(Outcome{.wasCancelRequested = true}, &notToBeLookedAt), Ending::Done);
}

TEST(EndingTest, ARefusalIsToldFromWhatTheOperationItselfMayNot) {
  const Error notPermitted = posixError(POSIXErrorCode::NotPermitted);
  EXPECT_EQ(endingOfError(notPermitted, false), Ending::Denied);
  EXPECT_EQ(endingOfError(notPermitted, std::nullopt), Ending::Denied);
  EXPECT_EQ(endingOfError(notPermitted, true), Ending::Failed);
}

TEST(EndingTest, ADialogThatWasClosedIsToldFromACancel) {
  const Error cancelled = posixError(POSIXErrorCode::Canceled);
  EXPECT_EQ(endingOfError(cancelled, false), Ending::Dismissed);
  EXPECT_EQ(endingOfError(cancelled, false, true), Ending::Cancelled);
  EXPECT_EQ(endingOfError(cancelled, std::nullopt, true), Ending::Cancelled);
  EXPECT_EQ(endingOfError(cancelled, true), Ending::Cancelled) << "another process cancelled it";
}

TEST(EndingTest, NobodyWhoCanBeAskedIsToldFromNoAuthority) {
  const Outcome outcome{.error =
                            Error(NSOSStatusErrorDomain, errAuthorizationInteractionNotAllowed)};
  EXPECT_EQ(endingOf(outcome, &nobody), Ending::NobodyToAsk);
  EXPECT_EQ(endingOf(outcome, &noAuthority), Ending::NoAuthority);
}

TEST(EndingTest, WhatIsLeftHasFailed) {
  EXPECT_EQ(endingOfError(posixError(POSIXErrorCode::NoEntry), true), Ending::Failed);
  EXPECT_EQ(endingOfError(posixError(POSIXErrorCode::Invalid), std::nullopt), Ending::Failed);
  EXPECT_EQ(endingOfError(Error(NSOSStatusErrorDomain, errAuthorizationInternal), false),
            Ending::Failed);
  EXPECT_EQ(endingOfError(Error("another", 1), true), Ending::Failed);
}

}  // namespace
}  // namespace corvane
