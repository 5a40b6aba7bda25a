#include <chrono>
#include <csignal>
#include <random>

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/Preferences.h"
#include "tests/support/PreferencesTree.h"

namespace corvane {
namespace {

const std::string anyUser(kCFPreferencesAnyUser);

class PreferencesCrashTest : public PreferencesTree {
 protected:
  const Path file = sharedFolder() / (application + ".plist");
};

TEST_F(PreferencesCrashTest, KilledAtAnyInstantTheFileIsTheOldOrTheNewOne) {
  constexpr int rounds = 300;
  constexpr int otherKeys = 200;
  // The workers of a killed process are waited for here.
  ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  for (int i = 0; i < otherKeys; ++i) {
    CFPreferencesSetValue("other " + std::to_string(i), std::string(100, 'x'), application, anyUser,
                          std::string(kCFPreferencesAnyHost));
  }
  ASSERT_TRUE(set("counter", 0, anyUser));
  // Instants within the time that two sets take here.
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(set("counter", 1, anyUser));
  ASSERT_TRUE(set("counter", 0, anyUser));
  const std::chrono::microseconds two = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - start);

  std::mt19937 random(1);  // NOLINT: the same instants each time, as far as it goes
  std::uniform_int_distribution<unsigned> microseconds(0, static_cast<unsigned>(two.count()));
  std::int64_t before = 0;
  int changed = 0;
  for (int round = 0; round < rounds; ++round) {
    const pid_t writer = ::fork();
    if (writer == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::setpgid(0, 0);
      for (std::int64_t counter = before + 1;; ++counter) {
        if (!set("counter", counter, anyUser)) ::_exit(1);
      }
    }
    ::setpgid(writer, writer);
    ::usleep(microseconds(random));
    ASSERT_EQ(::kill(-writer, SIGKILL), 0);
    int status = 0;
    for (pid_t ended = 0; (ended = ::waitpid(-1, &status, 0)) > 0;) {
      EXPECT_TRUE(ended != writer || WIFSIGNALED(status)) << "a set failed";
    }

    const Dictionary preferences = preferencesIn(file);
    ASSERT_EQ(preferences.size(), otherKeys + 1U) << round;
    const std::int64_t after = preferences.find("counter")->number()->longLongValue();
    ASSERT_GE(after, before);
    changed += after > before ? 1 : 0;
    before = after;
  }
  // Some were killed before their first set was through, some after.
  EXPECT_GT(changed, 0);
  EXPECT_LT(changed, rounds);
  // What the last ones left behind is in nobody's way.
  EXPECT_TRUE(set("counter", 0, anyUser));
}

TEST_F(PreferencesCrashTest, WritersInFourProcessesLoseNothing) {
  constexpr int processes = 4;
  constexpr int sets = 50;
  for (int process = 0; process < processes; ++process) {
    if (::fork() != 0) continue;
    for (int i = 0; i < sets; ++i) {
      const std::string key = std::to_string(process) + "." + std::to_string(i);
      if (!set(key, i, anyUser)) ::_exit(1);
    }
    ::_exit(0);
  }
  // Meanwhile no reader sees half a file.
  for (int ended = 0; ended < processes;) {
    int status = 0;
    const pid_t child = ::waitpid(-1, &status, WNOHANG);
    if (child > 0) {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
      ++ended;
    }
    EXPECT_TRUE(!std::filesystem::exists(file) || !preferencesIn(file).empty());
  }
  const Dictionary preferences = preferencesIn(file);
  EXPECT_EQ(preferences.size(), static_cast<std::size_t>(processes * sets));
  for (int process = 0; process < processes; ++process) {
    for (int i = 0; i < sets; ++i) {
      const std::string key = std::to_string(process) + "." + std::to_string(i);
      const Value* value = preferences.find(key);
      ASSERT_NE(value, nullptr) << key;
      EXPECT_EQ(*value, Value(i));
    }
  }
}

}  // namespace
}  // namespace corvane
