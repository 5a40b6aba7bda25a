#include <filesystem>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/linux/authorization/EmbeddedAuthority.h"
#include "tests/platform/linux/authorization/Answers.h"
#include "tests/platform/linux/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

const std::string rightName = "com.corvane.test.right";
constexpr ProcessIdentity root{1, 0, 1};
constexpr ProcessIdentity ordinary{1, someUser, 1};

class EmbeddedAuthorityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "definitions are root's own";
  }

  std::optional<Decision> decide(const ProcessIdentity& subject) {
    return said(authority.decide(subject, {rightName, "", "", true}));
  }
  void define(const std::string& rule) {
    ASSERT_TRUE(authority.rightSet(rightName, {rule, "", ""}));
  }

  const TemporaryFolder folder;
  const std::string file = folder.path("rights/" + rightName + ".plist");
  EmbeddedAuthority authority{folder.path("rights")};
};

TEST_F(EmbeddedAuthorityTest, AllowIsYesForEveryone) {
  define("allow");
  EXPECT_EQ(decide(root), Decision::Granted);
  EXPECT_EQ(decide(ordinary), Decision::Granted);
}

TEST_F(EmbeddedAuthorityTest, AnyOtherRuleIsYesForRootAlone) {
  for (const char* rule : {"default", "authenticate-admin", "Allow", "allow "}) {
    define(rule);
    EXPECT_EQ(decide(root), Decision::Granted);
    EXPECT_EQ(decide(ordinary), Decision::DialogNeeded) << rule;
  }
}

TEST_F(EmbeddedAuthorityTest, AnUndefinedRightIsRootsAlone) {
  EXPECT_EQ(decide(root), Decision::Granted);
  EXPECT_EQ(decide(ordinary), Decision::DialogNeeded);
}

TEST_F(EmbeddedAuthorityTest, AChangedRuleCountsAtOnce) {
  EmbeddedAuthority other(folder.path("rights"));
  for (int round = 0; round < 50; ++round) {
    define("allow");
    ASSERT_EQ(decide(ordinary), Decision::Granted);
    ASSERT_TRUE(other.rightSet(rightName, {"deflt", "", ""}));
    ASSERT_EQ(decide(ordinary), Decision::DialogNeeded) << "of the same length";
    ASSERT_TRUE(other.rightRemove(rightName));
    ASSERT_EQ(decide(ordinary), Decision::DialogNeeded);
  }
}

TEST_F(EmbeddedAuthorityTest, ARuleThatIsRememberedStillFollowsItsFile) {
  define("allow");
  while (!FileStamp::of(file)->isSettled()) std::this_thread::yield();
  ASSERT_EQ(decide(ordinary), Decision::Granted);
  ASSERT_EQ(decide(ordinary), Decision::Granted);
  define("deflt");
  EXPECT_EQ(decide(ordinary), Decision::DialogNeeded);
  while (!FileStamp::of(file)->isSettled()) std::this_thread::yield();
  EXPECT_EQ(decide(ordinary), Decision::DialogNeeded);
  define("allow");
  EXPECT_EQ(decide(ordinary), Decision::Granted);
}

TEST_F(EmbeddedAuthorityTest, DefinitionsComeBackAsTheyWereSet) {
  const RightDefinition definition{"default", "Löschen von „<Dateien>“ & mehr?\n", "Table"};
  ASSERT_TRUE(authority.rightSet(rightName, definition));
  const auto found = authority.rightGet(rightName);
  ASSERT_TRUE(found);
  EXPECT_EQ(*found, definition);
}

TEST_F(EmbeddedAuthorityTest, AnyTextCanBeASentence) {
  const RightDefinition definition{"default", std::string("]]> \x01\x1b\r \0 \uFFFE", 13), ""};
  ASSERT_TRUE(authority.rightSet(rightName, definition));
  const auto found = authority.rightGet(rightName);
  ASSERT_TRUE(found);
  EXPECT_EQ(*found, definition);
}

TEST_F(EmbeddedAuthorityTest, WhatIsNotDefinedIsDenied) {
  EXPECT_TRUE(isUndefined(authority.rightGet(rightName)));
  EXPECT_TRUE(isUndefined(authority.rightRemove(rightName)));
  define("allow");
  EXPECT_TRUE(authority.rightRemove(rightName));
  EXPECT_TRUE(isUndefined(authority.rightGet(rightName)));
}

TEST_F(EmbeddedAuthorityTest, LooksLeaveNothingBehind) {
  EXPECT_TRUE(isUndefined(authority.rightGet(rightName)));
  EXPECT_EQ(decide(ordinary), Decision::DialogNeeded);
  EXPECT_FALSE(std::filesystem::exists(folder.path("rights")));
  define("allow");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path("rights")), {}), 1);
}

TEST_F(EmbeddedAuthorityTest, ADamagedDefinitionIsNeverAYes) {
  for (const char* content :
       {"", "<plist", "<plist version=\"1.0\"><string>allow</string></plist>",
        "<plist version=\"1.0\"><dict><key>rule</key><true/></dict></plist>",
        "<plist version=\"1.0\"><dict><key>rul</key><string>allow</string></dict></plist>"}) {
    define("allow");
    writeFile(file, content);
    EXPECT_EQ(decide(ordinary), Decision::DialogNeeded) << content;
    EXPECT_TRUE(isFailure(authority.rightGet(rightName))) << content;
  }
}

TEST_F(EmbeddedAuthorityTest, ADefinitionThatOthersCanChangeIsNeverAYes) {
  define("allow");
  ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
  EXPECT_EQ(decide(ordinary), Decision::DialogNeeded);

  define("allow");
  std::filesystem::rename(file, folder.path("elsewhere"));
  std::filesystem::create_symlink(folder.path("elsewhere"), file);
  EXPECT_EQ(decide(ordinary), Decision::DialogNeeded);

  define("allow");
  EXPECT_EQ(decide(ordinary), Decision::Granted) << "defined anew, it counts again";
  ASSERT_EQ(::chmod(folder.path("rights").c_str(), 0777), 0);
  EXPECT_TRUE(isFailure(authority.rightGet(rightName)));
}

TEST(RightNameTest, OnlyPlainNamesAreAccepted) {
  EXPECT_TRUE(isRightName("com.corvane.vnt.delete-fileobjects"));
  EXPECT_TRUE(isRightName(std::string(200, 'a')));
  for (const std::string& name :
       {std::string(), std::string(201, 'a'), std::string("."), std::string(".."),
        std::string("../a"), std::string("a/b"), std::string(".a"), std::string("-a"),
        std::string("a b"), std::string("a\n"), std::string("ä"), std::string("a\0b", 3)}) {
    EXPECT_FALSE(isRightName(name)) << name;
  }
}

}  // namespace
}  // namespace corvane
