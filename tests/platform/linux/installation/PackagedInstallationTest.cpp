#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "platform/posix/Program.h"
#include "tests/platform/linux/installation/InstallationTest.h"
#include "tests/support/Files.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

// A helper that a package brought, and a client that came without one.
class PackagedInstallationTest : public InstallationTest {
 protected:
  void SetUp() override {
    InstallationTest::SetUp();
    if (IsSkipped()) return;
    if (::access("/usr/bin/dpkg", X_OK) != 0) GTEST_SKIP() << "needs dpkg";
    ASSERT_TRUE(install());
    fs::remove_all(folder.path("payload"));
    std::string list;
    std::string sums;
    for (const auto& [path, content] : system()) {
      if (path.starts_with(inRoot("etc"))) continue;
      const std::string name = path.substr(inRoot("").size());
      list += "/" + name + "\n";
      const auto sum = runProgram("/usr/bin/md5sum", {path});
      sums += sum.text.substr(0, sum.text.find(' ')) + "  " + name + "\n";
    }
    writeFile(inRoot("var/lib/dpkg/info/corvane-test.list"), list);
    writeFile(inRoot("var/lib/dpkg/info/corvane-test.md5sums"), sums);
    writeFile(inRoot("var/lib/dpkg/status"),
              "Package: corvane-test\nStatus: install ok installed\nArchitecture: all\n"
              "Version: 1\nMaintainer: Test <test@example.org>\nDescription: test\n\n");
  }
};

TEST_F(PackagedInstallationTest, ItsPackageIsKnown) {
  EXPECT_EQ(installation()->package(), "corvane-test");
  fs::remove(program());
  EXPECT_EQ(installation()->package(), "corvane-test") << "even if the program is gone";
  fs::remove_all(inRoot("var"));
  EXPECT_EQ(installation()->package(), std::nullopt);
}

TEST_F(PackagedInstallationTest, WhatThePackageBroughtIsCurrent) {
  EXPECT_EQ(countOf(State::Current), parts);
  const auto before = system();
  EXPECT_TRUE(install());
  EXPECT_EQ(system(), before);
}

TEST_F(PackagedInstallationTest, AChangedFileIsLeftToThePackage) {
  writeFile(inRoot("usr/libexec/com.corvane.authorization"), "changed");
  fs::remove(inRoot("bin/launchctl"));
  EXPECT_EQ(countOf(State::Different), 1);
  EXPECT_EQ(countOf(State::Missing), 1);
  const auto before = system();
  const auto installed = install();
  ASSERT_FALSE(installed);
  EXPECT_THAT(installed.error().localizedDescription(),
              HasSubstr("com.corvane.authorization is not as the package corvane-test has it"));
  EXPECT_EQ(*installed.error().userInfo().find(NSLocalizedRecoverySuggestionErrorKey),
            Value("Have it put right: apt install --reinstall corvane-test"));
  EXPECT_EQ(system(), before);
}

TEST_F(PackagedInstallationTest, AFileThatOthersCouldChangeIsLeftToThePackage) {
  ASSERT_EQ(::chmod(program().c_str(), 0777), 0);
  EXPECT_EQ(countOf(State::Different), 1);
  EXPECT_FALSE(install());
}

TEST_F(PackagedInstallationTest, ASocketThatIsNotEnabledIsEnabled) {
  fs::remove_all(inRoot("etc/systemd"));
  EXPECT_EQ(countOf(State::Missing), 2);
  EXPECT_TRUE(install());
  EXPECT_EQ(countOf(State::Current), parts);
}

}  // namespace
}  // namespace corvane
