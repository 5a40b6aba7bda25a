#include <filesystem>
#include <set>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/FolderReader.h"
#include "tests/platform/macos/TestFolder.h"

namespace corvane {
namespace {

class FolderReaderTest : public testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < count; ++i) folder.makeFile("file-" + std::to_string(i));
  }

  // The next `most` names.
  static std::set<std::string> read(FolderReader& reader, int most) {
    std::set<std::string> names;
    std::optional<Error> error;
    for (int i = 0; i < most; ++i) {
      const FolderEntry* const entry = reader.next(error);
      if (entry == nullptr) break;
      EXPECT_TRUE(names.insert(entry->name).second) << entry->name << " appears twice";
    }
    EXPECT_FALSE(error);
    return names;
  }

  static constexpr int count = 500;
  TestFolder folder;
};

TEST_F(FolderReaderTest, EveryEntryAppearsOnceThoughThoseReadAreRemoved) {
  FolderReader reader(folder.open());
  std::set<std::string> names;
  std::optional<Error> error;
  while (const FolderEntry* const entry = reader.next(error)) {
    EXPECT_TRUE(names.insert(entry->name).second) << entry->name;
    EXPECT_EQ(entry->type, FileType::Other);
    EXPECT_EQ(::unlinkat(reader.folder(), entry->name, 0), 0);
  }
  EXPECT_FALSE(error);
  EXPECT_EQ(names.size(), std::size_t{count});
}

TEST_F(FolderReaderTest, AnotherReaderGoesOnWhereOneStoodThoughMuchWasRemoved) {
  FolderReader first(folder.open());
  const auto before = read(first, 200);
  FolderReader::Place place = first.takePlace();
  for (const std::string& name : before) ::unlinkat(first.folder(), name.c_str(), 0);
  FolderReader second(folder.open(), std::move(place));
  const auto after = read(second, count);
  EXPECT_EQ(before.size() + after.size(), std::size_t{count});
  for (const std::string& name : after) EXPECT_EQ(before.count(name), 0U) << name;
  EXPECT_TRUE(read(first, 1).empty()) << "who gave up the place reads nothing more";
}

TEST_F(FolderReaderTest, APlaceThatNothingWasReadBeforeIsTheBeginning) {
  FolderReader first(folder.open());
  FolderReader second(folder.open(), first.takePlace());
  EXPECT_EQ(read(second, count + 1).size(), std::size_t{count});
}

TEST_F(FolderReaderTest, ItTellsKindsAndWhenItHasJustRead) {
  TestFolder other;
  std::filesystem::create_directory(other.path("folder"));
  std::filesystem::create_symlink("nowhere", other.path("link"));
  FolderReader reader(other.open());
  std::optional<Error> error;
  const FolderEntry* entry = reader.next(error);
  ASSERT_NE(entry, nullptr);
  EXPECT_TRUE(reader.hasJustRead());
  const auto expected = [](const FolderEntry& e) {
    return std::string(e.name) == "folder" ? FileType::Directory : FileType::SymbolicLink;
  };
  EXPECT_EQ(entry->type, expected(*entry));
  entry = reader.next(error);
  ASSERT_NE(entry, nullptr);
  EXPECT_FALSE(reader.hasJustRead());
  EXPECT_EQ(entry->type, expected(*entry));
  EXPECT_EQ(reader.next(error), nullptr);
  EXPECT_FALSE(error);
}

TEST_F(FolderReaderTest, AFolderThatWasRemovedIsEmpty) {
  auto removed = std::make_unique<TestFolder>();
  FileDescriptor descriptor = removed->open();
  removed.reset();
  FolderReader reader(std::move(descriptor));
  EXPECT_TRUE(read(reader, 1).empty());
}

}  // namespace
}  // namespace corvane
