#ifndef CORVANE_TESTS_SUPPORT_FILES_H
#define CORVANE_TESTS_SUPPORT_FILES_H

#include <map>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace corvane {

/// Throws std::system_error of the host's errno, about `what`, unless it was a success. So do the
/// functions below when they fail.
void require(bool success, const std::string& what);

/// True if there is an object at `path`, be it a link without a target.
bool exists(const std::string& path);

std::string contentOf(const std::string& path);

/// All that is in a folder and below: paths, with the contents of files and the targets of links.
std::map<std::string, std::string> contentsOf(const std::string& folder);

/// Makes or overwrites a file, whatever the mask, and makes the folders on the way to it.
void writeFile(const std::string& path, std::string_view content, mode_t permissions = 0644);

}  // namespace corvane

#endif
