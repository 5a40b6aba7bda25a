#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/Value.h"
#include "platform/linux/authorization/RootFolder.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class RootFolderTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "the folder has to be root's";
    auto opened = RootFolder::open(place.path());
    ASSERT_TRUE(opened);
    folder.emplace(*std::move(opened));
  }

  TemporaryFolder place;
  std::optional<RootFolder> folder;
};

TEST_F(RootFolderTest, AFileOfMoreThanAMegabyteIsNotRead) {
  constexpr std::size_t megabyte = std::size_t{1} << 20;
  place.makeFile("file", std::string(megabyte, 'x'));
  const auto whole = folder->read("file", everyoneElseReads);
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->size(), megabyte);
  place.makeFile("file", std::string(megabyte + 1, 'x'));
  const auto refused = folder->read("file", everyoneElseReads);
  ASSERT_FALSE(refused);
  EXPECT_TRUE(refused.error().is(NSPOSIXErrorDomain, 27));
}

TEST_F(RootFolderTest, AFileHasItsPermissionsWhateverTheMaskIs) {
  const mode_t mask = ::umask(077);
  const auto made = folder->create("made", dataFromString("x"), everyoneElseReads);
  const auto replaced = folder->replace("replaced", dataFromString("x"), everyoneElseReads);
  ::umask(mask);
  EXPECT_TRUE(made);
  EXPECT_TRUE(replaced);
  for (const char* name : {"made", "replaced"}) {
    struct stat status {};
    ASSERT_EQ(::stat(place.path(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0644}) << name;
  }
}

}  // namespace
}  // namespace corvane
