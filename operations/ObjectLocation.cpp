#include "operations/ObjectLocation.h"

#include "foundation/POSIXError.h"

namespace corvane {

Result<ObjectLocation> locateObject(std::string_view path) {
  if (path.empty() || path.find('\0') != std::string_view::npos) {
    return posixError(POSIXErrorCode::Invalid);
  }
  ObjectLocation location;
  const std::size_t end = path.find_last_not_of('/');
  if (end == std::string_view::npos) {
    // The root is in no folder, but "/" leads to it from whichever folder is open.
    location.name = "/";
    path = {};
  } else {
    location.namesDirectory = end + 1 < path.size();
    path = path.substr(0, end + 1);
    const std::size_t slash = path.rfind('/');
    const std::size_t name = slash == std::string_view::npos ? 0 : slash + 1;
    location.name = path.substr(name);
    path = path.substr(0, name);
  }
  const std::string folder(path.empty() ? "." : path);
  if (auto error = holdFolder(folder.c_str(), location.folder)) return *error;
  return location;
}

Result<FileStatus> statusOf(const ObjectLocation& location) {
  const char* name = location.name.c_str();
  FileStatus status;
  if (auto error = statusOf(location.folder.get(), name, FinalLink::Keep, status)) return *error;
  if (location.namesDirectory && status.type != FileType::Directory) {
    return posixError(POSIXErrorCode::NotDirectory);
  }
  return status;
}

}  // namespace corvane
