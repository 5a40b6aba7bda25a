#include "operations/SingleRemoval.h"

namespace corvane {

namespace {

constexpr FileFlags userFlags = FileFlag::UserImmutable | FileFlag::UserAppend;
constexpr FileFlags systemFlags = FileFlag::SystemImmutable | FileFlag::SystemAppend;

}  // namespace

std::optional<SingleRemovalFailure> removeSingleObject(const ObjectLocation& location) {
  using Reason = SingleRemovalFailure::Reason;
  const Result<FileStatus> status = statusOf(location);
  if (!status) return SingleRemovalFailure{Reason::System, status.error()};
  if (status->type == FileType::Whiteout) return SingleRemovalFailure{Reason::Whiteout, {}};
  if ((status->flags & systemFlags) != 0) {
    return SingleRemovalFailure{Reason::SystemFlags, {}};
  }
  const int folder = location.folder.get();
  const char* name = location.name.c_str();
  if ((status->flags & userFlags) != 0) {
    if (auto error = changeFlags(folder, name, FinalLink::Keep, userFlags, 0)) {
      return SingleRemovalFailure{Reason::FlagsKept, error};
    }
  }
  const auto remove = status->type == FileType::Directory ? removeFolder : removeFile;
  if (auto error = remove(folder, name)) {
    return SingleRemovalFailure{Reason::System, error};
  }
  return std::nullopt;
}

}  // namespace corvane
