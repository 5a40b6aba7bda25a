#include <deque>
#include <optional>

#include <gtest/gtest.h>

#include "platform/linux/authorization/polkit/OpenDialogs.h"
#include "platform/linux/transport/SubordinateUsers.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

// Numbers that are in nobody's range and no user's.
constexpr uid_t user = 4'000'000'000;
constexpr uid_t other = 4'000'000'001;

TEST(OpenDialogsTest, EachUserHasSoManyPlaces) {
  OpenDialogs dialogs;
  std::deque<OpenDialogs::Place> places;
  for (int count = 0; count < OpenDialogs::mostOfOneUser; ++count) {
    EXPECT_TRUE(places.emplace_back(dialogs, user).isTaken());
  }
  EXPECT_FALSE(OpenDialogs::Place(dialogs, user).isTaken());
  EXPECT_TRUE(OpenDialogs::Place(dialogs, other).isTaken());
  places.pop_front();
  EXPECT_TRUE(OpenDialogs::Place(dialogs, user).isTaken());
  EXPECT_TRUE(OpenDialogs::Place(dialogs, user).isTaken()) << "the one before was given back";
  places.emplace_back(dialogs, user);
  EXPECT_FALSE(OpenDialogs::Place(dialogs, user).isTaken())
      << "what was not taken is not given back";
  EXPECT_FALSE(OpenDialogs::Place(dialogs, user).isTaken());
}

TEST(OpenDialogsTest, RootIsNotLimited) {
  OpenDialogs dialogs;
  std::deque<OpenDialogs::Place> places;
  for (int count = 0; count < 3 * OpenDialogs::mostOfOneUser; ++count) {
    EXPECT_TRUE(places.emplace_back(dialogs, 0).isTaken());
  }
}

TEST(SubordinateUsersTest, AUserOfARangeIsItsOwner) {
  const TemporaryFolder folder;
  const std::string file = folder.path("subuid");
  writeFile(file,
            "# ranges\nnobody:100000:65536\n\n4000000000:200000:2\nbroken:x:1\n300000:5\n"
            "root:400000:10\nno-such-user:500000:10\n");
  EXPECT_EQ(ownerOfSubordinateUser(99999, file), 99999U);
  EXPECT_EQ(ownerOfSubordinateUser(100000, file), 65534U);
  EXPECT_EQ(ownerOfSubordinateUser(165535, file), 65534U);
  EXPECT_EQ(ownerOfSubordinateUser(165536, file), 165536U);
  EXPECT_EQ(ownerOfSubordinateUser(200001, file), user);
  EXPECT_EQ(ownerOfSubordinateUser(200002, file), 200002U);
  EXPECT_EQ(ownerOfSubordinateUser(400000, file), 400000U) << "root's containers are not root";
  EXPECT_EQ(ownerOfSubordinateUser(500000, file), 500000U);
  EXPECT_EQ(ownerOfSubordinateUser(0, file), 0U);
  EXPECT_EQ(ownerOfSubordinateUser(100000, folder.path("none")), 100000U);
}

}  // namespace
}  // namespace corvane
