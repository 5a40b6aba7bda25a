#ifndef CORVANE_PLATFORM_LINUX_INSTALLATION_DEBIANPACKAGE_H
#define CORVANE_PLATFORM_LINUX_INSTALLATION_DEBIANPACKAGE_H

#include <optional>
#include <set>
#include <string>

namespace corvane {

/// The package that `path` belongs to on the system whose root is `root`, whether the file is there
/// or not; nothing for a file of none, or where there is no dpkg.
std::optional<std::string> packageOf(const std::string& path, const std::string& root);

/// Those files of a package that are missing, or whose contents are not what came with it.
std::set<std::string> changedFilesOf(const std::string& package, const std::string& root);

}  // namespace corvane

#endif
