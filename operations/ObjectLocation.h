#ifndef CORVANE_OPERATIONS_OBJECTLOCATION_H
#define CORVANE_OPERATIONS_OBJECTLOCATION_H

#include <string>
#include <string_view>

#include "foundation/FileDescriptor.h"
#include "foundation/Result.h"
#include "platform/FileSystem.h"

namespace corvane {

/// Where an object stands: its name in a folder that is held open, so that whatever happens to the
/// path, the name is always looked up in the folder that the path led to.
struct ObjectLocation {
  FileDescriptor folder;
  std::string name;
  /// True if the path ended in a slash, and so names nothing but a directory.
  bool namesDirectory = false;
};

/// Resolves all of `path` but its last component. EINVAL for an empty path and for one that holds
/// a zero byte.
Result<ObjectLocation> locateObject(std::string_view path);

/// The status of the object itself, also if it is a symbolic link.
Result<FileStatus> statusOf(const ObjectLocation& location);

}  // namespace corvane

#endif
