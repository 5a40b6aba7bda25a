#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/HelperInstallation.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using State = HelperInstallation::Part::State;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* label = "com.corvane.test";

// The system of the test is a folder, on which systemd does not run.
class InstallationRecoveryTest : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "what is installed is made root's";
    if (!fs::exists("/bin/systemctl")) GTEST_SKIP() << "needs systemctl to enable units";
    for (const char* folder : {"root/usr/lib", "root/bin", "root/etc"}) {
      fs::create_directories(_folder.path(folder));
    }
    makePayload("first");
  }

  void makePayload(const std::string& version) {
    const auto add = [&](const std::string& name, const std::string& text) {
      _folder.makeFile("payload/" + name, text + "\n# " + version + "\n");
    };
    const std::string service = "[Service]\nExecStart=/bin/true";
    const std::string socket =
        "[Socket]\nListenStream=/run/test\n[Install]\nWantedBy=sockets.target";
    add(label, "program");
    add("com.corvane.authorization", "program");
    add("launchctl", "launchctl for systemd, version");
    add(std::string(label) + ".service", service);
    add(std::string(label) + ".socket", socket);
    add("com.corvane.authorization@.service", service);
    add("com.corvane.authorization.socket", socket);
  }

  std::unique_ptr<HelperInstallation> installation() const {
    return HelperInstallation::ofHelper(label, _folder.path("payload"), _folder.path("root"));
  }

  std::optional<Error> install() const {
    const auto made = installation();
    auto error = made->putInPlace();
    if (!error) made->keep();
    return error;
  }

  // Installs in a process that is killed before it keeps what it did.
  void installAndBeKilled() const {
    const pid_t child = fork();
    if (child == 0) {
      const auto made = installation();
      if (made->putInPlace()) _exit(1);
      raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
  }

  // Everything but folders, by path, with the contents of files.
  std::map<std::string, std::string> system() const {
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(_folder.path("root"))) {
      if (entry.is_symlink()) {
        all[entry.path()] = fs::read_symlink(entry.path());
      } else if (!entry.is_directory()) {
        all[entry.path()] = contents(entry.path());
      }
    }
    return all;
  }

  static std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string inRoot(const std::string& path) const { return _folder.path("root") + path; }
  std::string program() const { return inRoot(std::string("/usr/libexec/") + label); }
  std::string lastUnit() const {
    return inRoot("/usr/lib/systemd/system/com.corvane.authorization.socket");
  }

  TemporaryFolder _folder;
};

TEST_F(InstallationRecoveryTest, MakesEveryPartCurrentAndASecondTimeChangesNothing) {
  EXPECT_THAT(installation()->parts(),
              Each(Field(&HelperInstallation::Part::state, State::Missing)));
  ASSERT_EQ(install(), std::nullopt);
  EXPECT_THAT(installation()->parts(),
              Each(Field(&HelperInstallation::Part::state, State::Current)));
  struct stat before {};
  ASSERT_EQ(stat(program().c_str(), &before), 0);
  EXPECT_EQ(before.st_mode & ALLPERMS, 0755U);
  const auto installed = system();
  ASSERT_EQ(install(), std::nullopt);
  EXPECT_EQ(system(), installed);
  struct stat after {};
  ASSERT_EQ(stat(program().c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(InstallationRecoveryTest, ReplacesAnotherVersionAndLeavesNothingElse) {
  ASSERT_EQ(install(), std::nullopt);
  const std::size_t count = system().size();
  makePayload("second");
  ASSERT_EQ(install(), std::nullopt);
  EXPECT_THAT(contents(program()), HasSubstr("second"));
  EXPECT_THAT(system(), SizeIs(count));
}

TEST_F(InstallationRecoveryTest, IsUndoneUnlessItIsKept) {
  installation()->putInPlace();
  EXPECT_THAT(system(), IsEmpty());
  ASSERT_EQ(install(), std::nullopt);
  const auto before = system();
  makePayload("second");
  ASSERT_EQ(installation()->putInPlace(), std::nullopt);
  EXPECT_EQ(system(), before);
}

TEST_F(InstallationRecoveryTest, AFailureInTheMiddleRestoresWhatWasThere) {
  ASSERT_EQ(install(), std::nullopt);
  makePayload("second");
  fs::remove(lastUnit());
  fs::create_directories(lastUnit() + "/content");
  const auto before = system();
  const auto error = install();
  ASSERT_TRUE(error);
  EXPECT_THAT(error->localizedDescription(), HasSubstr(lastUnit()));
  EXPECT_EQ(system(), before);
}

TEST_F(InstallationRecoveryTest, AnothersLaunchControlIsNeitherReplacedNorRemoved) {
  _folder.makeFile("root/bin/launchctl", "another's");
  const auto before = system();
  const auto error = install();
  ASSERT_TRUE(error);
  EXPECT_THAT(error->localizedDescription(), HasSubstr("is another program than ours"));
  installation()->remove();
  EXPECT_EQ(system(), before);
  EXPECT_THAT(installation()->leftovers(), IsEmpty());
}

TEST_F(InstallationRecoveryTest, WhatIsNoFileInThePlaceOfLaunchControlIsAnothers) {
  ASSERT_EQ(mkfifo(inRoot("/bin/launchctl").c_str(), 0755), 0);
  EXPECT_TRUE(install());
  fs::remove(inRoot("/bin/launchctl"));
  fs::create_directory(inRoot("/bin/launchctl"));
  EXPECT_TRUE(install());
}

TEST_F(InstallationRecoveryTest, AFolderInThePayloadIsNoFileToInstall) {
  fs::remove(_folder.path("payload/launchctl"));
  fs::create_directory(_folder.path("payload/launchctl"));
  const auto error = install();
  ASSERT_TRUE(error);
  EXPECT_THAT(error->localizedDescription(), HasSubstr("is missing from what is installed"));
}

TEST_F(InstallationRecoveryTest, RemovalTellsWhatIsLeft) {
  ASSERT_EQ(install(), std::nullopt);
  EXPECT_THAT(installation()->leftovers(), SizeIs(9));
  fs::remove(program());
  fs::create_directories(program() + "/content");
  installation()->remove();
  EXPECT_THAT(installation()->leftovers(), ElementsAre(program()));
  fs::remove_all(program());
  EXPECT_THAT(installation()->leftovers(), IsEmpty());
}

TEST_F(InstallationRecoveryTest, AFailureAfterAKilledOneLeavesWhatWasThereBeforeBoth) {
  ASSERT_EQ(install(), std::nullopt);
  fs::remove(lastUnit());
  const auto before = system();
  makePayload("second");
  installAndBeKilled();
  ASSERT_TRUE(fs::exists(lastUnit()));
  EXPECT_THAT(installation()->parts(),
              testing::Contains(Field(&HelperInstallation::Part::state, State::Different)));
  fs::remove(_folder.path("payload/launchctl"));
  EXPECT_TRUE(install());
  EXPECT_EQ(system(), before);
}

TEST_F(InstallationRecoveryTest, AfterAKilledOneTheNextGoesThrough) {
  ASSERT_EQ(install(), std::nullopt);
  const std::size_t count = system().size();
  makePayload("second");
  installAndBeKilled();
  ASSERT_EQ(install(), std::nullopt);
  EXPECT_THAT(contents(program()), HasSubstr("second"));
  EXPECT_THAT(system(), SizeIs(count));
}

TEST_F(InstallationRecoveryTest, WhatAKilledOneLeftIsRemoved) {
  ASSERT_EQ(install(), std::nullopt);
  makePayload("second");
  installAndBeKilled();
  installation()->remove();
  EXPECT_THAT(installation()->leftovers(), IsEmpty());
  EXPECT_THAT(system(), IsEmpty());
}

TEST_F(InstallationRecoveryTest, OldFilesOfOneThatWasKeptDoNotComeBack) {
  ASSERT_EQ(install(), std::nullopt);
  const auto before = system();
  _folder.makeFile(std::string("root/usr/libexec/.") + label + ".corvane-old", "old");
  _folder.makeFile(std::string("root/usr/libexec/.") + label + ".corvane-new", "new");
  ASSERT_EQ(install(), std::nullopt);
  EXPECT_EQ(system(), before);
}

}  // namespace
}  // namespace corvane
