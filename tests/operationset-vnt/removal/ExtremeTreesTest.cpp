#include <climits>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "operationset-vnt/FolderWalk.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/FileSystem.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

// Leaves the process few descriptors while it lives.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t limit) {
    ::getrlimit(RLIMIT_NOFILE, &_before);
    const rlimit fewer = {limit, _before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &fewer);
  }
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &_before); }

 private:
  rlimit _before{};
};

FileDescriptor makeSubfolder(int parent, const std::string& name) {
  EXPECT_EQ(::mkdirat(parent, name.c_str(), 0755), 0) << name;
  return FileDescriptor(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

FileDescriptor makeFileIn(int folder, const std::string& name) {
  FileDescriptor file(
      ::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  EXPECT_TRUE(file) << name;
  return file;
}

void protect(int folder, const std::string& name) {
  EXPECT_EQ(changeFlags(folder, name.c_str(), FinalLink::Keep, 0, FileFlag::UserImmutable),
            std::nullopt);
}

class ExtremeTreesTest : public ProtectionTest {
 protected:
  // A chain of folders with files at every level, longer than any path; the last is protected.
  void makeChain(const std::string& path, int depth) const {
    FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < depth; ++i) {
      makeFileIn(folder.get(), "before");
      FileDescriptor next = makeSubfolder(folder.get(), "a folder");
      makeFileIn(folder.get(), "later");
      folder = std::move(next);
    }
    makeFileIn(folder.get(), "file");
    protect(folder.get(), "file");
    protect(folder.get(), ".");
  }

  bool remove(const std::string& path) {
    std::optional<Error> error;
    const bool removed = set.enforceRecursiveRemovalOfFileSystemObjectAtPath(path, &error);
    EXPECT_EQ(error, std::nullopt);
    return removed && !exists(path);
  }

  ZELPrivilegedOperationSetVNT set;
  TemporaryFolder folder{parentForManyFiles()};
};

TEST_F(ExtremeTreesTest, ATreeDeeperThanAnyPathIsRemovedWithFewDescriptors) {
  const std::string tree = folder.makeFolder("tree");
  constexpr int depth = 5000;
  static_assert(depth * 9 > PATH_MAX);
  makeChain(tree, depth);
  const DescriptorLimit limit(24);
  EXPECT_TRUE(remove(tree));
}

TEST_F(ExtremeTreesTest, ATreeThatIsTooDeepFailsBeforeAnythingIsDeleted) {
  const std::string tree = folder.makeFolder("tree");
  // The top is one of them.
  FileDescriptor deepest(::open(tree.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::string name(4, 'd');
  for (std::size_t depth = 1; depth <= maximumWalkDepth; ++depth) {
    deepest = makeSubfolder(deepest.get(), name);
  }
  makeFileIn(deepest.get(), "file");
  std::optional<Error> error;
  EXPECT_FALSE(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, &error));
  EXPECT_EQ(error, Error(NSPOSIXErrorDomain, 63));
  EXPECT_EQ(::faccessat(deepest.get(), "file", F_OK, 0), 0);
  deepest.reset();
  // One less is not too many, and what is in the way can be moved.
  ASSERT_EQ(::rename((tree + "/" + name).c_str(), folder.path("rest").c_str()), 0);
  EXPECT_TRUE(remove(folder.path("rest")));
}

TEST_F(ExtremeTreesTest, ManyDeepTreesAreRemovedWithFewDescriptorsOnSeveralThreads) {
  const std::string tree = folder.makeFolder("tree");
  for (int i = 0; i < 40; ++i) {
    makeChain(folder.makeFolder("tree/" + std::to_string(i)), 60);
  }
  const DescriptorLimit limit(48);
  EXPECT_TRUE(remove(tree));
}

TEST_F(ExtremeTreesTest, NamesMayHoldAnyByte) {
  const std::string tree = folder.makeFolder("tree");
  const FileDescriptor top(::open(tree.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int byte = 1; byte < 256; ++byte) {
    const std::string name(1, static_cast<char>(byte));
    if (name == "." || name == "/") continue;
    makeFileIn(makeSubfolder(top.get(), name).get(), name);
  }
  for (const std::string& name :
       {std::string("..."), std::string("-rf"), std::string("a\nb"), std::string(255, '\xff')}) {
    const FileDescriptor inner = makeSubfolder(top.get(), name);
    makeFileIn(inner.get(), name);
    protect(inner.get(), name);
  }
  EXPECT_TRUE(remove(tree));
}

TEST_F(ExtremeTreesTest, AFolderWithMoreEntriesThanABufferHoldsIsRemoved) {
  const std::string tree = folder.makeFolder("tree");
  for (int i = 0; i < 3000; ++i) folder.makeFile("tree/file " + std::to_string(i));
  for (int i = 0; i < 500; ++i) folder.makeFolder("tree/folder " + std::to_string(i));
  EXPECT_TRUE(remove(tree));
}

// In a process of its own, removes a tree of this many files; its peak memory in KiB.
long peakMemoryOfRemoving(const TemporaryFolder& folder, int folders, int files) {
  const std::string tree = folder.makeFolder("tree" + std::to_string(folders));
  const FileDescriptor top(::open(tree.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int i = 0; i < folders; ++i) {
    const FileDescriptor sub = makeSubfolder(top.get(), std::to_string(i));
    for (int j = 0; j < files; ++j) makeFileIn(sub.get(), std::to_string(j));
  }
  const pid_t process = ::fork();
  if (process == 0) {
    ZELPrivilegedOperationSetVNT set;
    ::_exit(set.enforceRecursiveRemovalOfFileSystemObjectAtPath(tree, nullptr) ? 0 : 1);
  }
  int status = 0;
  rusage usage{};
  EXPECT_EQ(::wait4(process, &status, 0, &usage), process);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(exists(tree));
  return usage.ru_maxrss;
}

TEST_F(ExtremeTreesTest, MemoryDoesNotGrowWithTheNumberOfEntries) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's own memory grows";
#endif
  const long few = peakMemoryOfRemoving(folder, 100, 10);
  const long many = peakMemoryOfRemoving(folder, 1000, 100);
  EXPECT_LT(many, few + 1024);
}

}  // namespace
}  // namespace corvane
