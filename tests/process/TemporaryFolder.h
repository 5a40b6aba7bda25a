#ifndef CORVANE_TESTS_PROCESS_TEMPORARYFOLDER_H
#define CORVANE_TESTS_PROCESS_TEMPORARYFOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include <sys/stat.h>

namespace corvane::tests {

/// A folder of mode 0755 that goes with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder() : _path(std::filesystem::temp_directory_path() / "corvane-test-XXXXXX") {
    if (mkdtemp(_path.data()) == nullptr) throw std::runtime_error("no temporary folder");
    chmod(_path.c_str(), 0755);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }

  const std::string& path() const { return _path; }
  std::string path(std::string_view name) const { return _path + "/" + std::string(name); }

  /// Adds a file, its folders included, and returns its path.
  std::string addFile(std::string_view name, std::string_view contents) const {
    std::string file = path(name);
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream(file, std::ios::binary) << contents;
    return file;
  }
  /// The same, a script that can be run.
  std::string addScript(std::string_view name, std::string_view contents) const {
    std::string file = addFile(name, "#!/bin/sh\n" + std::string(contents) + "\n");
    chmod(file.c_str(), 0755);
    return file;
  }

 private:
  std::string _path;
};

}  // namespace corvane::tests

#endif
