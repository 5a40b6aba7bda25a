#ifndef CORVANE_TESTS_INSTALLATION_FILES_H
#define CORVANE_TESTS_INSTALLATION_FILES_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

namespace corvane {

inline void write(const std::string& path, const std::string& contents) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << contents;
}

inline std::string read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// All that is in a folder: paths, with the contents of files.
inline std::map<std::string, std::string> contentsOf(const std::string& folder) {
  std::map<std::string, std::string> all;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    all[entry.path()] = entry.is_regular_file() ? read(entry.path()) : "";
  }
  return all;
}

}  // namespace corvane

#endif
