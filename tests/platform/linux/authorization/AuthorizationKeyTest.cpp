#include <array>
#include <filesystem>
#include <set>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

constexpr uid_t someUser = 65534;

class AuthorizationKeyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "keys are root's own";
  }

  void expectRefused(POSIXErrorCode code) const {
    const auto key = AuthorizationKeyFile(folder.path()).key();
    ASSERT_FALSE(key);
    EXPECT_TRUE(isPOSIXError(key.error(), code)) << key.error().localizedDescription();
  }

  std::string keyPath() const { return folder.path("key"); }

  const TemporaryFolder folder;
  const std::string someKey = std::string(32, 'k');
};

TEST_F(AuthorizationKeyTest, IsMadeOnceForRootAlone) {
  const auto first = AuthorizationKeyFile(folder.path()).key();
  const auto second = AuthorizationKeyFile(folder.path()).key();
  ASSERT_TRUE(first);
  EXPECT_EQ(*first, *second);
  EXPECT_NE(*first, AuthorizationKey{});

  struct stat status = {};
  ASSERT_EQ(::stat(keyPath().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
  EXPECT_EQ(status.st_uid, 0U);
}

TEST_F(AuthorizationKeyTest, FoldersOnTheWayAreMadeWhateverTheMask) {
  const mode_t mask = ::umask(0);
  const auto key = AuthorizationKeyFile(folder.path("a/b")).key();
  ::umask(mask);
  EXPECT_TRUE(key);
  struct stat status = {};
  ASSERT_EQ(::stat(folder.path("a/b").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFDIR | 0755U);
}

TEST_F(AuthorizationKeyTest, AReplacedFileIsNoticed) {
  AuthorizationKeyFile file(folder.path());
  auto first = file.key();
  while (!FileStamp::of(keyPath())->isSettled()) std::this_thread::yield();
  first = file.key();
  ASSERT_EQ(*file.key(), *first);
  writeFile(folder.path("new"), someKey, 0600);
  std::filesystem::rename(folder.path("new"), keyPath());
  const auto second = file.key();
  ASSERT_TRUE(second);
  EXPECT_NE(*first, *second);
}

TEST_F(AuthorizationKeyTest, CreatorsAtTheSameTimeAgree) {
  constexpr int rounds = 20;
  constexpr int creators = 8;
  for (int round = 0; round < rounds; ++round) {
    const std::string directory = folder.path(std::to_string(round));
    std::array<int, 2> start{};
    std::array<int, 2> result{};
    ASSERT_EQ(::pipe(start.data()), 0);
    ASSERT_EQ(::pipe(result.data()), 0);
    for (int creator = 0; creator < creators; ++creator) {
      if (::fork() == 0) {
        char go = 0;
        if (::read(start[0], &go, 1) != 1) ::_exit(1);
        const auto key = AuthorizationKeyFile(directory).key();
        if (!key || ::write(result[1], key->data(), key->size()) != 32) ::_exit(1);
        ::_exit(0);
      }
    }
    ASSERT_EQ(::write(start[1], "goooooooo", creators), creators);
    std::set<AuthorizationKey> keys;
    for (int creator = 0; creator < creators; ++creator) {
      int status = -1;
      ::wait(&status);
      ASSERT_EQ(status, 0);
      AuthorizationKey key{};
      ASSERT_EQ(::read(result[0], key.data(), key.size()), 32);
      keys.insert(key);
    }
    for (const int end : {start[0], start[1], result[0], result[1]}) FileDescriptor closed(end);
    EXPECT_EQ(keys.size(), 1U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 1)
        << "nothing but the key is left";
  }
}

TEST_F(AuthorizationKeyTest, ThreadsShareOneFile) {
  AuthorizationKeyFile file(folder.path());
  std::array<AuthorizationKey, 4> keys{};
  std::array<std::thread, 4> threads;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i] = std::thread([&, i] {
      for (int round = 0; round < 100; ++round) keys[i] = *file.key();
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const AuthorizationKey& key : keys) EXPECT_EQ(key, keys[0]);
}

TEST_F(AuthorizationKeyTest, ALinkIsNotFollowed) {
  writeFile(folder.path("elsewhere"), someKey, 0600);
  std::filesystem::create_symlink(folder.path("elsewhere"), keyPath());
  const auto key = AuthorizationKeyFile(folder.path()).key();
  EXPECT_FALSE(key);
  EXPECT_TRUE(std::filesystem::is_symlink(keyPath())) << "left as it is";
}

TEST_F(AuthorizationKeyTest, ADanglingLinkIsNotFilled) {
  std::filesystem::create_symlink(folder.path("nowhere"), keyPath());
  EXPECT_FALSE(AuthorizationKeyFile(folder.path()).key());
  EXPECT_FALSE(std::filesystem::exists(folder.path("nowhere")));
}

TEST_F(AuthorizationKeyTest, AFileOfAnotherUserIsRefused) {
  writeFile(keyPath(), someKey, 0600);
  ASSERT_EQ(::chown(keyPath().c_str(), someUser, 0), 0);
  expectRefused(POSIXErrorCode::NotPermitted);
}

TEST_F(AuthorizationKeyTest, AFileThatOthersCanReadIsRefused) {
  for (const mode_t permissions : {0604U, 0640U, 0644U, 0622U, 0700U, 04600U}) {
    writeFile(keyPath(), someKey, permissions);
    expectRefused(POSIXErrorCode::NotPermitted);
  }
}

TEST_F(AuthorizationKeyTest, WhatIsNoFileIsRefused) {
  ASSERT_EQ(::mkfifo(keyPath().c_str(), 0600), 0);
  expectRefused(POSIXErrorCode::NotPermitted);
  std::filesystem::remove(keyPath());
  ASSERT_EQ(::mkdir(keyPath().c_str(), 0600), 0);
  expectRefused(POSIXErrorCode::NotPermitted);
}

TEST_F(AuthorizationKeyTest, AKeyOfAnotherLengthIsRefused) {
  for (const std::size_t length : {0U, 31U, 33U}) {
    writeFile(keyPath(), std::string(length, 'k'), 0600);
    expectRefused(POSIXErrorCode::BadMessage);
  }
}

TEST_F(AuthorizationKeyTest, AFolderThatOthersCanChangeIsRefused) {
  writeFile(keyPath(), someKey, 0600);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0775), 0);
  expectRefused(POSIXErrorCode::NotPermitted);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(::chown(folder.path().c_str(), someUser, 0), 0);
  expectRefused(POSIXErrorCode::NotPermitted);
}

TEST_F(AuthorizationKeyTest, ALinkedFolderIsRefused) {
  writeFile(keyPath(), someKey, 0600);
  const TemporaryFolder other;
  std::filesystem::create_directory_symlink(folder.path(), other.path("link"));
  EXPECT_FALSE(AuthorizationKeyFile(other.path("link")).key());
}

}  // namespace
}  // namespace corvane
