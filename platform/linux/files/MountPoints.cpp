#include "platform/MountPoints.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace corvane {

namespace {

// The place of the mount point in a line of /proc/self/mountinfo.
constexpr int fieldsBefore = 4;

// Spaces and the like are written as "\040".
std::string unescaped(const std::string& text) {
  constexpr std::size_t digits = 3;
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + digits < text.size()) {
      plain += static_cast<char>(std::stoi(text.substr(i + 1, digits), nullptr, 8));
      i += digits;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

}  // namespace

std::vector<std::string> mountPointsIn(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code failure;
  const fs::path given(path);
  const fs::path folder = fs::canonical(given.parent_path(), failure);
  if (failure) return {};
  const std::string root = (folder / given.filename()).string();
  std::vector<std::string> found;
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string place;
    for (int field = 0; field <= fieldsBefore; ++field) fields >> place;
    place = unescaped(place);
    if (place == root || place.starts_with(root + "/")) found.push_back(place);
  }
  std::sort(found.begin(), found.end(), [](const std::string& a, const std::string& b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
  });
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

}  // namespace corvane
