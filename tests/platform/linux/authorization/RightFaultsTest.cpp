#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Authorization.h"
#include "platform/RightFaults.h"
#include "tests/platform/linux/authorization/AuthorizationFolder.h"
#include "tests/support/Files.h"

namespace corvane {

using Kind = RightFault::Kind;

bool operator==(const RightFault& one, const RightFault& other) {
  return one.kind == other.kind && one.right == other.right && one.path == other.path &&
         one.description == other.description;
}

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string right = "com.corvane.test.faults";
const std::string sentence = "The sentence";

class RightFaultsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root changes rights";
    ASSERT_EQ(AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &root), 0);
    fs::create_directories(actions);
    define();
  }
  void TearDown() override {
    if (root == nullptr) return;
    fs::remove_all(actions);
    fs::remove_all(rights);
    AuthorizationFree(root, kAuthorizationFlagDefaults);
  }

  void define(const std::string& rule = "default") const {
    EXPECT_EQ(AuthorizationRightSet(root, right.c_str(), rule, sentence, ""), 0);
  }
  static std::vector<RightFault> faults() { return faultsOfRight(right, "default", sentence, ""); }

  const std::string actions = authorizationFolder().path("actions");
  const std::string rights = authorizationFolder().path("rights");
  const std::string action = actions + "/" + right + ".policy";
  const std::string twin = rights + "/" + right + ".plist";
  AuthorizationRef root = nullptr;
};

TEST_F(RightFaultsTest, OneThatIsAsItIsDefinedHasNone) {
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(RightFaultsTest, EachPlaceItIsMissingFromIsNamed) {
  fs::remove(action);
  EXPECT_THAT(faults(), ElementsAre(RightFault{Kind::Missing, right, action, "is missing"}));
  fs::remove(twin);
  EXPECT_THAT(faults(), ElementsAre(RightFault{Kind::Missing, right, twin, "is missing"},
                                    RightFault{Kind::Missing, right, action, "is missing"}));
}

TEST_F(RightFaultsTest, WithoutPolkitItHasNoAction) {
  fs::remove_all(actions);
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(RightFaultsTest, WhatDefinesNothingIsDamaged) {
  for (const std::string& path : {action, twin}) {
    writeFile(path, "<damaged");
    EXPECT_THAT(faults(), ElementsAre(RightFault{Kind::Damaged, right, path, "is damaged"}));
    define();
  }
}

TEST_F(RightFaultsTest, WhatOthersCanChangeIsUnsafe) {
  for (const std::string& path : {action, twin}) {
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
    EXPECT_THAT(faults(), ElementsAre(RightFault{Kind::Unsafe, right, path,
                                                 "can be changed by others than root"}));
    define();
  }
  ASSERT_EQ(::chmod(actions.c_str(), 0777), 0);
  EXPECT_THAT(faults(), ElementsAre(RightFault{Kind::Unsafe, right, actions,
                                               "can be changed by others than root"}));
}

TEST_F(RightFaultsTest, AChangedAnswerIsNamedInTheWordsOfItsFile) {
  define("allow");
  EXPECT_THAT(faults(),
              ElementsAre(RightFault{Kind::Changed, right, twin,
                                     "differs from what is shipped: it says 'allow' instead of "
                                     "'default'"},
                          RightFault{Kind::Changed, right, action,
                                     "differs from what is shipped: it says 'yes' instead of "
                                     "'auth_admin_keep'"}));
}

TEST_F(RightFaultsTest, AnyOtherChangeIsSeenAsWell) {
  // Of what is answered to those who are not at the machine, and are not who is usually asked.
  std::string text = contentOf(action);
  const std::string before = "<allow_any>auth_admin_keep";
  text.replace(text.find(before), before.size(), "<allow_any>yes");
  writeFile(action, text);
  EXPECT_THAT(faults(), ElementsAre(RightFault{Kind::Changed, right, action,
                                               "differs from what is shipped"}));
}

TEST_F(RightFaultsTest, DefiningItAnewMendsIt) {
  writeFile(action, "<damaged", 0666);
  fs::remove(twin);
  define();
  EXPECT_THAT(faults(), IsEmpty());
}

}  // namespace
}  // namespace corvane
