#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "fuzz/PropertyListChecks.h"

namespace corvane {
namespace {

/// Checks every file of a folder of the corpus, and returns how many there are.
int checkAll(const std::string& folder, void (*check)(std::span<const std::byte>)) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(FUZZ_CORPUS "/" + folder)) {
    SCOPED_TRACE(entry.path());
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    check(std::as_bytes(std::span(content)));
    ++count;
  }
  return count;
}

TEST(FuzzCorpusTest, NoPropertyListBreaksTheReader) {
  EXPECT_GT(checkAll("property-list", checkPropertyList), 0);
}

TEST(FuzzCorpusTest, NoStringsTableBreaksTheReader) {
  EXPECT_GT(checkAll("strings", checkOldStyle), 0);
}

}  // namespace
}  // namespace corvane
