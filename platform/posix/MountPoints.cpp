#include "platform/MountPoints.h"

#include <algorithm>
#include <filesystem>

#include "platform/posix/MountedPlaces.h"

namespace corvane {

std::vector<std::string> mountPointsIn(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code failure;
  const fs::path given(path);
  const fs::path folder = fs::canonical(given.parent_path(), failure);
  if (failure) return {};
  const std::string root = (folder / given.filename()).string();
  std::vector<std::string> found = mountedPlaces();
  std::erase_if(found, [&root](const std::string& place) {
    return place != root && !place.starts_with(root + "/");
  });
  std::sort(found.begin(), found.end(), [](const std::string& a, const std::string& b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
  });
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

}  // namespace corvane
