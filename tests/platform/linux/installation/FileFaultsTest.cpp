#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/installation/FileFaults.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class FileFaultsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "what is installed belongs to root";
    writeFile(path, "#!/bin/sh\n", 0755);
  }

  std::optional<std::string> faultAfterMode(mode_t permissions) const {
    EXPECT_EQ(::chmod(path.c_str(), permissions), 0);
    return faultOfFile(path, 0755);
  }

  TemporaryFolder folder;
  const std::string path = folder.path("program");
};

TEST_F(FileFaultsTest, AFileAsItWasPutThereHasNone) {
  EXPECT_EQ(faultOfFile(path, 0755), std::nullopt);
}

TEST_F(FileFaultsTest, EachFaultIsNamed) {
  EXPECT_EQ(faultAfterMode(0757), "can be changed by others than root");
  EXPECT_EQ(faultAfterMode(0644), "cannot be executed, or is not to be");
  EXPECT_EQ(faultAfterMode(04755), "has other permissions than it is to have");
  EXPECT_EQ(faultAfterMode(0755), std::nullopt);
  ASSERT_EQ(::chown(path.c_str(), 1000, 0), 0);
  EXPECT_EQ(faultOfFile(path, 0755), "does not belong to root");
}

TEST_F(FileFaultsTest, WhatIsNotThereIsMissing) {
  ASSERT_EQ(::unlink(path.c_str()), 0);
  EXPECT_EQ(faultOfFile(path, 0755), "is missing");
}

TEST_F(FileFaultsTest, ALinkIsNoFile) {
  ASSERT_EQ(::unlink(path.c_str()), 0);
  ASSERT_EQ(::symlink("/bin/sh", path.c_str()), 0);
  EXPECT_EQ(faultOfFile(path, 0755), "is not a regular file");
}

}  // namespace
}  // namespace corvane
