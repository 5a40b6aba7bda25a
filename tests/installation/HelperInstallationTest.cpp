#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "platform/HelperInstallation.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using State = HelperInstallation::Part::State;

constexpr const char* label = "com.corvane.test";
constexpr const char* mark = "launchctl for systemd, version 1.0";

// On the root of a system that does not run.
class HelperInstallationTest : public ProtectionTest {
 protected:
  void SetUp() override {
    ProtectionTest::SetUp();
    if (::access("/bin/systemctl", X_OK) != 0) GTEST_SKIP() << "there is no systemctl";
    for (const char* name : {"com.corvane.test", "com.corvane.authorization", "launchctl"}) {
      writeFile(payload(name), std::string(name) + mark);
    }
    const std::string socket =
        "[Socket]\nListenStream=/run/x\n[Install]\nWantedBy=sockets.target\n";
    writeFile(payload("com.corvane.test.socket"), socket);
    writeFile(payload("com.corvane.authorization.socket"), socket);
    writeFile(payload("com.corvane.test.service"), "[Service]\nExecStart=/bin/true\n");
    writeFile(payload("com.corvane.authorization@.service"), "[Service]\nExecStart=/bin/true\n");
    for (const char* name : {"bin", "etc", "usr/lib", "run"}) {
      std::filesystem::create_directories(inRoot(name));
    }
  }

  std::string payload(const std::string& name) const { return folder.path("payload/" + name); }
  std::string inRoot(const std::string& name) const { return folder.path("root/" + name); }
  std::string program() const { return inRoot("usr/libexec/com.corvane.test"); }

  std::unique_ptr<HelperInstallation> installation() const {
    return HelperInstallation::ofHelper(label, folder.path("payload"), folder.path("root"));
  }

  void install() const {
    const auto made = installation();
    ASSERT_EQ(made->putInPlace(), std::nullopt);
    made->keep();
  }

  int countOf(State state) const {
    const auto parts = installation()->parts();
    return static_cast<int>(std::count_if(
        parts.begin(), parts.end(), [state](const auto& part) { return part.state == state; }));
  }

  // A failed installation, after which everything is as it was.
  Error failToInstall() const {
    const auto before = contentsOf(folder.path("root"));
    auto made = installation();
    const auto error = made->putInPlace();
    made.reset();
    EXPECT_EQ(contentsOf(folder.path("root")), before);
    return error.value_or(Error("none", 0));
  }

  TemporaryFolder folder;
};

TEST_F(HelperInstallationTest, EveryPartIsPutInPlace) {
  EXPECT_EQ(countOf(State::Missing), 9);
  install();
  EXPECT_EQ(countOf(State::Current), 9);
  EXPECT_EQ(contentOf(program()), contentOf(payload("com.corvane.test")));
  EXPECT_TRUE(exists(inRoot("etc/systemd/system/sockets.target.wants/com.corvane.test.socket")));
}

TEST_F(HelperInstallationTest, WhatIsCurrentIsNotTouched) {
  install();
  struct stat before {};
  ASSERT_EQ(::stat(program().c_str(), &before), 0);
  install();
  struct stat after {};
  ASSERT_EQ(::stat(program().c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(HelperInstallationTest, WhatIsNotKeptIsUndone) {
  const auto before = contentsOf(folder.path("root"));
  ASSERT_EQ(installation()->putInPlace(), std::nullopt);
  // The folders that systemd made for its links may stay.
  auto after = contentsOf(folder.path("root"));
  std::erase_if(after, [this](const auto& entry) {
    return entry.first.starts_with(inRoot("etc/systemd")) &&
           std::filesystem::is_directory(entry.first);
  });
  EXPECT_EQ(after, before);
}

TEST_F(HelperInstallationTest, AnotherVersionIsReplaced) {
  install();
  writeFile(payload("com.corvane.test"), "the next version");
  EXPECT_EQ(countOf(State::Different), 1);
  install();
  EXPECT_EQ(contentOf(program()), "the next version");
  EXPECT_EQ(countOf(State::Current), 9);
}

TEST_F(HelperInstallationTest, FilesThatOthersCouldChangeArePutRight) {
  install();
  ASSERT_EQ(::chmod(inRoot("bin/launchctl").c_str(), 0777), 0);
  ASSERT_EQ(::chown(program().c_str(), 1000, 1000), 0);
  EXPECT_EQ(countOf(State::Different), 2);
  install();
  EXPECT_EQ(countOf(State::Current), 9);
}

TEST_F(HelperInstallationTest, APayloadThatIsNotWholeChangesNothing) {
  std::filesystem::remove(payload("com.corvane.authorization@.service"));
  const Error error = failToInstall();
  EXPECT_TRUE(isPOSIXError(error, POSIXErrorCode::NoEntry));
  EXPECT_EQ(*error.userInfo().find(NSFilePathErrorKey),
            Value(payload("com.corvane.authorization@.service")));
}

TEST_F(HelperInstallationTest, AnotherProgramOfTheSameNameIsLeftAlone) {
  writeFile(inRoot("bin/launchctl"), "#!/bin/sh\n");
  EXPECT_TRUE(isPOSIXError(failToInstall(), POSIXErrorCode::Exists));
  installation()->remove();
  EXPECT_TRUE(exists(inRoot("bin/launchctl")));
  EXPECT_TRUE(installation()->leftovers().empty());
}

TEST_F(HelperInstallationTest, AnImmutableFileInTheWayLeavesTheSystemAsItWas) {
  writeFile(inRoot("usr/lib/systemd/system/com.corvane.authorization.socket"), "old");
  setKernelFlags(inRoot("usr/lib/systemd/system/com.corvane.authorization.socket"),
                 FS_IMMUTABLE_FL);
  EXPECT_TRUE(isPOSIXError(failToInstall(), POSIXErrorCode::NotPermitted));
}

TEST_F(HelperInstallationTest, ASocketThatMayNotBeEnabledLeavesTheSystemAsItWas) {
  const std::string wants = inRoot("etc/systemd/system/sockets.target.wants");
  std::filesystem::create_directories(wants);
  std::filesystem::create_symlink("/usr/lib/systemd/system/other.socket", wants + "/other.socket");
  std::filesystem::create_symlink("/dev/null",
                                  inRoot("etc/systemd/system/com.corvane.test.socket"));
  EXPECT_NE(failToInstall(), Error("none", 0));
}

TEST_F(HelperInstallationTest, NothingIsLeftAfterRemoval) {
  install();
  writeFile(inRoot("run/com.corvane.authorization/key"), "key");
  writeFile(inRoot("usr/libexec/.com.corvane.test.corvane-old"), "what a killed one left");
  EXPECT_EQ(installation()->leftovers().size(), 11U);
  installation()->remove();
  EXPECT_TRUE(installation()->leftovers().empty());
  EXPECT_FALSE(exists(inRoot("bin/launchctl")));
  EXPECT_FALSE(exists(inRoot("run/com.corvane.authorization")));
}

TEST_F(HelperInstallationTest, WhatCannotBeRemovedIsLeftOver) {
  install();
  setKernelFlags(program(), FS_IMMUTABLE_FL);
  installation()->remove();
  EXPECT_EQ(installation()->leftovers(), std::vector<std::string>{program()});
}

}  // namespace
}  // namespace corvane
