#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "operations/ObjectLocation.h"
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
  std::optional<Error> walk(unsigned threads) { return walk(threads, visitor); }
  std::optional<Error> walk(unsigned threads, FolderVisitor& by) const {
    return walkFolder(top.folder.get(), top.name.c_str(), by, threads);
  }

  // A chain of folders called 0, 1, 2, ...
  void makeChain(int depth) {
    std::string path;
    for (int i = 0; i < depth; ++i) {
      path += (i == 0 ? "" : "/") + std::to_string(i);
      folder.makeFolder(path);
    }
  }

  void SetUp() override {
    auto location = locateObject(folder.path());
    ASSERT_TRUE(location);
    top = *std::move(location);
  }

  TemporaryFolder folder{parentForManyFiles()};
  ObjectLocation top;
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

TEST_F(FolderWalkTest, ACancelledWalkVisitsNothingMoreOnAnyNumberOfThreads) {
  for (int i = 0; i < 20; ++i) {
    const std::string subfolder = std::to_string(i) + "/";
    folder.makeFolder(subfolder);
    for (int j = 0; j < 50; ++j) folder.makeFile(subfolder + std::to_string(j) + ".");
  }
  for (const unsigned threads : {1U, 4U}) {
    constexpr std::size_t visitsBefore = 600;
    std::stop_source stop;
    visitor.visited.clear();
    visitor.left.clear();
    visitor.onVisit = [&](const std::string&) -> std::optional<Error> {
      if (visitor.visited.size() == visitsBefore) stop.request_stop();
      return std::nullopt;
    };
    EXPECT_EQ(walkFolder(top.folder.get(), top.name.c_str(), visitor, threads, stop.get_token()),
              posixError(POSIXErrorCode::Canceled));
    // Each of the others may have been on its way to one.
    EXPECT_GE(visitor.visited.size(), visitsBefore) << threads;
    EXPECT_LT(visitor.visited.size(), visitsBefore + threads) << threads;
    EXPECT_LT(visitor.left.size(), 20U) << threads;
  }
}

TEST_F(FolderWalkTest, AWalkThatIsCancelledBeforeItBeginsVisitsNothing) {
  folder.makeFile("file");
  std::stop_source stop;
  stop.request_stop();
  EXPECT_EQ(walkFolder(top.folder.get(), top.name.c_str(), visitor, 4, stop.get_token()),
            posixError(POSIXErrorCode::Canceled));
  EXPECT_TRUE(visitor.visited.empty());
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
    EXPECT_EQ(walk(16, failing), posixError(POSIXErrorCode::Busy));
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

// What an owner of a folder may do with it while the walk is in it.
class MovedFolderTest : public FolderWalkTest {
 protected:
  static constexpr int fileCount = 3000;  // more than are read at once

  // Has `moved` moved out of the tree at the first file that is visited, and others put files into
  // the folder `filled`, wherever that is now.
  void moveAtFirstFile(const std::string& moved, const std::string& filled) {
    visitor.onVisit = [this, moved, filled](const std::string& name) -> std::optional<Error> {
      if (hasMoved || !name.starts_with("file")) return std::nullopt;
      hasMoved = true;
      EXPECT_EQ(::rename(moved.c_str(), outside.path("moved").c_str()), 0);
      for (int i = 0; i < fileCount; ++i) outside.makeFile(filled + "/new" + std::to_string(i));
      return std::nullopt;
    };
  }
  void fill(const std::string& name) const {
    for (int i = 0; i < fileCount; ++i) folder.makeFile(name + "/file" + std::to_string(i));
  }
  std::ptrdiff_t visitsOf(const std::string& prefix) const {
    return std::count_if(visitor.visited.begin(), visitor.visited.end(),
                         [&](const std::string& name) { return name.starts_with(prefix); });
  }
  void expectStopped(unsigned threads) {
    EXPECT_EQ(walk(threads), posixError(POSIXErrorCode::Stale));
    EXPECT_EQ(visitsOf("new"), 0);
    EXPECT_LE(visitsOf("file"), 65);
    EXPECT_TRUE(visitor.left.empty());
  }

  TemporaryFolder outside{parentForManyFiles()};
  bool hasMoved = false;
};

TEST_F(MovedFolderTest, IsNotGoneOnWith) {
  fill("folder");
  moveAtFirstFile(folder.path("folder"), "moved");
  expectStopped(1);
}

TEST_F(MovedFolderTest, NorIsAFolderFarBelowIt) {
  fill("a/b/c/d/e/f/g/h/i/j/k/l");
  moveAtFirstFile(folder.path("a"), "moved/b/c/d/e/f/g/h/i/j/k/l");
  expectStopped(1);
}

TEST_F(MovedFolderTest, NorIsTheTop) {
  fill("folder");
  moveAtFirstFile(folder.path(), "moved/folder");
  expectStopped(1);
  EXPECT_EQ(::rename(outside.path("moved").c_str(), folder.path().c_str()), 0);
}

TEST_F(MovedFolderTest, NorIsOneThatAnotherThreadIsIn) {
  // So many folders that every thread has some, and only the last that is visited is moved.
  for (int i = 0; i < 600; ++i) folder.makeFolder(std::to_string(i));
  fill("600/folder");
  moveAtFirstFile(folder.path("600"), "moved/folder");
  EXPECT_EQ(walk(4), posixError(POSIXErrorCode::Stale));
  EXPECT_EQ(visitsOf("new"), 0);
  EXPECT_LE(visitsOf("file"), 65);
}

TEST_F(MovedFolderTest, IsNotLeftByANameThatIsNoLongerItsOwn) {
  folder.makeFile("outer/inner/file");
  moveAtFirstFile(folder.path("outer"), "moved/inner");
  EXPECT_EQ(walk(1), posixError(POSIXErrorCode::Stale));
  EXPECT_TRUE(visitor.left.empty());
}

TEST_F(MovedFolderTest, IsGoneOnWithWhereItStaysInTheTree) {
  fill("folder");
  folder.makeFolder("other");
  visitor.onVisit = [this](const std::string& name) -> std::optional<Error> {
    if (!hasMoved && name.starts_with("file")) {
      hasMoved = ::rename(folder.path("folder").c_str(), folder.path("moved").c_str()) == 0;
    }
    return std::nullopt;
  };
  EXPECT_EQ(walk(1), std::nullopt);
  EXPECT_TRUE(hasMoved);
  EXPECT_GE(visitsOf("file"), fileCount);
}

TEST_F(MovedFolderTest, IsNoticedHoweverDeepItIs) {
  FileDescriptor deepest(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  constexpr int depth = 2500;
  for (int i = 0; i < depth; ++i) {
    ASSERT_EQ(::mkdirat(deepest.get(), "d", 0755), 0);
    deepest.reset(::openat(deepest.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  for (int i = 0; i < fileCount; ++i) {
    ASSERT_EQ(::mknodat(deepest.get(), ("file" + std::to_string(i)).c_str(), S_IFREG, 0), 0);
  }
  moveAtFirstFile(folder.path("d"), "moved");
  EXPECT_EQ(walk(1), posixError(POSIXErrorCode::Stale));
  // One for every 16 levels.
  EXPECT_LE(visitsOf("file"), depth / 16 + 2);
}

TEST_F(FolderWalkTest, FoldersThatDisappearAreNoFailureOnAnyThread) {
  for (int i = 0; i < 2000; ++i) folder.makeFolder(std::to_string(i));
  visitor.onVisit = [this](const std::string& name) -> std::optional<Error> {
    EXPECT_EQ(::rmdir(folder.path(name).c_str()), 0);
    return std::nullopt;
  };
  EXPECT_EQ(walk(4), std::nullopt);
  EXPECT_EQ(visitor.visited.size(), 2000U);
}

TEST_F(FolderWalkTest, WhereDescriptorsAreScarceFewerFoldersAreHeldOpen) {
  makeChain(40);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const FileDescriptor next(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const rlimit scarce = {static_cast<rlim_t>(next.get()) + 4, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &scarce), 0);
  const auto error = walk(1);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(error, std::nullopt);
  EXPECT_EQ(visitor.left.size(), 40U);
}

// Visits whose thread and whose number on it matter.
class ThreadedVisitor : public FolderVisitor {
 public:
  std::optional<Error> visit(int folder, const FolderEntry& entry, bool& descend) override {
    descend = entry.type == FileType::Directory;
    const bool isCaller = std::this_thread::get_id() == caller;
    {
      const std::lock_guard lock(mutex);
      threads.insert(std::this_thread::get_id());
    }
    return isCaller ? onCaller() : onHelper(folder, entry);
  }
  std::optional<Error> leave(int, const char* name) override {
    const std::lock_guard lock(mutex);
    left.insert(name);
    return std::nullopt;
  }

  const std::thread::id caller = std::this_thread::get_id();
  std::function<std::optional<Error>()> onCaller = [] { return std::nullopt; };
  std::function<std::optional<Error>(int, const FolderEntry&)> onHelper =
      [](int, const FolderEntry&) { return std::nullopt; };
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::set<std::string> left;
};

class ThreadedWalkTest : public FolderWalkTest {
 protected:
  void makeFolders(int count) const {
    for (int i = 0; i < count; ++i) {
      folder.makeFolder(std::to_string(i));
      folder.makeFolder(std::to_string(i) + "/inner");
    }
  }
  ThreadedVisitor threaded;
};

TEST_F(ThreadedWalkTest, NoMoreThreadsTakePartThanAreAllowed) {
  makeFolders(1000);
  // While the only helper there may be is busy, the caller has the more to offer.
  std::atomic<int> visits = 0;
  threaded.onHelper = [&](int, const FolderEntry&) -> std::optional<Error> {
    for (int now = visits; now < 1500; now = visits) visits.wait(now);
    return std::nullopt;
  };
  threaded.onCaller = [&]() -> std::optional<Error> {
    ++visits;
    visits.notify_all();
    return std::nullopt;
  };
  EXPECT_EQ(walk(2, threaded), std::nullopt);
  EXPECT_EQ(threaded.threads.size(), 2U);
}

TEST_F(ThreadedWalkTest, AFolderIsNotLeftWhereAFailureElsewhereCutItShort) {
  makeFolders(600);
  // A helper goes ever deeper, until the failure of the caller stops it.
  std::atomic<bool> isBelow = false;
  threaded.onHelper = [&](int parent, const FolderEntry& entry) -> std::optional<Error> {
    isBelow = true;
    isBelow.notify_all();
    EXPECT_EQ(::mkdirat(parent, (std::string(entry.name) + "/z").c_str(), 0755), 0);
    return std::nullopt;
  };
  threaded.onCaller = [&]() -> std::optional<Error> {
    {
      const std::lock_guard lock(threaded.mutex);
      if (threaded.threads.size() < 2) return std::nullopt;
    }
    isBelow.wait(false);
    return posixError(POSIXErrorCode::Busy);
  };
  EXPECT_EQ(walk(2, threaded), posixError(POSIXErrorCode::Busy));
}

TEST_F(ThreadedWalkTest, WhatAVisitorRaisesOnTheCallingThreadEndsTheWalk) {
  makeFolders(1000);
  int visits = 0;
  threaded.onCaller = [&]() -> std::optional<Error> {
    if (++visits == 500) throw std::bad_alloc();
    return std::nullopt;
  };
  EXPECT_THROW(walk(4, threaded), std::bad_alloc);
}

TEST_F(ThreadedWalkTest, SoDoesWhatItRaisesOnAnotherThread) {
  makeFolders(1000);
  threaded.onHelper = [](int, const FolderEntry&) -> std::optional<Error> {
    throw std::runtime_error("as a test wants it");
  };
  EXPECT_THROW(walk(4, threaded), std::runtime_error);
}

}  // namespace
}  // namespace corvane
