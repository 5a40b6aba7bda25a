#include <filesystem>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"
#include "tests/platform/macos/TestFolder.h"

namespace corvane {
namespace {

class FilesTest : public testing::Test {
 protected:
  void SetUp() override {
    folder.makeFile("file");
    std::filesystem::create_directory(folder.path("folder"));
    std::filesystem::create_symlink("folder", folder.path("link"));
    opened = folder.open();
  }

  FileStatus status(const char* name, FinalLink link) const {
    FileStatus found;
    EXPECT_FALSE(statusOf(opened.get(), name, link, found)) << name;
    return found;
  }

  TestFolder folder;
  FileDescriptor opened;
};

TEST_F(FilesTest, ObjectsAreToldByTheirKind) {
  EXPECT_EQ(status("file", FinalLink::Keep).type, FileType::Other);
  EXPECT_EQ(status("folder", FinalLink::Keep).type, FileType::Directory);
  EXPECT_EQ(status("link", FinalLink::Keep).type, FileType::SymbolicLink);
  EXPECT_EQ(status("link", FinalLink::Follow).type, FileType::Directory);
  EXPECT_EQ(status("link", FinalLink::Follow).identity, status("folder", FinalLink::Keep).identity);
}

TEST_F(FilesTest, WhereAFileSystemIsMountedIsTold) {
  EXPECT_FALSE(status("folder", FinalLink::Keep).isMountPoint);
  FileStatus found;
  ASSERT_FALSE(statusOf(AT_FDCWD, "/proc", FinalLink::Keep, found));
  EXPECT_TRUE(found.isMountPoint);
}

TEST_F(FilesTest, WhatIsNotThereIsAnErrorOfTheSystemsNumber) {
  FileStatus found;
  const auto error = statusOf(opened.get(), "nothing", FinalLink::Keep, found);
  ASSERT_TRUE(error);
  EXPECT_EQ(*error, posixError(POSIXErrorCode::NoEntry));
}

TEST_F(FilesTest, ASubfolderIsOpenedAndALinkOrAMountPointIsNot) {
  FileDescriptor subfolder;
  ASSERT_FALSE(openFolder(opened.get(), "folder", subfolder));
  EXPECT_EQ(openFolder(opened.get(), "link", subfolder), posixError(POSIXErrorCode::NotDirectory));
  EXPECT_EQ(openFolder(opened.get(), "file", subfolder), posixError(POSIXErrorCode::NotDirectory));
  EXPECT_EQ(openFolder(AT_FDCWD, "/proc", subfolder), posixError(POSIXErrorCode::Busy));
  FileIdentity above;
  ASSERT_FALSE(ancestorOf(subfolder.get(), 1, above));
  EXPECT_EQ(above, status(".", FinalLink::Keep).identity);
}

TEST_F(FilesTest, AnAncestorManyLevelsUpIsFound) {
  std::string name = "folder";
  for (int level = 0; level < 299; ++level) {
    name += "/a";
    std::filesystem::create_directory(folder.path(name));
  }
  FileDescriptor deepest;
  ASSERT_FALSE(holdFolder(folder.path(name).c_str(), deepest));
  FileIdentity found;
  ASSERT_FALSE(ancestorOf(deepest.get(), 300, found));
  EXPECT_EQ(found, status(".", FinalLink::Keep).identity);
  ASSERT_FALSE(ancestorOf(deepest.get(), 0, found));
  EXPECT_EQ(found, status(name.c_str(), FinalLink::Keep).identity);
}

TEST_F(FilesTest, FlagsThatAreAlreadySoAreASuccess) {
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  for (const char* name : {"file", "folder", "link", "fifo"}) {
    EXPECT_FALSE(
        changeFlags(opened.get(), name, FinalLink::Keep, FileFlag::UserImmutable, FileFlags{}))
        << name;
  }
}

TEST_F(FilesTest, FilesAndFoldersAreRemoved) {
  EXPECT_EQ(removeFolder(opened.get(), "file"), posixError(POSIXErrorCode::NotDirectory));
  EXPECT_FALSE(removeFile(opened.get(), "file"));
  EXPECT_FALSE(removeFile(opened.get(), "link"));
  EXPECT_FALSE(removeFolder(opened.get(), "folder"));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

}  // namespace
}  // namespace corvane
