// The process queries over a table that a test makes up, for what no real table shows.

#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/ProcessTable.h"
#include "process/NSProcessInfoZELAdditions.h"

namespace corvane {

namespace {

std::optional<std::vector<ProcessRecord>> table;

}  // namespace

std::optional<std::vector<ProcessRecord>> readProcessTable() {
  return table;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

TEST(ProcessTableStandInTest, UnreadableTableIsNoAnswer) {
  table = std::nullopt;
  EXPECT_EQ(identifiersForRunningProcessesNamed("a"), std::nullopt);
  EXPECT_FALSE(isProcessRunningWithName("a"));
  std::uint32_t user = 7;
  EXPECT_EQ(processNameForProcessID(1, &user), std::nullopt);
  EXPECT_EQ(user, 7U);
}

TEST(ProcessTableStandInTest, EmptyTableGivesAnEmptyList) {
  table.emplace();
  EXPECT_THAT(identifiersForRunningProcessesNamed("a"), Optional(IsEmpty()));
}

TEST(ProcessTableStandInTest, ListKeepsTheOrderAndLeavesOutWhatIsNotPositive) {
  table = {{9, "a", 0}, {0, "a", 0}, {-3, "a", 0}, {4, "b", 0}, {2, "a", 0}};
  EXPECT_THAT(identifiersForRunningProcessesNamed("a"), Optional(ElementsAre(9, 2)));
}

TEST(ProcessTableStandInTest, NameIsFoundForIdentifiersThatAreNotPositive) {
  table = {{5, "a", 1}, {0, "kernel", 2}, {0, "other", 3}};
  std::uint32_t user = 7;
  EXPECT_EQ(processNameForProcessID(0, &user), "kernel");
  EXPECT_EQ(user, 2U);
}

TEST(ProcessTableStandInTest, NamesAreComparedWholeUpToSixteen) {
  table = {{1, "abcdefghijklmnop", 0}, {2, "abc", 0}};
  EXPECT_THAT(identifiersForRunningProcessesNamed("abc"), Optional(ElementsAre(2)));
  EXPECT_THAT(identifiersForRunningProcessesNamed("abcdefghijklmnopqrs"), Optional(ElementsAre(1)));
  EXPECT_THAT(identifiersForRunningProcessesNamed("ab"), Optional(IsEmpty()));
}

}  // namespace
}  // namespace corvane
