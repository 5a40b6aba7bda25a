#include <csignal>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/linux/installation/InstallationTest.h"
#include "tests/support/Files.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// What an installation leaves that does not come to its end.
class InstallationRecoveryTest : public InstallationTest {
 protected:
  // Installs in a process that is killed before it keeps what it did.
  void installAndBeKilled() const {
    const pid_t child = ::fork();
    if (child == 0) {
      const auto made = installation();
      if (!made->putInPlace()) ::_exit(1);
      ::raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
  }

  std::string lastUnit() const {
    return inRoot("usr/lib/systemd/system/com.corvane.authorization.socket");
  }
};

TEST_F(InstallationRecoveryTest, AFailureInTheMiddleRestoresWhatWasThere) {
  ASSERT_TRUE(install());
  makePayload("second");
  fs::remove(lastUnit());
  fs::create_directories(lastUnit() + "/content");
  const auto before = system();
  const auto installed = install();
  ASSERT_FALSE(installed);
  EXPECT_THAT(installed.error().localizedDescription(), HasSubstr(lastUnit()));
  EXPECT_EQ(system(), before);
}

TEST_F(InstallationRecoveryTest, AFailureAfterAKilledOneLeavesWhatWasThereBeforeBoth) {
  ASSERT_TRUE(install());
  fs::remove(lastUnit());
  const auto before = system();
  makePayload("second");
  installAndBeKilled();
  ASSERT_TRUE(exists(lastUnit()));
  EXPECT_GT(countOf(State::Different), 0);
  fs::remove(payload("launchctl"));
  EXPECT_FALSE(install());
  EXPECT_EQ(system(), before);
}

TEST_F(InstallationRecoveryTest, AfterAKilledOneTheNextGoesThrough) {
  ASSERT_TRUE(install());
  const std::size_t count = system().size();
  makePayload("second");
  installAndBeKilled();
  ASSERT_TRUE(install());
  EXPECT_THAT(contentOf(program()), HasSubstr("second"));
  EXPECT_THAT(system(), SizeIs(count));
}

TEST_F(InstallationRecoveryTest, WhatAKilledOneLeftIsRemoved) {
  ASSERT_TRUE(install());
  makePayload("second");
  installAndBeKilled();
  installation()->remove();
  EXPECT_THAT(installation()->leftovers(), IsEmpty());
  EXPECT_THAT(system(), IsEmpty());
}

TEST_F(InstallationRecoveryTest, OldFilesOfOneThatWasKeptDoNotComeBack) {
  ASSERT_TRUE(install());
  const auto before = system();
  for (const char* name : {".com.corvane.test.corvane-old", ".com.corvane.test.corvane-new"}) {
    writeFile(inRoot("usr/libexec/") + name, "left");
  }
  ASSERT_TRUE(install());
  EXPECT_EQ(system(), before);
}

}  // namespace
}  // namespace corvane
