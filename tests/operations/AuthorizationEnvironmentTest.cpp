#include <cstring>
#include <memory>

#include <gtest/gtest.h>

#include "operations/ZELPrivilegedOperationSet.h"

namespace corvane {
namespace {

using Text = std::optional<std::string>;

struct Free {
  void operator()(AuthorizationEnvironment* environment) const {
    ZELPrivilegedOperationSet::freeAuthorizationEnvironment(environment);
  }
};

std::unique_ptr<AuthorizationEnvironment, Free> makeEnvironment(const Text& prompt,
                                                                const Text& iconPath) {
  return std::unique_ptr<AuthorizationEnvironment, Free>(
      ZELPrivilegedOperationSet::createAuthorizationEnvironmentForRightPrompt(prompt, iconPath));
}

void expectItem(const AuthorizationItem& item, const char* name, const std::string& text) {
  EXPECT_STREQ(item.name, name);
  ASSERT_EQ(item.valueLength, text.size() + 1) << "the terminating zero byte counts";
  EXPECT_EQ(std::memcmp(item.value, text.c_str(), text.size() + 1), 0);
  EXPECT_EQ(item.flags, 0U);
}

TEST(AuthorizationEnvironmentTest, HasNoItemsWithoutTexts) {
  for (const Text& absent : {Text(), Text("")}) {
    const auto environment = makeEnvironment(absent, absent);
    ASSERT_NE(environment, nullptr);
    EXPECT_EQ(environment->count, 0U);
    EXPECT_EQ(environment->items, nullptr);
  }
}

TEST(AuthorizationEnvironmentTest, PromptOfSixLettersIsSevenBytesLong) {
  const auto environment = makeEnvironment("letter", std::nullopt);
  ASSERT_EQ(environment->count, 1U);
  EXPECT_EQ(environment->items[0].valueLength, 7U);
  expectItem(environment->items[0], "prompt", "letter");
}

TEST(AuthorizationEnvironmentTest, IconAloneIsTheFirstItem) {
  for (const Text& absent : {Text(), Text("")}) {
    const auto environment = makeEnvironment(absent, "/icons/a.png");
    ASSERT_EQ(environment->count, 1U);
    expectItem(environment->items[0], "icon", "/icons/a.png");
  }
}

TEST(AuthorizationEnvironmentTest, PromptComesBeforeTheIcon) {
  const auto environment = makeEnvironment("Löschen?", "/icons/ä.png");
  ASSERT_EQ(environment->count, 2U);
  expectItem(environment->items[0], "prompt", "Löschen?");
  expectItem(environment->items[1], "icon", "/icons/ä.png");
}

TEST(AuthorizationEnvironmentTest, ValuesArePrivateCopies) {
  Text prompt = "letter";
  const auto environment = makeEnvironment(prompt, std::nullopt);
  EXPECT_NE(environment->items[0].value, prompt->data());
  prompt->assign("xxxxxx");
  expectItem(environment->items[0], "prompt", "letter");
}

TEST(AuthorizationEnvironmentTest, FreeingNothingIsAllowed) {
  ZELPrivilegedOperationSet::freeAuthorizationEnvironment(nullptr);
}

// Memory leaks and invalid frees show in the sanitizer builds.
TEST(AuthorizationEnvironmentTest, FreeingSkipsNullValues) {
  AuthorizationEnvironment* environment = makeEnvironment("letter", "/icons/a.png").release();
  delete[] static_cast<char*>(environment->items[0].value);
  environment->items[0].value = nullptr;
  ZELPrivilegedOperationSet::freeAuthorizationEnvironment(environment);
}

}  // namespace
}  // namespace corvane
