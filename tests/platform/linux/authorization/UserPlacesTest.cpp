#include <deque>
#include <optional>

#include <gtest/gtest.h>

#include "platform/linux/authorization/polkit/UserPlaces.h"

namespace corvane {
namespace {

// Numbers that are in nobody's range and no user's.
constexpr uid_t user = 4'000'000'000;
constexpr uid_t other = 4'000'000'001;
constexpr int most = 4;

TEST(UserPlacesTest, EachUserHasSoManyPlaces) {
  UserPlaces userPlaces(most);
  std::deque<UserPlaces::Place> places;
  for (int count = 0; count < most; ++count) {
    EXPECT_TRUE(places.emplace_back(userPlaces, user).isTaken());
  }
  EXPECT_FALSE(UserPlaces::Place(userPlaces, user).isTaken());
  EXPECT_TRUE(UserPlaces::Place(userPlaces, other).isTaken());
  places.pop_front();
  EXPECT_TRUE(UserPlaces::Place(userPlaces, user).isTaken());
  EXPECT_TRUE(UserPlaces::Place(userPlaces, user).isTaken()) << "the one before was given back";
  places.emplace_back(userPlaces, user);
  EXPECT_FALSE(UserPlaces::Place(userPlaces, user).isTaken())
      << "what was not taken is not given back";
  EXPECT_FALSE(UserPlaces::Place(userPlaces, user).isTaken());
}

TEST(UserPlacesTest, WhoGetsNoneMayTryAgain) {
  UserPlaces userPlaces(1);
  std::optional<UserPlaces::Place> first;
  first.emplace(userPlaces, user);
  UserPlaces::Place second(userPlaces, user);
  EXPECT_FALSE(second.take());
  first.reset();
  EXPECT_TRUE(second.take());
  EXPECT_TRUE(second.take()) << "it has one already";
  EXPECT_FALSE(UserPlaces::Place(userPlaces, user).isTaken());
}

TEST(UserPlacesTest, RootIsNotLimited) {
  UserPlaces userPlaces(most);
  std::deque<UserPlaces::Place> places;
  for (int count = 0; count < 3 * most; ++count) {
    EXPECT_TRUE(places.emplace_back(userPlaces, 0).isTaken());
  }
}

}  // namespace
}  // namespace corvane
