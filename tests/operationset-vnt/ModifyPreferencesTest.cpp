#include <array>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "foundation/PropertyList.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/Preferences.h"
#include "tests/support/PreferencesTree.h"

namespace corvane {
namespace {

const std::string anyUser(kCFPreferencesAnyUser);
const std::string currentUser(kCFPreferencesCurrentUser);
const std::string anyHost(kCFPreferencesAnyHost);
const std::string currentHost(kCFPreferencesCurrentHost);

class ModifyPreferencesTest : public PreferencesTree {
 protected:
  /// Carries the operation out the way the dispatcher does.
  static std::optional<Error> modify(const std::string& key, const std::string& application,
                                     const std::string& user, const std::string& host,
                                     const std::string& value) {
    ZELPrivilegedOperationSet& set = ZELPrivilegedOperationSetVNT::privilegedOperationSet();
    const auto selector = set.selectorForExecutionOfPrivilegedOperationWithCode(1, false);
    EXPECT_EQ(selector, "performOperationModifyPreferencesWithArguments:");
    return set.performSelector(*selector, Array{key, application, user, host, value}, nullptr, {});
  }
  static std::optional<Error> modify(const std::string& key, const std::string& value) {
    return modify(key, application, currentUser, anyHost, value);
  }
  static std::optional<Value> current(const std::string& key) { return get(key, currentUser); }

  /// The operation fails with EINVAL and the reader's error in it, and touches nothing.
  static void expectUnreadable(const std::string& value) {
    const std::string before = inventory();
    const std::optional<Error> error = modify("key", value);
    ASSERT_TRUE(error) << value.substr(0, 80);
    EXPECT_TRUE(isPOSIXError(*error, POSIXErrorCode::Invalid));
    EXPECT_EQ(error->userInfo().size(), 1U);
    const Value* underlying = error->userInfo().find(NSUnderlyingErrorKey);
    ASSERT_NE(underlying, nullptr);
    EXPECT_TRUE(underlying->error()->is(NSCocoaErrorDomain, NSPropertyListReadCorruptError));
    EXPECT_NE(underlying->error()->localizedDescription(), "");
    EXPECT_EQ(inventory(), before);
  }
};

TEST_F(ModifyPreferencesTest, EveryKindOfValueIsSet) {
  const std::vector<std::pair<std::string, Value>> cases = {
      {"<string>text</string>", "text"},
      {"<integer>18446744073709551615</integer>", std::uint64_t{18446744073709551615U}},
      {"<real>1.5</real>", 1.5},
      {"<true/>", true},
      {"<date>2001-01-01T00:00:00Z</date>", Date{0}},
      {"<data>/w==</data>", dataFromString("\xFF")},
      {"<array><string/></array>", Array{""}},
      {"<plist version=\"1.0\"><dict><key>\xC3\xA4</key><true/></dict></plist>",
       Dictionary{{"\xC3\xA4", true}}},
      {"plain", "plain"},
      {"\"quoted \\\"text\\\"\"", "quoted \"text\""},
      {"<00ff>", dataFromString(std::string_view("\0\xFF", 2))},
      {"(a, {b = c;})", Array{"a", Dictionary{{"b", "c"}}}},
      {"a = b;", Dictionary{{"a", "b"}}},
      {" ", Dictionary()},
  };
  for (const auto& [text, value] : cases) {
    EXPECT_EQ(modify("key", text), std::nullopt) << text;
    EXPECT_EQ(current("key"), value) << text;
  }
}

TEST_F(ModifyPreferencesTest, AKeyIsPassedOnUnchanged) {
  ASSERT_EQ(modify("a/../b c", "value"), std::nullopt);
  EXPECT_EQ(current("a/../b c"), Value("value"));
}

TEST_F(ModifyPreferencesTest, TheEmptyValueRemovesTheKey) {
  ASSERT_EQ(modify("key", "value"), std::nullopt);
  ASSERT_EQ(modify("other", "value"), std::nullopt);
  EXPECT_EQ(modify("key", ""), std::nullopt);
  EXPECT_EQ(current("key"), std::nullopt);
  EXPECT_EQ(current("other"), Value("value"));
  EXPECT_EQ(modify("key", ""), std::nullopt);
}

TEST_F(ModifyPreferencesTest, AnEmptyNameIsInvalidWhateverTheValue) {
  const std::string before = inventory();
  for (const char* value : {"", "value", "(unreadable"}) {
    for (int empty = 0; empty < 4; ++empty) {
      std::vector<std::string> names = {"key", application, currentUser, anyHost};
      names[static_cast<std::size_t>(empty)] = "";
      EXPECT_EQ(modify(names[0], names[1], names[2], names[3], value),
                posixError(POSIXErrorCode::Invalid))
          << empty << value;
    }
  }
  EXPECT_EQ(inventory(), before);
}

TEST_F(ModifyPreferencesTest, AnUnreadableValueIsInvalidAndTouchesNothing) {
  ASSERT_EQ(modify("key", "value"), std::nullopt);
  const auto repeated = [](std::string_view text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i) result += text;
    return result;
  };
  expectUnreadable("(open");
  expectUnreadable("<plist>");
  expectUnreadable("<integer>many</integer>");
  expectUnreadable("bplist00");
  expectUnreadable("\"\xFF\"");
  expectUnreadable("<string>\xC0\xAF</string>");
  expectUnreadable(repeated("<array>", 100'000) + repeated("</array>", 100'000));
  expectUnreadable(repeated("(", 100'000));
  expectUnreadable("<string>" + std::string(std::size_t{100} << 20U, 'a') + "</string>");
}

TEST_F(ModifyPreferencesTest, TheTextOfTheGlobalDomainMeansAllApplications) {
  ASSERT_EQ(modify("key", "NSGlobalDomain", currentUser, anyHost, "value"), std::nullopt);
  EXPECT_EQ(preferencesIn(ownFolder() / ".GlobalPreferences.plist"),
            (Dictionary{{"key", "value"}}));
  EXPECT_FALSE(std::filesystem::exists(ownFolder() / "NSGlobalDomain.plist"));
}

TEST_F(ModifyPreferencesTest, TheCurrentUserIsTheDaemonsOwn) {
  ASSERT_EQ(modify("key", application, currentUser, currentHost, "value"), std::nullopt);
  EXPECT_EQ(preferencesIn(ownFolder() / "ByHost" / hostFileName(application)),
            (Dictionary{{"key", "value"}}));
}

TEST_F(ModifyPreferencesTest, NamesArePassedOnAsTheyAre) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  otherHome();
  ASSERT_EQ(modify("key", application, "nobody", anyHost, "value"), std::nullopt);
  EXPECT_EQ(preferencesIn(otherFolder() / (application + ".plist")),
            (Dictionary{{"key", "value"}}));
}

TEST_F(ModifyPreferencesTest, AFailedSynchronisationIsTheWriteError) {
  const Error expected(
      "com.corvane.error.privileged-operation", 7,
      Dictionary{
          {"NSLocalizedDescription", "A preference setting could not be updated successfully."},
          {"NSLocalizedRecoverySuggestion",
           "The operating system was unable to change a preference setting. Please ensure "
           "to authenticate as administrator."}});
  const std::string before = inventory();
  EXPECT_EQ(modify("key", application, "no-such-user", anyHost, "value"), expected);
  EXPECT_EQ(modify("key", application, currentUser, "no-such-host", "value"), expected);
  EXPECT_EQ(modify("key", "../escape", currentUser, anyHost, "value"), expected);
  EXPECT_EQ(modify("key", "a/b", currentUser, anyHost, ""), expected);
  EXPECT_EQ(modify("a\x01", "value"), expected);
  // A constant in the place of another is a name like any other.
  EXPECT_EQ(modify("key", application, anyHost, anyHost, "value"), expected);
  EXPECT_EQ(inventory(), before);
}

TEST_F(ModifyPreferencesTest, RequestsAtTheSameTimeEndEachWithItsOwnOutcome) {
  ZELPrivilegedOperationSetVNT::privilegedOperationSet();
  std::array<std::thread, 4> threads;
  for (std::size_t thread = 0; thread < threads.size(); ++thread) {
    threads[thread] = std::thread([thread] {
      for (int i = 0; i < 10; ++i) {
        const std::string name = std::to_string(thread) + "." + std::to_string(i);
        EXPECT_EQ(modify("good " + name, "value"), std::nullopt);
        EXPECT_TRUE(modify("bad\x01" + name, "value"));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(preferencesIn(ownFolder() / (application + ".plist")).size(), 40U);
}

}  // namespace
}  // namespace corvane
