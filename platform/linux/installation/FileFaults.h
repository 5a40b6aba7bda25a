#ifndef CORVANE_PLATFORM_LINUX_INSTALLATION_FILEFAULTS_H
#define CORVANE_PLATFORM_LINUX_INSTALLATION_FILEFAULTS_H

#include <optional>
#include <string>

#include <sys/types.h>

namespace corvane {

/// What keeps the object at `path` from being a file of root's with `permissions`, in words that
/// follow the path. What is in it is not looked at.
std::optional<std::string> faultOfFile(const std::string& path, mode_t permissions);

}  // namespace corvane

#endif
