#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "tests/platform/linux/installation/InstallationTest.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class HelperInstallationTest : public InstallationTest {
 protected:
  // The error of an installation that leaves everything as it was.
  Error failToInstall() const {
    const auto before = contentsOf(folder.path("root"));
    const auto done = install();
    EXPECT_EQ(contentsOf(folder.path("root")), before);
    return done ? Error("none", 0) : done.error();
  }
};

TEST_F(HelperInstallationTest, EveryPartIsPutInPlace) {
  EXPECT_EQ(countOf(State::Missing), parts);
  ASSERT_TRUE(install());
  EXPECT_EQ(countOf(State::Current), parts);
  EXPECT_EQ(contentOf(program()), contentOf(payload(label)));
  struct stat status {};
  ASSERT_EQ(::stat(program().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & ALLPERMS, 0755U);
  EXPECT_TRUE(exists(inRoot("etc/systemd/system/sockets.target.wants/com.corvane.test.socket")));
}

TEST_F(HelperInstallationTest, WhatIsCurrentIsNotTouched) {
  ASSERT_TRUE(install());
  const auto installed = system();
  struct stat before {};
  ASSERT_EQ(::stat(program().c_str(), &before), 0);
  ASSERT_TRUE(install());
  EXPECT_EQ(system(), installed);
  struct stat after {};
  ASSERT_EQ(::stat(program().c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(HelperInstallationTest, WhatIsNotKeptIsUndone) {
  const auto before = contentsOf(folder.path("root"));
  ASSERT_TRUE(installation()->putInPlace());
  // The folders that systemd made for its links may stay.
  auto after = contentsOf(folder.path("root"));
  std::erase_if(after, [this](const auto& entry) {
    return entry.first.starts_with(inRoot("etc/systemd")) && fs::is_directory(entry.first);
  });
  EXPECT_EQ(after, before);
}

TEST_F(HelperInstallationTest, WhatIsNotKeptLeavesTheVersionThatWasThere) {
  ASSERT_TRUE(install());
  const auto before = system();
  makePayload("second");
  ASSERT_TRUE(installation()->putInPlace());
  EXPECT_EQ(system(), before);
}

TEST_F(HelperInstallationTest, AnotherVersionIsReplaced) {
  ASSERT_TRUE(install());
  const std::size_t count = system().size();
  writeFile(payload(label), "the next version");
  EXPECT_EQ(countOf(State::Different), 1);
  ASSERT_TRUE(install());
  EXPECT_EQ(contentOf(program()), "the next version");
  EXPECT_EQ(countOf(State::Current), parts);

  makePayload("last");
  EXPECT_EQ(countOf(State::Different), files);
  ASSERT_TRUE(install());
  EXPECT_THAT(contentOf(program()), HasSubstr("last"));
  EXPECT_EQ(countOf(State::Current), parts);
  EXPECT_THAT(system(), SizeIs(count)) << "nothing of the old versions is left";
}

TEST_F(HelperInstallationTest, TheIssuersUnitOfOlderVersionsGoes) {
  const std::string old = inRoot("usr/lib/systemd/system/com.corvane.authorization@.service");
  writeFile(old, "old");
  ASSERT_TRUE(installation()->putInPlace());
  EXPECT_TRUE(exists(old)) << "until the new ones are kept";
  ASSERT_TRUE(install());
  EXPECT_FALSE(exists(old));
  EXPECT_EQ(countOf(State::Current), parts);

  writeFile(old, "old");
  EXPECT_THAT(installation()->leftovers(), testing::Contains(old));
  installation()->remove();
  EXPECT_FALSE(exists(old));
}

TEST_F(HelperInstallationTest, FilesThatOthersCouldChangeArePutRight) {
  ASSERT_TRUE(install());
  ASSERT_EQ(::chmod(inRoot("bin/launchctl").c_str(), 0777), 0);
  ASSERT_EQ(::chown(program().c_str(), 1000, 1000), 0);
  EXPECT_EQ(countOf(State::Different), 2);
  ASSERT_TRUE(install());
  EXPECT_EQ(countOf(State::Current), parts);
}

TEST_F(HelperInstallationTest, APayloadThatIsNotWholeChangesNothing) {
  fs::remove(payload("com.corvane.authorization.service"));
  const Error error = failToInstall();
  EXPECT_TRUE(isPOSIXError(error, POSIXErrorCode::NoEntry));
  EXPECT_EQ(*error.userInfo().find(NSFilePathErrorKey),
            Value(payload("com.corvane.authorization.service")));
}

TEST_F(HelperInstallationTest, AFolderInThePayloadIsNoFileToInstall) {
  fs::remove(payload("launchctl"));
  fs::create_directory(payload("launchctl"));
  EXPECT_THAT(failToInstall().localizedDescription(),
              HasSubstr("is missing from what is installed"));
}

TEST_F(HelperInstallationTest, AnotherProgramOfTheSameNameIsLeftAlone) {
  writeFile(inRoot("bin/launchctl"), "#!/bin/sh\n");
  const auto before = system();
  const Error error = failToInstall();
  EXPECT_TRUE(isPOSIXError(error, POSIXErrorCode::Exists));
  EXPECT_THAT(error.localizedDescription(), HasSubstr("is another program than ours"));
  installation()->remove();
  EXPECT_EQ(system(), before);
  EXPECT_THAT(installation()->leftovers(), IsEmpty());
}

TEST_F(HelperInstallationTest, WhatIsNoFileInThePlaceOfLaunchControlIsAnothers) {
  ASSERT_EQ(::mkfifo(inRoot("bin/launchctl").c_str(), 0755), 0);
  EXPECT_NE(failToInstall(), Error("none", 0));
  fs::remove(inRoot("bin/launchctl"));
  fs::create_directory(inRoot("bin/launchctl"));
  EXPECT_NE(failToInstall(), Error("none", 0));
}

TEST_F(HelperInstallationTest, ASocketThatMayNotBeEnabledLeavesTheSystemAsItWas) {
  const std::string wants = inRoot("etc/systemd/system/sockets.target.wants");
  fs::create_directories(wants);
  fs::create_symlink("/usr/lib/systemd/system/other.socket", wants + "/other.socket");
  fs::create_symlink("/dev/null", inRoot("etc/systemd/system/com.corvane.test.socket"));
  EXPECT_NE(failToInstall(), Error("none", 0));
}

TEST_F(HelperInstallationTest, NothingIsLeftAfterRemoval) {
  ASSERT_TRUE(install());
  EXPECT_THAT(installation()->leftovers(), SizeIs(parts));
  writeFile(inRoot("run/com.corvane.authorization/key"), "key");
  writeFile(inRoot("usr/libexec/.com.corvane.test.corvane-old"), "what a killed one left");
  EXPECT_THAT(installation()->leftovers(), SizeIs(parts + 2));
  installation()->remove();
  EXPECT_THAT(installation()->leftovers(), IsEmpty());
  EXPECT_FALSE(exists(inRoot("bin/launchctl")));
  EXPECT_FALSE(exists(inRoot("run/com.corvane.authorization")));
}

TEST_F(HelperInstallationTest, TheLastHelperTakesAlongWhatAllOfThemShare) {
  ASSERT_TRUE(install());
  const std::string otherLabel = "com.corvane.system.privilegedhelper-other";
  const std::string other = inRoot("usr/libexec/" + otherLabel);
  writeFile(other, "another product's helper");
  const std::vector<std::string> shared = {
      inRoot("bin/launchctl"), inRoot("usr/libexec/com.corvane.authorization"),
      inRoot("usr/lib/systemd/system/com.corvane.authorization.service"),
      inRoot("usr/lib/systemd/system/com.corvane.authorization.socket"),
      inRoot("etc/systemd/system/sockets.target.wants/com.corvane.authorization.socket")};

  installation()->remove();
  EXPECT_FALSE(exists(program()));
  EXPECT_FALSE(exists(inRoot("etc/systemd/system/sockets.target.wants/com.corvane.test.socket")));
  EXPECT_THAT(installation()->leftovers(), IsEmpty());
  for (const std::string& path : shared) EXPECT_TRUE(exists(path)) << path;

  HelperInstallation::ofHelper(otherLabel, "", folder.path("root"))->remove();
  EXPECT_FALSE(exists(other));
  for (const std::string& path : shared) EXPECT_FALSE(exists(path)) << path;
}

TEST_F(HelperInstallationTest, AMaskedSocketDoesNotBeginWithTheSystemAfterRemoval) {
  ASSERT_TRUE(install());
  const std::string mask = inRoot("etc/systemd/system/com.corvane.test.socket");
  fs::create_symlink("/dev/null", mask);
  installation()->remove();
  EXPECT_THAT(system(), testing::UnorderedElementsAre(testing::Pair(mask, "/dev/null")))
      << "the mask is the administrator's";
}

TEST_F(HelperInstallationTest, AFolderInThePlaceOfAFileIsLeftOver) {
  ASSERT_TRUE(install());
  fs::remove(program());
  fs::create_directories(program() + "/content");
  installation()->remove();
  EXPECT_THAT(installation()->leftovers(), ElementsAre(program()));
  fs::remove_all(program());
  EXPECT_THAT(installation()->leftovers(), IsEmpty());
}

class ProtectedInstallationTest : public HelperInstallationTest {
 protected:
  void SetUp() override {
    HelperInstallationTest::SetUp();
    const std::string obstacle = obstacleToProtection();
    if (!obstacle.empty()) GTEST_SKIP() << obstacle;
  }
};

TEST_F(ProtectedInstallationTest, AnImmutableFileInTheWayLeavesTheSystemAsItWas) {
  const std::string unit = inRoot("usr/lib/systemd/system/com.corvane.authorization.socket");
  writeFile(unit, "old");
  setKernelFlags(unit, FileFlag::UserImmutable);
  EXPECT_TRUE(isPOSIXError(failToInstall(), POSIXErrorCode::NotPermitted));
}

TEST_F(ProtectedInstallationTest, WhatCannotBeRemovedIsLeftOver) {
  ASSERT_TRUE(install());
  setKernelFlags(program(), FileFlag::UserImmutable);
  installation()->remove();
  EXPECT_THAT(installation()->leftovers(), ElementsAre(program()));
}

}  // namespace
}  // namespace corvane
