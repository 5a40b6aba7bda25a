#include <csignal>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/processes/AbandonedChildren.h"

namespace corvane {
namespace {

pid_t startChild() {
  const pid_t child = ::fork();
  if (child == 0) {
    for (;;) ::pause();
  }
  return child;
}

// Waits for the end, but leaves the child to be collected.
void end(pid_t child) {
  ::kill(child, SIGKILL);
  siginfo_t info{};
  ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
}

/// Children that only the test ends.
class AbandonedChildrenTest : public testing::Test {
 protected:
  ~AbandonedChildrenTest() override {
    for (const pid_t child : _children) ::kill(child, SIGKILL);
    for (const pid_t child : _children) ::waitpid(child, nullptr, 0);
  }

  pid_t abandonChildOf(uid_t user) {
    _children.push_back(startChild());
    EXPECT_GT(_children.back(), 0);
    abandoned.add(_children.back(), user);
    return _children.back();
  }

  AbandonedChildren abandoned{2, 3};

 private:
  std::vector<pid_t> _children;
};

TEST_F(AbandonedChildrenTest, AUserMayHaveOnlySoManyUntilOneEnds) {
  for (const uid_t user : {1000U, 0U}) {
    EXPECT_TRUE(abandoned.mayStart(user));
    abandonChildOf(user);
    EXPECT_TRUE(abandoned.mayStart(user));
    const pid_t last = abandonChildOf(user);
    EXPECT_FALSE(abandoned.mayStart(user));
    EXPECT_TRUE(abandoned.mayStart(1001));
    end(last);
    EXPECT_TRUE(abandoned.mayStart(user));
  }
}

TEST_F(AbandonedChildrenTest, AllButRootMayHaveOnlySoManyUntilOneEnds) {
  abandonChildOf(0);
  abandonChildOf(1000);
  abandonChildOf(1001);
  EXPECT_TRUE(abandoned.mayStart(1003));
  const pid_t last = abandonChildOf(1002);
  EXPECT_FALSE(abandoned.mayStart(1003));
  EXPECT_TRUE(abandoned.mayStart(0));
  end(last);
  EXPECT_TRUE(abandoned.mayStart(1003));
}

TEST_F(AbandonedChildrenTest, WhatHasEndedIsCollected) {
  const pid_t child = abandonChildOf(1000);
  end(child);
  EXPECT_TRUE(abandoned.mayStart(1000));
  EXPECT_EQ(::waitpid(child, nullptr, 0), -1);
}

TEST_F(AbandonedChildrenTest, AChildThatCanBeKilledIsNotLeft) {
  for (int i = 0; i < 5; ++i) {
    const pid_t child = startChild();
    ASSERT_GT(child, 0);
    EXPECT_TRUE(abandoned.end(child, 1000));
    EXPECT_EQ(::waitpid(child, nullptr, 0), -1);
  }
  EXPECT_TRUE(abandoned.mayStart(1000));
}

}  // namespace
}  // namespace corvane
