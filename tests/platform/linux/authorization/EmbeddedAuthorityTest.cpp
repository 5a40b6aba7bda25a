#include <filesystem>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/linux/authorization/EmbeddedAuthority.h"
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

  OSStatus decide(const ProcessIdentity& subject) {
    return authority.decide(subject, {rightName, "", "", true});
  }
  void define(const std::string& rule) {
    ASSERT_EQ(authority.rightSet(rightName, {rule, "", ""}), errAuthorizationSuccess);
  }

  const TemporaryFolder folder;
  const std::string file = folder.path("rights/" + rightName + ".plist");
  EmbeddedAuthority authority{folder.path("rights")};
};

TEST_F(EmbeddedAuthorityTest, AllowIsYesForEveryone) {
  define("allow");
  EXPECT_EQ(decide(root), errAuthorizationSuccess);
  EXPECT_EQ(decide(ordinary), errAuthorizationSuccess);
}

TEST_F(EmbeddedAuthorityTest, AnyOtherRuleIsYesForRootAlone) {
  for (const char* rule : {"default", "authenticate-admin", "Allow", "allow "}) {
    define(rule);
    EXPECT_EQ(decide(root), errAuthorizationSuccess);
    EXPECT_EQ(decide(ordinary), errAuthorizationInteractionNotAllowed) << rule;
  }
}

TEST_F(EmbeddedAuthorityTest, AnUndefinedRightIsRootsAlone) {
  EXPECT_EQ(decide(root), errAuthorizationSuccess);
  EXPECT_EQ(decide(ordinary), errAuthorizationInteractionNotAllowed);
}

TEST_F(EmbeddedAuthorityTest, AChangedRuleCountsAtOnce) {
  EmbeddedAuthority other(folder.path("rights"));
  for (int round = 0; round < 50; ++round) {
    define("allow");
    ASSERT_EQ(decide(ordinary), errAuthorizationSuccess);
    ASSERT_EQ(other.rightSet(rightName, {"deflt", "", ""}), errAuthorizationSuccess);
    ASSERT_EQ(decide(ordinary), errAuthorizationInteractionNotAllowed) << "of the same length";
    ASSERT_EQ(other.rightRemove(rightName), errAuthorizationSuccess);
    ASSERT_EQ(decide(ordinary), errAuthorizationInteractionNotAllowed);
  }
}

TEST_F(EmbeddedAuthorityTest, ARuleThatIsRememberedStillFollowsItsFile) {
  define("allow");
  while (!FileStamp::of(file)->isSettled()) std::this_thread::yield();
  ASSERT_EQ(decide(ordinary), errAuthorizationSuccess);
  ASSERT_EQ(decide(ordinary), errAuthorizationSuccess);
  define("deflt");
  EXPECT_EQ(decide(ordinary), errAuthorizationInteractionNotAllowed);
  while (!FileStamp::of(file)->isSettled()) std::this_thread::yield();
  EXPECT_EQ(decide(ordinary), errAuthorizationInteractionNotAllowed);
  define("allow");
  EXPECT_EQ(decide(ordinary), errAuthorizationSuccess);
}

TEST_F(EmbeddedAuthorityTest, DefinitionsComeBackAsTheyWereSet) {
  const RightDefinition definition{"default", "Löschen von „<Dateien>“ & mehr?\n", "Table"};
  ASSERT_EQ(authority.rightSet(rightName, definition), errAuthorizationSuccess);
  RightDefinition found;
  ASSERT_EQ(authority.rightGet(rightName, &found), errAuthorizationSuccess);
  EXPECT_EQ(found, definition);
  EXPECT_EQ(authority.rightGet(rightName, nullptr), errAuthorizationSuccess);
}

TEST_F(EmbeddedAuthorityTest, AnyTextCanBeASentence) {
  const RightDefinition definition{"default", std::string("]]> \x01\x1b\r \0 \uFFFE", 13), ""};
  ASSERT_EQ(authority.rightSet(rightName, definition), errAuthorizationSuccess);
  RightDefinition found;
  ASSERT_EQ(authority.rightGet(rightName, &found), errAuthorizationSuccess);
  EXPECT_EQ(found, definition);
}

TEST_F(EmbeddedAuthorityTest, WhatIsNotDefinedIsDenied) {
  EXPECT_EQ(authority.rightGet(rightName, nullptr), errAuthorizationDenied);
  EXPECT_EQ(authority.rightRemove(rightName), errAuthorizationDenied);
  define("allow");
  EXPECT_EQ(authority.rightRemove(rightName), errAuthorizationSuccess);
  EXPECT_EQ(authority.rightGet(rightName, nullptr), errAuthorizationDenied);
}

TEST_F(EmbeddedAuthorityTest, LooksLeaveNothingBehind) {
  EXPECT_EQ(authority.rightGet(rightName, nullptr), errAuthorizationDenied);
  EXPECT_EQ(decide(ordinary), errAuthorizationInteractionNotAllowed);
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
    EXPECT_EQ(decide(ordinary), errAuthorizationInteractionNotAllowed) << content;
    EXPECT_EQ(authority.rightGet(rightName, nullptr), errAuthorizationInternal) << content;
  }
}

TEST_F(EmbeddedAuthorityTest, ADefinitionThatOthersCanChangeIsNeverAYes) {
  define("allow");
  ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
  EXPECT_EQ(decide(ordinary), errAuthorizationInteractionNotAllowed);

  define("allow");
  std::filesystem::rename(file, folder.path("elsewhere"));
  std::filesystem::create_symlink(folder.path("elsewhere"), file);
  EXPECT_EQ(decide(ordinary), errAuthorizationInteractionNotAllowed);

  define("allow");
  EXPECT_EQ(decide(ordinary), errAuthorizationSuccess) << "defined anew, it counts again";
  ASSERT_EQ(::chmod(folder.path("rights").c_str(), 0777), 0);
  EXPECT_EQ(authority.rightGet(rightName, nullptr), errAuthorizationInternal);
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
