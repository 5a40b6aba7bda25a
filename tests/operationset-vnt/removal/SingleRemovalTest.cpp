#include <array>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "tests/support/Files.h"
#include "tests/support/Protection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

class SingleRemovalTest : public ProtectionTest {
 protected:
  std::optional<Error> remove(const std::string& path) {
    std::optional<Error> error;
    const bool removed = set.enforceSingleRemovalOfFileSystemObjectAtPath(path, &error);
    EXPECT_NE(removed, error.has_value());
    return error;
  }

  ZELPrivilegedOperationSetVNT set;
  TemporaryFolder folder;
};

// An error of the operation set, its entries in their order.
void expectError(const std::optional<Error>& error, std::int64_t code, const std::string& path,
                 const char* description, const char* recoveryTemplate) {
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), "com.corvane.error.privileged-operation");
  EXPECT_EQ(error->code(), code);
  const std::array<Dictionary::Entry, 4> expected = {{
      {"NSLocalizedDescription", description},
      {"ZELLocalizedRecoverySuggestionTemplate", recoveryTemplate},
      {"ZELLocalizedRecoverySuggestionParameters", Array{path}},
      {"NSFilePath", path},
  }};
  ASSERT_GE(error->userInfo().size(), expected.size());
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), error->userInfo().begin()));
}

TEST_F(SingleRemovalTest, RemovesFilesAndEmptyFolders) {
  const std::string file = folder.makeFile("file");
  const std::string empty = folder.makeFolder("empty");
  const std::string fifo = folder.makeFifo("fifo");
  EXPECT_EQ(remove(file), std::nullopt);
  EXPECT_EQ(remove(empty), std::nullopt);
  EXPECT_EQ(remove(fifo), std::nullopt);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(SingleRemovalTest, RemovesProtectedObjects) {
  for (const FileFlags flags : {FileFlag::UserImmutable, FileFlag::UserAppend,
                                FileFlag::UserImmutable | FileFlag::UserAppend}) {
    const std::string file = folder.makeFile("file");
    setKernelFlags(file, flags);
    EXPECT_EQ(remove(file), std::nullopt) << flags;
    EXPECT_FALSE(exists(file)) << flags;
    const std::string empty = folder.makeFolder("empty");
    setKernelFlags(empty, flags);
    EXPECT_EQ(remove(empty), std::nullopt) << flags;
    EXPECT_FALSE(exists(empty)) << flags;
  }
}

TEST_F(SingleRemovalTest, AFolderThatIsNotEmptyStays) {
  const std::string full = folder.makeFolder("full");
  folder.makeFile("full/file");
  EXPECT_EQ(remove(full), Error(NSPOSIXErrorDomain, 66));
  EXPECT_TRUE(exists(folder.path("full/file")));
}

TEST_F(SingleRemovalTest, AMissingObjectFails) {
  EXPECT_EQ(remove(folder.path("missing")), Error(NSPOSIXErrorDomain, 2));
  EXPECT_EQ(remove(folder.path("missing/file")), Error(NSPOSIXErrorDomain, 2));
}

TEST_F(SingleRemovalTest, ALinkIsRemovedItselfNeverItsTarget) {
  const std::string file = folder.makeFile("file");
  setKernelFlags(file, FileFlag::UserImmutable);
  const std::string target = folder.makeFolder("target");
  EXPECT_EQ(remove(folder.makeLink("to-file", "file")), std::nullopt);
  EXPECT_EQ(remove(folder.makeLink("to-folder", "target")), std::nullopt);
  EXPECT_EQ(remove(folder.makeLink("to-nothing", "nothing")), std::nullopt);
  EXPECT_FALSE(exists(folder.path("to-file")));
  EXPECT_FALSE(exists(folder.path("to-folder")));
  EXPECT_FALSE(exists(folder.path("to-nothing")));
  EXPECT_TRUE(exists(target));
  EXPECT_EQ(kernelFlags(file), FileFlag::UserImmutable);
}

TEST_F(SingleRemovalTest, ASlashAtTheEndAsksForAFolder) {
  const std::string file = folder.makeFile("file");
  const std::string target = folder.makeFolder("target");
  EXPECT_EQ(remove(file + "/"), Error(NSPOSIXErrorDomain, 20));
  EXPECT_EQ(remove(folder.makeLink("link", "target") + "/"), Error(NSPOSIXErrorDomain, 20));
  EXPECT_TRUE(exists(file));
  EXPECT_TRUE(exists(target));
  EXPECT_EQ(remove(target + "//"), std::nullopt);
  EXPECT_FALSE(exists(target));
}

TEST_F(SingleRemovalTest, AWhiteoutIsRefused) {
  const std::string path = folder.makeWhiteout("whiteout");
  const auto error = remove(path);
  expectError(error, 4, path,
              "It is not possible to delete a file system object of type 'whiteout'.",
              "Please check the type of the object located at '$1$'. Whiteouts cannot really exist "
              "in current versions of the operating system.");
  EXPECT_EQ(error->userInfo().size(), 4U);
  EXPECT_TRUE(exists(path));
}

TEST_F(SingleRemovalTest, SystemFlagsNeedSingleUserModeAndUserFlagsStay) {
  int count = 0;
  for (const FileFlags flags :
       {FileFlag::SystemImmutable, FileFlag::SystemAppend,
        FileFlag::SystemImmutable | FileFlag::UserImmutable,
        FileFlag::SystemAppend | FileFlag::UserAppend | FileFlag::UserImmutable}) {
    const std::string path = folder.makeFile("file" + std::to_string(++count));
    ASSERT_EQ(changeFileFlags(path, flags), std::nullopt);
    const auto error = remove(path);
    expectError(error, 6, path, "Single User Mode is required to remove this object.",
                "The object located at '$1$' uses special protection which should only be "
                "deactivated when the system is not in full operation. Please restart the "
                "operating system in Single User Mode and remove the protection attribute.");
    EXPECT_EQ(error->userInfo().size(), 4U);
    EXPECT_EQ(fileFlags(path), flags);
  }
}

constexpr const char* integrityProtectionDescription =
    "Your computer is protecting this file system object.";
constexpr const char* integrityProtectionTemplate =
    "The object at '$1$' cannot be modified because System Integrity Protection is active on this "
    "computer. It might be possible to deactivate this feature by changing a hardware setting via "
    "the recovery operating system. Please see the reference manual for more information.";

TEST_F(SingleRemovalTest, ARestrictedObjectStaysAndTheErrorSaysWhy) {
  const std::string path = folder.makeFile("file");
  ASSERT_EQ(changeFileFlags(path, FileFlag::Restricted), std::nullopt);
  const auto error = remove(path);
  expectError(error, 8, path, integrityProtectionDescription, integrityProtectionTemplate);
  ASSERT_EQ(error->userInfo().size(), 5U);
  const Dictionary::Entry& last = *(error->userInfo().end() - 1);
  EXPECT_EQ(last.first, "NSUnderlyingError");
  EXPECT_EQ(last.second, Value(Error(NSPOSIXErrorDomain, 1)));
  EXPECT_TRUE(exists(path));
}

TEST_F(SingleRemovalTest, ARestrictedObjectKeepsItsUserFlags) {
  const std::string path = folder.makeFile("file");
  ASSERT_EQ(changeFileFlags(path, FileFlag::Restricted | FileFlag::UserImmutable), std::nullopt);
  expectError(remove(path), 5, path, "The operating system could not change protection flags.",
              "Please check if the file system storing the object '$1$' is working properly.");
  EXPECT_EQ(fileFlags(path), FileFlag::Restricted | FileFlag::UserImmutable);
}

TEST_F(SingleRemovalTest, AFolderProtectedAboveTheObjectIsNoIntegrityProtection) {
  const std::string parent = folder.makeFolder("parent");
  const std::string path = folder.makeFile("parent/file");
  setKernelFlags(parent, FileFlag::UserImmutable);
  EXPECT_EQ(remove(path), Error(NSPOSIXErrorDomain, 1));
  EXPECT_TRUE(exists(path));
}

TEST_F(SingleRemovalTest, TheIntegrityProtectionTestRefinesOnlyErrorsOfRestrictedObjects) {
  const std::string plain = folder.makeFile("plain");
  const std::string restricted = folder.makeFile("restricted");
  ASSERT_EQ(changeFileFlags(restricted, FileFlag::Restricted), std::nullopt);
  const Error before = posixError(POSIXErrorCode::Busy);
  std::optional<Error> error = before;
  EXPECT_FALSE(set.isSIPRestrictedObjectAtPath(plain, &error));
  EXPECT_FALSE(set.isSIPRestrictedObjectAtPath(folder.path("missing"), &error));
  EXPECT_EQ(error, before);
  EXPECT_TRUE(set.isSIPRestrictedObjectAtPath(restricted, nullptr));
  EXPECT_TRUE(set.isSIPRestrictedObjectAtPath(restricted, &error));
  expectError(error, 8, restricted, integrityProtectionDescription, integrityProtectionTemplate);
  EXPECT_EQ(*error->userInfo().find(NSUnderlyingErrorKey), Value(before));
  error.reset();
  EXPECT_TRUE(set.isSIPRestrictedObjectAtPath(restricted, &error));
  EXPECT_EQ(error->userInfo().size(), 4U);
}

TEST_F(SingleRemovalTest, TheRootIsNotRemoved) {
  EXPECT_EQ(remove("/"), Error(NSPOSIXErrorDomain, 16));
  EXPECT_EQ(remove(folder.path(".")), Error(NSPOSIXErrorDomain, 22));
  EXPECT_EQ(remove(folder.makeFolder("sub") + "/.."), Error(NSPOSIXErrorDomain, 66));
}

TEST_F(SingleRemovalTest, FlagsStayClearedWhereTheRemovalFailsAfterwards) {
  const std::string full = folder.makeFolder("full");
  folder.makeFile("full/file");
  setKernelFlags(full, FileFlag::UserImmutable | FileFlag::UserAppend);
  EXPECT_EQ(remove(full), Error(NSPOSIXErrorDomain, 66));
  EXPECT_EQ(kernelFlags(full), 0U);
}

TEST_F(SingleRemovalTest, AFolderOnTheWayNeedNotBeReadable) {
  const std::string parent = folder.makeFolder("parent");
  const std::string file = folder.makeFile("parent/file");
  const uid_t somebodyElse = 65534;
  ASSERT_EQ(::chown(parent.c_str(), somebodyElse, somebodyElse), 0);
  ASSERT_EQ(::chmod(parent.c_str(), 0311), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::_exit(::setuid(somebodyElse) == 0 && remove(file) == std::nullopt ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(exists(file));
}

TEST_F(SingleRemovalTest, AFileOnTheWayIsNoFolder) {
  EXPECT_EQ(remove(folder.makeFile("file") + "/below"), Error(NSPOSIXErrorDomain, 20));
}

}  // namespace
}  // namespace corvane
