#ifndef CORVANE_TESTS_SUPPORT_FUZZCORPUS_H
#define CORVANE_TESTS_SUPPORT_FUZZCORPUS_H

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>

#include <gtest/gtest.h>

namespace corvane {

/// Calls `check` with the bytes of every file of a folder of the corpus, and returns how many there
/// are.
template <typename Check>
int checkCorpus(const std::string& folder, Check check) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(FUZZ_CORPUS "/" + folder)) {
    SCOPED_TRACE(entry.path());
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    check(entry.path().filename().string(), std::as_bytes(std::span(content)));
    ++count;
  }
  return count;
}

}  // namespace corvane

#endif
