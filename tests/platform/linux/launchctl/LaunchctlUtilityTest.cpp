// The utility of the trusted table, at its own path: in a view of the file system that only the
// test's process has, in which /bin holds what the test puts there.

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/ChildEnvironment.h"
#include "tests/support/RecordingConnection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

constexpr const char* launchctl = "/bin/launchctl";

class LaunchctlUtilityTest : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to mount";
    const std::string bin = std::filesystem::canonical("/bin");
    const std::string options = "lowerdir=" + bin + ",upperdir=" + _folder.path("mount/upper") +
                                ",workdir=" + _folder.path("mount/work");
    std::filesystem::create_directory(_folder.path("mount"));
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", _folder.path("mount").c_str(), "tmpfs", 0, "mode=0755") != 0) {
      GTEST_SKIP() << "needs a mount namespace of its own";
    }
    std::filesystem::create_directory(_folder.path("mount/upper"));
    std::filesystem::create_directory(_folder.path("mount/work"));
    if (mount("none", bin.c_str(), "overlay", 0, options.c_str()) != 0) {
      umount(_folder.path("mount").c_str());
      GTEST_SKIP() << "needs overlay mounts";
    }
    _isMounted = true;
    std::filesystem::remove(launchctl);
  }
  void TearDown() override {
    if (!_isMounted) return;
    umount2(std::filesystem::canonical("/bin").c_str(), MNT_DETACH);
    umount2(_folder.path("mount").c_str(), MNT_DETACH);
  }

  std::optional<Error> execute(const Array& arguments) {
    Array all = {"/Applications/Vantor.app", "launchctl"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return _set.performOperationExecuteUtilityWithArguments(all, _connection);
  }
  void install(const std::string& script) {
    const std::string made = _folder.makeScript("launchctl", script);
    std::filesystem::copy_file(made, launchctl, std::filesystem::copy_options::overwrite_existing);
    chmod(launchctl, 0755);
  }

  TemporaryFolder _folder;
  bool _isMounted = false;
  ZELPrivilegedOperationSetVNT _set;
  std::shared_ptr<RecordingConnection> _connection = std::make_shared<RecordingConnection>();
};

TEST_F(LaunchctlUtilityTest, RunsWithTheArgumentAndWithoutThePathVariable) {
  ChildEnvironment::set("PATH", "/evil");
  install("echo $0 $# $1; /usr/bin/env | /usr/bin/grep -c ^PATH=; echo err >&2");
  // The pipeline of the script has no match to count: grep says 0, the last command decides.
  EXPECT_EQ(execute({"list"}), std::nullopt);
  EXPECT_EQ(_connection->output(), "/bin/launchctl 1 list\n0\n");
  EXPECT_EQ(_connection->errorOutput(), "err\n");
}

TEST_F(LaunchctlUtilityTest, MissingProgramIsNamedWithItsStandardPath) {
  const auto error = execute({"list"});
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is("com.corvane.error.privileged-operation", 1));
  EXPECT_EQ(*error->userInfo().find("ZELLocalizedRecoverySuggestionParameters"),
            Value(Array{"launchctl", launchctl}));
  EXPECT_EQ(*error->userInfo().find("NSFilePath"), Value(launchctl));
}

TEST_F(LaunchctlUtilityTest, UnsafePermissionsAreRefusedBeforeAnythingRuns) {
  install("echo ran");
  chmod(launchctl, 0775);
  const auto error = execute({"list"});
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is("com.corvane.error.privileged-operation", 2));
  const Dictionary expected = {
      {"NSLocalizedDescription",
       "Permission settings for a system utility at the Unix level are unsafe. The command cannot "
       "be executed for security reasons."},
      {"ZELLocalizedRecoverySuggestionTemplate",
       "Please verify that the executable '$1$' and its parent folder are owned by the operating "
       "system and cannot be modified by any user."},
      {"ZELLocalizedRecoverySuggestionParameters", Array{launchctl}},
      {"NSFilePath", launchctl}};
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), error->userInfo().begin(),
                         error->userInfo().end()));
  EXPECT_TRUE(_connection->messages().empty());
  EXPECT_EQ(_set.outputConnection(), nullptr);
}

TEST_F(LaunchctlUtilityTest, ExitStatusOneIsAFailedRun) {
  install("exit 1");
  const auto error = execute({"list"});
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is("com.corvane.error.privileged-operation", 3));
  EXPECT_EQ(*error->userInfo().find("ZELLocalizedRecoverySuggestionParameters"), Value(Array{"1"}));
}

}  // namespace
}  // namespace corvane
