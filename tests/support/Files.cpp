#include "tests/support/Files.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include <sys/stat.h>

namespace corvane {

namespace fs = std::filesystem;

void require(bool success, const std::string& what) {
  if (!success) throw std::system_error(errno, std::generic_category(), what);
}

bool exists(const std::string& path) {
  struct stat attributes {};
  return ::lstat(path.c_str(), &attributes) == 0;
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  require(file.is_open(), path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::map<std::string, std::string> contentsOf(const std::string& folder) {
  std::map<std::string, std::string> all;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    std::string& content = all[entry.path()];
    if (entry.is_symlink()) {
      content = fs::read_symlink(entry.path());
    } else if (entry.is_regular_file()) {
      content = contentOf(entry.path());
    }
  }
  return all;
}

void writeFile(const std::string& path, std::string_view content, mode_t permissions) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream file(path, std::ios::binary);
  require(file.is_open(), path);
  file << content;
  file.close();
  require(file.good() && ::chmod(path.c_str(), permissions) == 0, path);
}

}  // namespace corvane
