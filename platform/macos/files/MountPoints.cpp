#include "platform/MountPoints.h"

#include <algorithm>
#include <filesystem>

#include <sys/mount.h>
#include <sys/param.h>

namespace corvane {

std::vector<std::string> mountPointsIn(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code failure;
  const fs::path given(path);
  const fs::path folder = fs::canonical(given.parent_path(), failure);
  if (failure) return {};
  const std::string root = (folder / given.filename()).string();
  const int count = ::getfsstat(nullptr, 0, MNT_NOWAIT);
  if (count <= 0) return {};
  std::vector<struct statfs> mounted(static_cast<std::size_t>(count));
  const int filled = ::getfsstat(
      mounted.data(), static_cast<int>(mounted.size() * sizeof(struct statfs)), MNT_NOWAIT);
  std::vector<std::string> found;
  for (int i = 0; i < std::min(filled, count); ++i) {
    const std::string place = mounted[static_cast<std::size_t>(i)].f_mntonname;
    if (place == root || place.starts_with(root + "/")) found.push_back(place);
  }
  std::sort(found.begin(), found.end(), [](const std::string& a, const std::string& b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
  });
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

}  // namespace corvane
