#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/FolderReader.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

TEST(FolderReaderTest, AFolderThatWasRemovedHasNoEntries) {
  const TemporaryFolder folder;
  const std::string path = folder.makeFolder("gone");
  FolderReader reader(FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
  ASSERT_EQ(::rmdir(path.c_str()), 0);
  std::optional<Error> error;
  EXPECT_EQ(reader.next(error), nullptr);
  EXPECT_EQ(error, std::nullopt);
}

}  // namespace
}  // namespace corvane
