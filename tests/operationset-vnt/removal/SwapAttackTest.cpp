#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/SystemObjects.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

// Swaps two names for as long as it lives.
class Swapper {
 public:
  Swapper(std::string one, std::string other)
      : _thread([this, one = std::move(one), other = std::move(other)] {
          while (!_stopped) {
            if (exchangeNames(one, other)) _swapped = true;
          }
        }) {}
  ~Swapper() {
    _stopped = true;
    _thread.join();
  }
  void waitUntilAtWork() const {
    while (!_swapped) std::this_thread::yield();
  }

 private:
  std::atomic<bool> _stopped = false;
  std::atomic<bool> _swapped = false;
  std::thread _thread;
};

class SwapAttackTest : public ProtectionTest {
 protected:
  static constexpr int rounds = 100;

  void SetUp() override {
    ProtectionTest::SetUp();
    if (IsSkipped()) return;
    // What an attacker would like to see gone, of the same names as what may go.
    makeTree("outside");
    setKernelFlags(folder.path("outside/inner/file"), FileFlag::UserImmutable);
  }

  void makeTree(const std::string& name) const {
    folder.makeFolder(name);
    folder.makeFolder(name + "/inner");
    folder.makeFile(name + "/inner/file");
    folder.makeFile(name + "/file");
  }

  void expectOutsideUntouched() const {
    EXPECT_TRUE(exists(folder.path("outside/file")));
    EXPECT_EQ(kernelFlags(folder.path("outside/inner/file")), FileFlag::UserImmutable);
    EXPECT_EQ(kernelFlags(folder.path("outside")), 0U);
  }

  ZELPrivilegedOperationSetVNT set;
  TemporaryFolder folder;
};

TEST_F(SwapAttackTest, AFolderSwappedForALinkInTheTreeLeadsNowhere) {
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    const std::string tree = folder.makeFolder("tree" + std::to_string(round));
    const std::string name = "tree" + std::to_string(round);
    for (int i = 0; i < 4; ++i) makeTree(name + "/before" + std::to_string(i));
    makeTree(name + "/folder");
    folder.makeLink(name + "/link", folder.path("outside"));
    {
      const Swapper swapper(tree + "/folder", tree + "/link");
      swapper.waitUntilAtWork();
      set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, nullptr);
    }
    expectOutsideUntouched();
    // Left alone, the rest can go.
    EXPECT_TRUE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, nullptr));
  }
}

TEST_F(SwapAttackTest, TheTopSwappedForALinkLeadsNowhere) {
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    const std::string tree = folder.path("tree");
    const std::string link = folder.path("link");
    if (!exists(tree)) makeTree("tree");
    if (!exists(link)) folder.makeLink("link", "outside");
    {
      const Swapper swapper(tree, link);
      swapper.waitUntilAtWork();
      set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, nullptr);
    }
    expectOutsideUntouched();
    set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, nullptr);
    set.enforceRecursiveRemovalOfFileSystemObjectAtPath(link, nullptr);
  }
}

TEST_F(SwapAttackTest, AnObjectSwappedForALinkLeadsNowhereInASingleRemoval) {
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    const std::string file = folder.path("file");
    const std::string link = folder.path("link");
    if (!exists(file)) folder.makeFile("file");
    if (!exists(link)) folder.makeLink("link", "outside/inner/file");
    {
      const Swapper swapper(file, link);
      swapper.waitUntilAtWork();
      set.enforceSingleRemovalOfFileSystemObjectAtPath(file, nullptr);
    }
    expectOutsideUntouched();
  }
}

}  // namespace
}  // namespace corvane
