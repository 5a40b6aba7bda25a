#ifndef CORVANE_PLATFORM_POSIX_MOUNTEDPLACES_H
#define CORVANE_PLATFORM_POSIX_MOUNTEDPLACES_H

#include <string>
#include <vector>

namespace corvane {

/// Where file systems are mounted, as this process sees them, in any order and maybe more than
/// once. Nothing if it cannot be told.
std::vector<std::string> mountedPlaces();

}  // namespace corvane

#endif
