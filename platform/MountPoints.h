#ifndef CORVANE_PLATFORM_MOUNTPOINTS_H
#define CORVANE_PLATFORM_MOUNTPOINTS_H

#include <string>
#include <vector>

namespace corvane {

/// Where file systems are mounted at the absolute `path` and inside of it, as this process sees
/// them: the one nearest to the root of the tree first, each of them once. Links on the way to the
/// last component are followed. Nothing if it cannot be told.
std::vector<std::string> mountPointsIn(const std::string& path);

}  // namespace corvane

#endif
