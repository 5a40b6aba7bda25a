#ifndef CORVANE_PLATFORM_LINUX_FILES_OPENOBJECT_H
#define CORVANE_PLATFORM_LINUX_FILES_OPENOBJECT_H

#include <optional>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"
#include "platform/FileSystem.h"

namespace corvane {

/// Gets hold of an object, of whatever type, without opening what it stands for.
std::optional<Error> openObject(int folder, const char* name, FinalLink link,
                                FileDescriptor& object);

/// The status of what `openObject` has got hold of.
std::optional<Error> statusOfObject(int object, FileStatus& status);

}  // namespace corvane

#endif
