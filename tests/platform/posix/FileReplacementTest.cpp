#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "platform/posix/FileReplacement.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class FileReplacementTest : public ProtectionTest {
 protected:
  void SetUp() override {
    ProtectionTest::SetUp();
    writeFile(folder.path("payload/one"), "new one");
    writeFile(folder.path("payload/two"), "new two");
    one = folder.path("places/a/one");
    two = folder.path("places/b/two");
  }

  Result<void> replaceBoth(FileReplacement& replacement) const {
    if (auto done = replacement.stage(folder.path("payload/one"), one, 0755); !done) return done;
    if (auto done = replacement.stage(folder.path("payload/two"), two, 0644); !done) return done;
    return replacement.apply();
  }

  TemporaryFolder folder;
  std::string one;
  std::string two;
};

TEST_F(FileReplacementTest, FilesGetTheirPlacesAndPermissions) {
  const mode_t mask = ::umask(077);
  FileReplacement replacement(folder.path("journal"));
  ASSERT_TRUE(replaceBoth(replacement));
  replacement.keep();
  ::umask(mask);
  struct stat status {};
  ASSERT_EQ(::stat(one.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0755});
  ASSERT_EQ(::stat(two.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0644});
  ASSERT_EQ(::stat(folder.path("places/b").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, mode_t{S_IFDIR | 0755});
}

TEST_F(FileReplacementTest, AFileCanBeMadeOfContentThatIsInNone) {
  FileReplacement replacement(folder.path("journal"));
  const std::string content(100'000, 'x');
  ASSERT_TRUE(replacement.stage(dataFromString(content), one, 0640));
  ASSERT_TRUE(replacement.apply());
  replacement.keep();
  EXPECT_EQ(contentOf(one), content);
  struct stat status {};
  ASSERT_EQ(::stat(one.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0640});
}

TEST_F(FileReplacementTest, ALinkInPlaceOfTheJournalIsNotFollowed) {
  writeFile(folder.path("elsewhere"), "kept");
  std::filesystem::create_symlink(folder.path("elsewhere"), folder.path("journal"));
  {
    FileReplacement replacement(folder.path("journal"));
    EXPECT_FALSE(replaceBoth(replacement));
  }
  EXPECT_EQ(contentOf(folder.path("elsewhere")), "kept");
}

TEST_F(FileReplacementTest, WhatIsNotKeptIsUndone) {
  const auto before = contentsOf(folder.path());
  {
    FileReplacement replacement(folder.path("journal"));
    ASSERT_TRUE(replaceBoth(replacement));
    EXPECT_EQ(contentOf(one), "new one");
  }
  EXPECT_EQ(contentsOf(folder.path()), before);
}

TEST_F(FileReplacementTest, WhatWasThereComesBackWithItsIdentity) {
  writeFile(one, "old one");
  std::filesystem::create_directories(folder.path("places/b"));
  std::filesystem::create_symlink("somewhere", two);
  struct stat old {};
  ASSERT_EQ(::stat(one.c_str(), &old), 0);
  {
    FileReplacement replacement(folder.path("journal"));
    ASSERT_TRUE(replaceBoth(replacement));
    EXPECT_EQ(contentOf(two), "new two");
  }
  struct stat now {};
  ASSERT_EQ(::stat(one.c_str(), &now), 0);
  EXPECT_EQ(now.st_ino, old.st_ino);
  EXPECT_EQ(contentOf(one), "old one");
  EXPECT_EQ(std::filesystem::read_symlink(two), "somewhere");
}

TEST_F(FileReplacementTest, WhoHasTheOldFileOpenKeepsIt) {
  writeFile(one, "old one");
  std::ifstream open(one);
  FileReplacement replacement(folder.path("journal"));
  ASSERT_TRUE(replaceBoth(replacement));
  replacement.keep();
  EXPECT_EQ((std::string{std::istreambuf_iterator<char>(open), {}}), "old one");
  EXPECT_EQ(contentOf(one), "new one");
}

TEST_F(FileReplacementTest, AFileThatCannotBeReplacedLeavesAllAsTheyWere) {
  writeFile(one, "old one");
  writeFile(two, "old two");
  ASSERT_EQ(changeFileFlags(two, FileFlag::UserImmutable), std::nullopt);
  const auto before = contentsOf(folder.path());
  {
    FileReplacement replacement(folder.path("journal"));
    const auto replaced = replaceBoth(replacement);
    ASSERT_FALSE(replaced);
    EXPECT_TRUE(isPOSIXError(replaced.error(), POSIXErrorCode::NotPermitted));
    EXPECT_EQ(*replaced.error().userInfo().find(NSFilePathErrorKey), Value(two));
  }
  EXPECT_EQ(contentsOf(folder.path()), before);
}

TEST_F(FileReplacementTest, AFolderIsNotReplaced) {
  writeFile(two + "/file", "contents");
  const auto before = contentsOf(folder.path());
  {
    FileReplacement replacement(folder.path("journal"));
    EXPECT_FALSE(replaceBoth(replacement));
  }
  EXPECT_EQ(contentsOf(folder.path()), before);
}

TEST_F(FileReplacementTest, WhatAKilledReplacementLeftIsNotInTheWay) {
  for (const std::string& remains : FileReplacement::remainsOf(one)) writeFile(remains, "half of");
  FileReplacement replacement(folder.path("journal"));
  ASSERT_TRUE(replaceBoth(replacement));
  replacement.keep();
  EXPECT_EQ(contentOf(one), "new one");
  for (const std::string& remains : FileReplacement::remainsOf(one)) EXPECT_FALSE(exists(remains));
}

}  // namespace
}  // namespace corvane
