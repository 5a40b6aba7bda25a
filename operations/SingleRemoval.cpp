#include "operations/SingleRemoval.h"

namespace corvane {

namespace {

// Flags are read from and written to one open object, not twice to a name.
std::optional<Error> clearUserFlags(const ObjectLocation& location) {
  FileDescriptor object;
  if (auto error =
          openObject(location.folder.get(), location.name.c_str(), FinalLink::Keep, object)) {
    return error;
  }
  FileStatus status;
  if (auto error = fstat(object.get(), status)) return error;
  return chflags(object.get(), status.flags & ~(UF_IMMUTABLE | UF_APPEND));
}

}  // namespace

std::optional<SingleRemovalFailure> removeSingleObject(const ObjectLocation& location) {
  using Reason = SingleRemovalFailure::Reason;
  FileStatus status;
  if (auto error = lstat(location, status)) return SingleRemovalFailure{Reason::System, error};
  if (status.type == FileType::Whiteout) return SingleRemovalFailure{Reason::Whiteout, {}};
  if ((status.flags & (SF_IMMUTABLE | SF_APPEND)) != 0) {
    return SingleRemovalFailure{Reason::SystemFlags, {}};
  }
  if ((status.flags & (UF_IMMUTABLE | UF_APPEND)) != 0) {
    if (auto error = clearUserFlags(location)) {
      return SingleRemovalFailure{Reason::FlagsKept, error};
    }
  }
  const auto remove = status.type == FileType::Directory ? rmdir : unlink;
  if (auto error = remove(location.folder.get(), location.name.c_str())) {
    return SingleRemovalFailure{Reason::System, error};
  }
  return std::nullopt;
}

}  // namespace corvane
