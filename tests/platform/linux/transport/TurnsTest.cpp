#include <array>
#include <chrono>
#include <future>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "platform/linux/transport/Turns.h"

namespace corvane {
namespace {

constexpr uid_t account = 1000;
constexpr uid_t otherAccount = 1001;

// What waits for a turn on a thread of its own; ready once it has had it.
std::future<void> waiting(Turns& turns, uid_t ofAccount) {
  return std::async(std::launch::async,
                    [&turns, ofAccount] { const Turns::Turn turn(turns, ofAccount); });
}

bool isWaiting(const std::future<void>& turn) {
  return turn.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout;
}

// Turns that do not go by.
class LastingTurnsTest : public testing::Test {
 protected:
  Turns turns{std::chrono::hours(1)};
  std::optional<Turns::Turn> first{std::in_place, turns, account};
  std::optional<Turns::Turn> second{std::in_place, turns, account};
};

TEST_F(LastingTurnsTest, AConnectionWaitsWhileTwoOfItsAccountAreAtIt) {
  const auto third = waiting(turns, account);
  EXPECT_TRUE(isWaiting(third));
  second.reset();
  third.wait();
}

TEST_F(LastingTurnsTest, AllThatWaitHaveTheirTurnOnceOneIsGivenBack) {
  std::array<std::future<void>, 20> all;
  for (auto& one : all) one = waiting(turns, account);
  first.reset();
  for (const auto& one : all) one.wait();
}

TEST_F(LastingTurnsTest, AnotherAccountDoesNotWait) {
  const Turns::Turn other(turns, otherAccount);
}

TEST_F(LastingTurnsTest, RootDoesNotWait) {
  std::vector<std::optional<Turns::Turn>> all(10);
  for (auto& one : all) one.emplace(turns, 0);
}

TEST_F(LastingTurnsTest, AnAccountBeginsAnewWhenAllHaveGivenTheirsBack) {
  first.reset();
  second.reset();
  first.emplace(turns, account);
  second.emplace(turns, account);
  const auto third = waiting(turns, account);
  EXPECT_TRUE(isWaiting(third));
  first.reset();
  third.wait();
}

TEST(TurnsTest, WhatTakesLongKeepsNobodyWaiting) {
  Turns turns(std::chrono::milliseconds(1));
  const Turns::Turn first(turns, account);
  const Turns::Turn second(turns, account);
  std::array<std::future<void>, 20> all;
  for (auto& one : all) one = waiting(turns, account);
  for (const auto& one : all) one.wait();
}

}  // namespace
}  // namespace corvane
