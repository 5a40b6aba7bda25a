#include <csignal>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/AbandonedChildren.h"

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

TEST(AbandonedChildrenTest, ThereMayBeOnlySoManyUntilOneEnds) {
  AbandonedChildren abandoned;
  std::vector<pid_t> children;
  for (std::size_t i = 0; i < AbandonedChildren::most; ++i) {
    EXPECT_TRUE(abandoned.collect()) << i;
    children.push_back(startChild());
    ASSERT_GT(children.back(), 0);
    abandoned.add(children.back());
  }
  EXPECT_FALSE(abandoned.collect());
  end(children.back());
  EXPECT_TRUE(abandoned.collect());
  for (const pid_t child : children) ::kill(child, SIGKILL);
  for (const pid_t child : children) ::waitpid(child, nullptr, 0);
}

TEST(AbandonedChildrenTest, WhatHasEndedIsCollected) {
  AbandonedChildren abandoned;
  const pid_t child = startChild();
  ASSERT_GT(child, 0);
  abandoned.add(child);
  end(child);
  EXPECT_TRUE(abandoned.collect());
  EXPECT_EQ(::waitpid(child, nullptr, 0), -1);
}

}  // namespace
}  // namespace corvane
