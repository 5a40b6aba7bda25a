#include <thread>

#include <gtest/gtest.h>

#include "platform/macos/preferences/PendingChanges.h"

namespace corvane {
namespace {

const PreferencesDomain domain{"com.corvane.test", "ada", "kCFPreferencesAnyHost"};
const PreferencesDomain other{"com.corvane.test", "bob", "kCFPreferencesAnyHost"};

TEST(PendingChangesTest, ChangesOfADomainAreTakenOnceInTheirOrder) {
  addPendingChange(domain, {"a", Value(1)});
  addPendingChange(other, {"a", Value(2)});
  addPendingChange(domain, {"a", std::nullopt});
  const auto changes = takePendingChanges(domain);
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_EQ(changes[0].value, Value(1));
  EXPECT_FALSE(changes[1].value);
  EXPECT_TRUE(takePendingChanges(domain).empty());
  EXPECT_EQ(takePendingChanges(other).size(), 1U);
}

TEST(PendingChangesTest, AThreadSeesNoChangesOfOthers) {
  addPendingChange(domain, {"a", Value("of the first")});
  std::thread([] {
    EXPECT_TRUE(takePendingChanges(domain).empty());
    addPendingChange(domain, {"a", Value("of the second, which ends with it")});
  }).join();
  const auto changes = takePendingChanges(domain);
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0].value, Value("of the first"));
}

}  // namespace
}  // namespace corvane
