#include "platform/posix/MountedPlaces.h"

#include <algorithm>

#include <sys/mount.h>
#include <sys/param.h>

namespace corvane {

std::vector<std::string> mountedPlaces() {
  const int count = ::getfsstat(nullptr, 0, MNT_NOWAIT);
  if (count <= 0) return {};
  std::vector<struct statfs> mounted(static_cast<std::size_t>(count));
  const int filled = ::getfsstat(
      mounted.data(), static_cast<int>(mounted.size() * sizeof(struct statfs)), MNT_NOWAIT);
  std::vector<std::string> places;
  for (int i = 0; i < std::min(filled, count); ++i) {
    places.emplace_back(mounted[static_cast<std::size_t>(i)].f_mntonname);
  }
  return places;
}

}  // namespace corvane
