#include <csignal>
#include <fstream>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "foundation/PropertyList.h"
#include "platform/Preferences.h"
#include "tests/support/Files.h"
#include "tests/support/PreferencesTree.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

/// What the user "nobody" may have put in the way, seen by root.
class PreferencesHostileFolderTest : public PreferencesTree {
 protected:
  void SetUp() override {
    PreferencesTree::SetUp();
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    makeFolder(otherFolder(), otherUser());
    file = otherFolder() / (application + ".plist");
    // A file of root's, readable by it alone, that an attacker would like to have changed or read.
    secret = root() / "secret.plist";
    writeFile(secret, "<plist><dict><key>key</key><string>secret</string></dict></plist>");
    ::chmod(secret.c_str(), 0600);
  }

  /// Neither reading nor writing gets anywhere, and nothing of the tree is touched.
  void expectRefused() {
    const std::string before = inventory();
    EXPECT_FALSE(set("key", "value", "nobody"));
    EXPECT_EQ(inventory(), before);
  }
  void expectRefusedWithReading() {
    expectRefused();
    EXPECT_EQ(get("key", "nobody"), std::nullopt);
  }

  void giveAway(const Path& path) const {
    ASSERT_EQ(::lchown(path.c_str(), otherUser(), static_cast<gid_t>(-1)), 0);
  }

  Path file;
  Path secret;
};

TEST_F(PreferencesHostileFolderTest, ALinkInPlaceOfTheFile) {
  fs::create_symlink(secret, file);
  giveAway(file);
  expectRefusedWithReading();
}

TEST_F(PreferencesHostileFolderTest, ALinkInPlaceOfAFolder) {
  const Path elsewhere = root() / "elsewhere";
  makeFolder(elsewhere, 0);
  for (const Path& folder : {otherFolder(), otherFolder().parent_path()}) {
    fs::remove_all(folder);
    fs::create_directory_symlink(elsewhere, folder);
    giveAway(folder);
    expectRefusedWithReading();
    EXPECT_TRUE(fs::is_empty(elsewhere));
  }
}

TEST_F(PreferencesHostileFolderTest, ALinkToAnotherFolderOfTheUser) {
  const Path elsewhere = otherHome() / "elsewhere";
  makeFolder(elsewhere, otherUser());
  fs::remove_all(otherFolder());
  fs::create_directory_symlink(elsewhere, otherFolder());
  giveAway(otherFolder());
  expectRefusedWithReading();
  EXPECT_TRUE(fs::is_empty(elsewhere));
}

TEST_F(PreferencesHostileFolderTest, AFolderForGroupsOfTheDaemonAlone) {
  writeFile(file, "<plist><dict><key>key</key><string>value</string></dict></plist>");
  giveAway(file);
  ASSERT_EQ(get("key", "nobody"), Value("value"));
  std::vector<gid_t> was(static_cast<std::size_t>(::getgroups(0, nullptr)));
  ASSERT_GE(::getgroups(static_cast<int>(was.size()), was.data()), 0);
  const gid_t further = 4242;
  ASSERT_EQ(::setgroups(1, &further), 0);
  for (const gid_t group : {::getegid(), further}) {
    ASSERT_EQ(::chown(otherFolder().c_str(), 0, group), 0);
    ASSERT_EQ(::chmod(otherFolder().c_str(), 0770), 0);
    EXPECT_EQ(get("key", "nobody"), std::nullopt) << group;
  }
  EXPECT_EQ(::setgroups(was.size(), was.data()), 0);
}

TEST_F(PreferencesHostileFolderTest, ALinkInPlaceOfTheLockOrTheNewFile) {
  fs::create_symlink(secret, otherFolder() / ".lock");
  expectRefused();
  fs::remove(otherFolder() / ".lock");
  // The new file replaces what is in its place, it does not follow it.
  fs::create_symlink(secret, otherFolder() / ".new");
  const std::string before = contentOf(secret);
  EXPECT_TRUE(set("key", "value", "nobody"));
  EXPECT_EQ(contentOf(secret), before);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(file)));
}

TEST_F(PreferencesHostileFolderTest, AHardLinkToAFileOfRoot) {
  fs::create_hard_link(secret, file);
  expectRefusedWithReading();
}

TEST_F(PreferencesHostileFolderTest, AFileOfSomeoneElse) {
  writeFile(file, "<plist><dict/></plist>");
  ::chmod(file.c_str(), 0666);
  expectRefusedWithReading();
}

TEST_F(PreferencesHostileFolderTest, AFifoBlocksNobody) {
  for (const char* name : {"", ".lock"}) {
    const Path path = *name == '\0' ? file : otherFolder() / name;
    fs::remove(path);
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    giveAway(path);
    expectRefused();
    fs::remove(path);
  }
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  giveAway(file);
  EXPECT_EQ(get("key", "nobody"), std::nullopt);
}

TEST_F(PreferencesHostileFolderTest, AFolderInPlaceOfAFile) {
  for (const Path& path : {file, otherFolder() / ".lock", otherFolder() / ".new"}) {
    fs::remove(path);
    makeFolder(path, otherUser());
    expectRefused();
    EXPECT_EQ(get("key", "nobody"), std::nullopt);
    fs::remove(path);
  }
}

TEST_F(PreferencesHostileFolderTest, ADevice) {
  if (::mknod(file.c_str(), S_IFCHR | 0600, ::makedev(1, 5)) != 0) {
    GTEST_SKIP() << "needs to make devices";
  }
  giveAway(file);
  expectRefusedWithReading();
}

TEST_F(PreferencesHostileFolderTest, AFolderThatTheUserMayNotWriteTo) {
  ASSERT_EQ(::chown(otherFolder().c_str(), 0, 0), 0);
  expectRefused();
  fs::remove_all(otherHome() / ".config");
  ASSERT_EQ(::chown(otherHome().c_str(), 0, 0), 0);
  expectRefused();
  EXPECT_FALSE(fs::exists(otherHome() / ".config"));
}

TEST_F(PreferencesHostileFolderTest, AHomeFolderThatIsNotThere) {
  const Path home = otherHome();
  fs::remove_all(home);
  EXPECT_FALSE(set("key", "value", "nobody"));
  EXPECT_FALSE(fs::exists(home));
}

TEST_F(PreferencesHostileFolderTest, AFileBeyondTheBound) {
  writeFile(file, "");
  giveAway(file);
  fs::resize_file(file, std::uintmax_t{1} << 40U);
  EXPECT_FALSE(set("key", "value", "nobody"));
  EXPECT_EQ(get("key", "nobody"), std::nullopt);
  EXPECT_EQ(fs::file_size(file), std::uintmax_t{1} << 40U);
}

TEST_F(PreferencesHostileFolderTest, ALockThatIsNeverGivenBack) {
  writeFile(otherFolder() / ".lock", "");
  giveAway(otherFolder() / ".lock");
  const FileDescriptor lock(::open((otherFolder() / ".lock").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  expectRefused();
  ASSERT_EQ(::flock(lock.get(), LOCK_UN), 0);
  EXPECT_TRUE(set("key", "value", "nobody"));
}

TEST_F(PreferencesHostileFolderTest, AFullFileSystemLeavesTheOldFile) {
  if (::mount("tmpfs", otherHome().c_str(), "tmpfs", 0, "size=64k,mode=0777") != 0) {
    GTEST_SKIP() << "needs to mount";
  }
  EXPECT_TRUE(set("key", "value", "nobody"));
  const std::string before = contentOf(file);
  EXPECT_FALSE(set("key", std::string(std::size_t{1} << 20U, 'a'), "nobody"));
  EXPECT_EQ(contentOf(file), before);
  EXPECT_FALSE(fs::exists(otherFolder() / ".new"));
  EXPECT_TRUE(set("key", "other", "nobody"));
  EXPECT_EQ(::mount(nullptr, otherHome().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  EXPECT_FALSE(set("key", "value", "nobody"));
  EXPECT_EQ(get("key", "nobody"), Value("other"));
  EXPECT_EQ(::umount(otherHome().c_str()), 0);
}

/// The first child of `process` that is not this one, if there is one.
pid_t otherChildOf(pid_t process) {
  const std::string path =
      "/proc/" + std::to_string(process) + "/task/" + std::to_string(process) + "/children";
  std::ifstream children(path);
  for (pid_t child = 0; children >> child;) {
    if (child != ::getpid()) return child;
  }
  return 0;
}

TEST_F(PreferencesHostileFolderTest, AWorkerThatTheUserKillsIsAFailure) {
  writeFile(otherFolder() / ".lock", "");
  giveAway(otherFolder() / ".lock");
  const FileDescriptor lock(::open((otherFolder() / ".lock").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  const pid_t attacker = ::fork();
  if (attacker == 0) {
    if (::setuid(otherUser()) != 0) ::_exit(1);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(60);
    for (;;) {
      // The worker can be killed from the moment on when it has the user's rights.
      const pid_t worker = otherChildOf(::getppid());
      if (worker > 0 && ::kill(worker, SIGTERM) == 0) ::_exit(0);
      ::sched_yield();
    }
  }
  EXPECT_FALSE(set("key", "value", "nobody"));
  int status = 0;
  EXPECT_EQ(::waitpid(attacker, &status, 0), attacker);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_FALSE(fs::exists(file));
}

}  // namespace
}  // namespace corvane
