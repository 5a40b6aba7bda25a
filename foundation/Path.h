#ifndef CORVANE_FOUNDATION_PATH_H
#define CORVANE_FOUNDATION_PATH_H

#include <string>
#include <string_view>

namespace corvane {

/// The last component of `path`, without slashes at its end: "b" of "/a/b/". The root is its own
/// last component; an empty path has an empty one.
std::string lastPathComponent(std::string_view path);

/// `path` without its last component and the slashes before it: "/a" of "/a/b/". The folder of the
/// root, and of what lies in it, is the root; that of a lone component is empty.
std::string deletingLastPathComponent(std::string_view path);

}  // namespace corvane

#endif
