#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "platform/posix/InstallationLock.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class InstallationLockTest : public testing::Test {
 protected:
  static void expectNoWait(std::int32_t holder) { ADD_FAILURE() << "waits for " << holder; }

  TemporaryFolder folder;
  std::string path = folder.path("lock");
};

TEST_F(InstallationLockTest, OnlyRootCanOpenItsFileWhichIsGoneAfterwards) {
  {
    InstallationLock lock(path);
    ASSERT_TRUE(lock.take(0ms, &expectNoWait));
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & ALLPERMS, 0600U);
  }
  EXPECT_FALSE(exists(path));
}

TEST_F(InstallationLockTest, WhoDoesNotGetItInTimeIsToldWhoHasIt) {
  InstallationLock first(path);
  ASSERT_TRUE(first.take(0ms, &expectNoWait));
  InstallationLock second(path);
  std::vector<std::int32_t> told;
  const auto taken = second.take(120ms, [&](std::int32_t holder) { told.push_back(holder); });
  ASSERT_FALSE(taken);
  EXPECT_TRUE(isPOSIXError(taken.error(), POSIXErrorCode::TimedOut));
  EXPECT_THAT(taken.error().localizedDescription(),
              HasSubstr("process " + std::to_string(::getpid()) + " is installing"));
  EXPECT_EQ(told, std::vector<std::int32_t>{::getpid()}) << "once, however long it waits";
  EXPECT_TRUE(exists(path)) << "it is still the other's";
}

TEST_F(InstallationLockTest, WhoWaitsGetsItAfterTheOther) {
  auto first = std::make_unique<InstallationLock>(path);
  ASSERT_TRUE(first->take(0ms, &expectNoWait));
  InstallationLock second(path);
  EXPECT_TRUE(second.take(1h, [&](std::int32_t) { first.reset(); }));
  EXPECT_TRUE(exists(path));
}

TEST_F(InstallationLockTest, WhatAProcessThatWasKilledLeftIsInNobodysWay) {
  writeFile(path, "4000000000");
  InstallationLock lock(path);
  EXPECT_TRUE(lock.take(0ms, &expectNoWait));
  EXPECT_EQ(contentOf(path), std::to_string(::getpid()));
}

TEST_F(InstallationLockTest, ALinkInItsPlaceIsNotFollowed) {
  folder.makeLink("lock", folder.path("elsewhere"));
  InstallationLock lock(path);
  EXPECT_FALSE(lock.take(0ms, &expectNoWait));
  EXPECT_FALSE(exists(folder.path("elsewhere")));
}

}  // namespace
}  // namespace corvane
