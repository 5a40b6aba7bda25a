#include <gtest/gtest.h>

#include "foundation/AuthorizationState.h"

namespace corvane {
namespace {

TEST(AuthorizationStateTest, EachIsFoundByItsName) {
  for (const AuthorizationState state :
       {AuthorizationState::Granted, AuthorizationState::Challenge, AuthorizationState::Denied,
        AuthorizationState::Unavailable}) {
    EXPECT_EQ(authorizationStateNamed(nameOf(state)), state);
  }
  EXPECT_EQ(authorizationStateNamed("challenge"), AuthorizationState::Challenge);
}

TEST(AuthorizationStateTest, NoOtherNameIsOne) {
  EXPECT_EQ(authorizationStateNamed(""), std::nullopt);
  EXPECT_EQ(authorizationStateNamed("Granted"), std::nullopt);
}

}  // namespace
}  // namespace corvane
