#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "foundation/POSIXError.h"
#include "operationset-vnt/FolderWalk.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

// Keeps the names of what is visited and left; the folders are the entries without a dot.
class RecordingVisitor : public FolderVisitor {
 public:
  std::optional<Error> visit(int, const FolderEntry& entry, bool& descend) override {
    const std::lock_guard lock(_mutex);
    visited.emplace_back(entry.name);
    threads.push_back(std::this_thread::get_id());
    descend = entry.type == FileType::Directory;
    return onVisit ? onVisit(entry.name) : std::nullopt;
  }
  std::optional<Error> leave(int, const char* name) override {
    const std::lock_guard lock(_mutex);
    left.emplace_back(name);
    return std::nullopt;
  }

  std::vector<std::string> visited;
  std::vector<std::string> left;
  std::vector<std::thread::id> threads;
  std::function<std::optional<Error>(const std::string&)> onVisit;

 private:
  std::mutex _mutex;
};

class FolderWalkTest : public testing::Test {
 protected:
  std::optional<Error> walk(unsigned threads) {
    FileDescriptor top(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return walkFolder(std::make_shared<FolderReader>(std::move(top)), visitor, threads);
  }

  // A chain of folders called 0, 1, 2, ...
  void makeChain(int depth) {
    std::string path;
    for (int i = 0; i < depth; ++i) {
      path += (i == 0 ? "" : "/") + std::to_string(i);
      folder.makeFolder(path);
    }
  }

  TemporaryFolder folder{parentForManyFiles()};
  RecordingVisitor visitor;
};

TEST_F(FolderWalkTest, VisitsEveryEntryOnceOnAnyNumberOfThreads) {
  std::vector<std::string> entries;
  std::vector<std::string> folders;
  const auto add = [](std::vector<std::string>& names, int number) {
    return names.emplace_back(std::to_string(number));
  };
  // Every name is a number of its own.
  for (int i = 0; i < 30; ++i) {
    const std::string outer = add(folders, 1000 + i) + "/";
    folder.makeFolder(outer);
    for (int j = 0; j < 10; ++j) {
      const std::string inner = outer + add(folders, 2000 + 10 * i + j);
      folder.makeFolder(inner);
      for (int k = 0; k < 3; ++k) {
        folder.makeFile(inner + "/" + add(entries, 3000 + 30 * i + 3 * j + k));
      }
    }
  }
  entries.insert(entries.end(), folders.begin(), folders.end());
  std::sort(entries.begin(), entries.end());
  std::sort(folders.begin(), folders.end());
  for (const unsigned threads : {1U, 2U, 4U}) {
    visitor.visited.clear();
    visitor.left.clear();
    EXPECT_EQ(walk(threads), std::nullopt);
    std::sort(visitor.visited.begin(), visitor.visited.end());
    std::sort(visitor.left.begin(), visitor.left.end());
    EXPECT_EQ(visitor.visited, entries) << threads;
    EXPECT_EQ(visitor.left, folders) << threads;
  }
}

TEST_F(FolderWalkTest, ASmallTreeIsWalkedOnTheCallingThread) {
  for (int i = 0; i < 50; ++i) folder.makeFolder(std::to_string(i));
  EXPECT_EQ(walk(4), std::nullopt);
  EXPECT_EQ(visitor.visited.size(), 50U);
  for (const auto thread : visitor.threads) EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(FolderWalkTest, LeavesFoldersFromTheBottomUp) {
  makeChain(40);
  EXPECT_EQ(walk(1), std::nullopt);
  ASSERT_EQ(visitor.left.size(), 40U);
  for (int i = 0; i < 40; ++i)
    EXPECT_EQ(visitor.left[static_cast<std::size_t>(i)], std::to_string(39 - i));
}

TEST_F(FolderWalkTest, AThreadWithWorkToShareDoesNotDisturbTheEndAfterAFailure) {
  // Fails on the calling thread when another one is about to share what it has found.
  struct Failing : FolderVisitor {
    std::optional<Error> visit(int, const FolderEntry& entry, bool& descend) override {
      descend = entry.type == FileType::Directory;
      const int visits = count();
      if (std::this_thread::get_id() != caller) {
        if (visits != 280) return std::nullopt;
        isSharing = true;
        isSharing.notify_all();
        hasFailed.wait(false);
        return std::nullopt;
      }
      if (visits != 1100) return std::nullopt;
      isSharing.wait(false);
      hasFailed = true;
      hasFailed.notify_all();
      return posixError(POSIXErrorCode::Busy);
    }
    std::optional<Error> leave(int, const char*) override { return std::nullopt; }
    int count() {
      const std::lock_guard lock(mutex);
      return ++counts[std::this_thread::get_id()];
    }

    const std::thread::id caller = std::this_thread::get_id();
    std::mutex mutex;
    std::map<std::thread::id, int> counts;
    std::atomic<bool> isSharing = false;
    std::atomic<bool> hasFailed = false;
  };
  for (int i = 0; i < 8; ++i) {
    const std::string outer = std::to_string(i);
    folder.makeFolder(outer);
    for (int j = 0; j < 300; ++j) folder.makeFolder(outer + "/" + std::to_string(j));
  }
  for (int i = 0; i < 1000; ++i) folder.makeFile("file" + std::to_string(i));
  for (int round = 0; round < 20; ++round) {
    Failing failing;
    FileDescriptor top(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(walkFolder(std::make_shared<FolderReader>(std::move(top)), failing, 16),
              posixError(POSIXErrorCode::Busy));
  }
}

TEST_F(FolderWalkTest, TheFirstFailureEndsIt) {
  for (int i = 0; i < 2000; ++i) folder.makeFolder(std::to_string(i));
  visitor.onVisit = [this](const std::string&) -> std::optional<Error> {
    if (visitor.visited.size() < 1000) return std::nullopt;
    return posixError(POSIXErrorCode::Busy);
  };
  EXPECT_EQ(walk(4), posixError(POSIXErrorCode::Busy));
  // Each other thread may have been at one more entry.
  EXPECT_LE(visitor.visited.size(), 1004U);
}

TEST_F(FolderWalkTest, AFolderThatDisappearsIsPassedOver) {
  folder.makeFolder("a");
  folder.makeFolder("a/b");
  visitor.onVisit = [this](const std::string& name) -> std::optional<Error> {
    if (name == "b") ::remove(folder.path("a/b").c_str());
    return std::nullopt;
  };
  EXPECT_EQ(walk(1), std::nullopt);
  EXPECT_EQ(visitor.left, std::vector<std::string>{"a"});
}

TEST_F(FolderWalkTest, AFolderSwappedForALinkOnceItWasSeenIsNotEntered) {
  const TemporaryFolder outside;
  outside.makeFile("outside");
  folder.makeFolder("folder");
  folder.makeFolder("folder/inner");
  visitor.onVisit = [&](const std::string& name) -> std::optional<Error> {
    if (name == "inner") {
      ::remove(folder.path("folder/inner").c_str());
      folder.makeLink("folder/inner", outside.path());
    }
    return std::nullopt;
  };
  EXPECT_EQ(walk(1), posixError(POSIXErrorCode::NotDirectory));
  EXPECT_EQ(visitor.visited, (std::vector<std::string>{"folder", "inner"}));
}

TEST_F(FolderWalkTest, AFolderThatIsMovedAwayMeanwhileIsNotLeftForAnotherOne) {
  makeChain(40);
  folder.makeFolder("elsewhere");
  const std::string deep = folder.path("0/1/2/3/4/5/6/7/8/9");
  visitor.onVisit = [&](const std::string& name) -> std::optional<Error> {
    if (name == "39") ::rename((deep + "/10").c_str(), folder.path("elsewhere/10").c_str());
    return std::nullopt;
  };
  EXPECT_EQ(walk(1), posixError(POSIXErrorCode::Stale));
  EXPECT_EQ(std::count(visitor.left.begin(), visitor.left.end(), "10"), 0);
}

}  // namespace
}  // namespace corvane
