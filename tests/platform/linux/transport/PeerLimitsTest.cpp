#include <algorithm>
#include <deque>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/linux/transport/PeerLimits.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class AccountsTest : public testing::Test {
 protected:
  AccountsTest() {
    writeFile(users, "root:x:0:0::/root:/bin/sh\none:x:1000:1000::/home/one:/bin/sh\n");
  }

  TemporaryFolder folder;
  const std::string subordinates = folder.path("subuid");
  const std::string users = folder.path("passwd");
  Accounts accounts{subordinates, users};
};

TEST_F(AccountsTest, WithoutRangesUsersAreThemselves) {
  for (const uid_t user : {0U, 1U, 1000U, 100000U, 4294967295U}) {
    EXPECT_EQ(accounts.accountOf(user), user);
  }
}

TEST_F(AccountsTest, SubordinateUsersAreTheirOwners) {
  writeFile(subordinates, "one:100000:65536\n2000:200000:2\n");
  for (const uid_t user : {1000U, 100000U, 165535U}) EXPECT_EQ(accounts.accountOf(user), 1000U);
  for (const uid_t user : {99999U, 165536U, 200002U}) EXPECT_EQ(accounts.accountOf(user), user);
  for (const uid_t user : {200000U, 200001U}) EXPECT_EQ(accounts.accountOf(user), 2000U);
}

TEST_F(AccountsTest, AnOwnerThatIsNotKnownIsTheFirstOfItsRange) {
  writeFile(subordinates, "elsewhere:300000:10\n");
  EXPECT_EQ(accounts.accountOf(300009), 300000U);
}

TEST_F(AccountsTest, NobodyBecomesRootAndRootNobody) {
  writeFile(subordinates, "root:100000:65536\none:0:10\n");
  EXPECT_EQ(accounts.accountOf(100001), 100001U);
  EXPECT_EQ(accounts.accountOf(0), 0U);
}

TEST_F(AccountsTest, AChangedFileIsReadAnew) {
  EXPECT_EQ(accounts.accountOf(100001), 100001U);
  writeFile(subordinates, "one:100000:10\n");
  EXPECT_EQ(accounts.accountOf(100001), 1000U);
  writeFile(subordinates, "2000:100000:100\n");
  EXPECT_EQ(accounts.accountOf(100001), 2000U);
  ASSERT_EQ(::unlink(subordinates.c_str()), 0);
  EXPECT_EQ(accounts.accountOf(100001), 100001U);
}

TEST_F(AccountsTest, WhatIsNoRangeIsPassedOver) {
  writeFile(subordinates,
            "\n::\none\none:\none:1\none:100:0\none:-5:10\none:4294967290:100\none:1x:5\n"
            "one:99999999999:5\none:7:\n#one:8:1\none:4294967294:2");
  for (const uid_t user : {1U, 5U, 7U, 8U, 100U, 4294967290U}) {
    EXPECT_EQ(accounts.accountOf(user) == 1000, false) << user;
  }
  EXPECT_EQ(accounts.accountOf(4294967295U), 1000U);
}

TEST_F(AccountsTest, AFileWithoutEndIsReadToABound) {
  std::string ranges;
  for (int i = 0; i < 50000; ++i) ranges += "one:100000:65536 is not a range\n";
  writeFile(subordinates, ranges + "one:100000:65536\n");
  EXPECT_EQ(accounts.accountOf(100000), 100000U);
}

class PeerLimitsTest : public AccountsTest {
 protected:
  using Share = PeerLimits::Share;

  PeerLimitsTest() { writeFile(subordinates, "one:100000:65536\n"); }

  // How many of `count` connections of `user` are taken.
  int connect(uid_t user, int count) {
    int taken = 0;
    for (int i = 0; i < count; ++i) taken += shares.emplace_back(limits, user).takeConnection();
    return taken;
  }

  // Has accounts take all connections but those reserved for who has few.
  void connectCrowd() {
    uid_t user = 500;
    int left = maximumConnections - reservedConnections;
    for (; left > 0; left -= maximumConnectionsPerUser) {
      connect(user++, std::min(left, maximumConnectionsPerUser));
    }
  }

  const std::shared_ptr<PeerLimits> limits = std::make_shared<PeerLimits>(subordinates, users);
  std::deque<Share> shares;
};

TEST_F(PeerLimitsTest, AnAccountHasItsConnectionsTogetherWithItsSubordinateUsers) {
  EXPECT_EQ(connect(1000, 28), 28);
  for (uid_t user = 100000; user < 100100; ++user) EXPECT_EQ(connect(user, 1), 1);
  EXPECT_EQ(connect(1000, 1) + connect(100200, 1), 0);
  EXPECT_EQ(connect(1001, 1), 1);
  shares.pop_front();
  EXPECT_EQ(connect(165535, 2), 1);
}

TEST_F(PeerLimitsTest, TheLastConnectionsAreForWhoHasFew) {
  connectCrowd();
  EXPECT_EQ(connect(500, 1), 0);
  EXPECT_EQ(connect(2000, 2 * fewConnections), fewConnections);
  int taken = 0;
  for (uid_t user = 3000; user < 4000; ++user) taken += connect(user, 1);
  EXPECT_EQ(taken, reservedConnections - fewConnections);
  EXPECT_EQ(connect(5000, 1), 0);
  EXPECT_EQ(connect(0, 3000), 3000);
}

TEST_F(PeerLimitsTest, WhatWasTakenIsGivenBack) {
  connectCrowd();
  shares.clear();
  EXPECT_EQ(connect(1000, 200), maximumConnectionsPerUser);
}

TEST_F(PeerLimitsTest, MemoryThatWasTakenIsGivenBack) {
  // More often than it fits into what the account may hold, and all together.
  constexpr auto often = 2 * maximumMessageBytes / maximumMessageBytesPerUser;
  for (std::size_t i = 0; i < often; ++i) {
    EXPECT_TRUE(Share(limits, 1000).takeMessage(maximumMessageBytesPerUser)) << i;
  }
}

TEST_F(PeerLimitsTest, MessagesAndWhatTheyAreTurnedIntoCountForTheAccount) {
  Share one(limits, 1000);
  Share other(limits, 100000);
  Share third(limits, 2000);
  constexpr std::size_t half = maximumMessageBytesPerUser / 2;
  EXPECT_TRUE(one.takeMessage(1));
  EXPECT_TRUE(one.takeMore(half - 1));
  EXPECT_TRUE(other.takeMessage(half));
  EXPECT_FALSE(one.takeMore(1));
  EXPECT_FALSE(Share(limits, 1000).takeMessage(1));
  EXPECT_TRUE(third.takeMessage(maximumMessageBytesPerUser));
  EXPECT_TRUE(one.takeMessage(0));
  EXPECT_TRUE(other.takeMore(half));
}

TEST_F(PeerLimitsTest, TheLastMemoryIsForWhoHoldsLittle) {
  constexpr std::size_t all = maximumMessageBytes - reservedMessageBytes;
  std::size_t left = all;
  for (uid_t user = 500; left > 0; ++user) {
    const std::size_t part = std::min(left, maximumMessageBytesPerUser);
    EXPECT_TRUE(shares.emplace_back(limits, user).takeMessage(part));
    left -= part;
  }
  Share one(limits, 1000);
  EXPECT_FALSE(one.takeMessage(fewMessageBytes + 1));
  EXPECT_TRUE(one.takeMessage(fewMessageBytes));
  EXPECT_FALSE(one.takeMore(1));
  EXPECT_TRUE(Share(limits, 0).takeMessage(2 * maximumMessageBytes));
}

}  // namespace
}  // namespace corvane
