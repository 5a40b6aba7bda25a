#ifndef CORVANE_PLATFORM_SYSTEMVERSION_H
#define CORVANE_PLATFORM_SYSTEMVERSION_H

#include <string>

namespace corvane {

/// The path of the property list in which the operating system says what it is. A system that has
/// no such file is one of unknown version.
std::string systemVersionPath();

}  // namespace corvane

#endif
