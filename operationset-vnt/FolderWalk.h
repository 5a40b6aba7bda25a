#ifndef CORVANE_OPERATIONSET_VNT_FOLDERWALK_H
#define CORVANE_OPERATIONSET_VNT_FOLDERWALK_H

#include <memory>
#include <optional>

#include "foundation/Error.h"
#include "platform/FolderReader.h"

namespace corvane {

/// What a walk does where it comes to. Called on several threads at once.
class FolderVisitor {
 public:
  virtual ~FolderVisitor() = default;
  /// At an entry of the open folder `folder`, before the entries below it. Sets `descend` if there
  /// are any to walk to.
  virtual std::optional<Error> visit(int folder, const FolderEntry& entry, bool& descend) = 0;
  /// At the subfolder `name` of the open folder `folder` when the entries below it have been
  /// visited, save those that another thread is still busy with.
  virtual std::optional<Error> leave(int folder, const char* name) = 0;
};

/// Visits every entry below `folder`, on the calling thread and, in a tree with enough folders, on
/// up to `threads` - 1 more, which have ended when it returns. The first failure ends the walk.
///
/// No link is followed, no other file system entered; each thread holds few folders open, however
/// deep the tree, and what memory is needed depends on the depth only. A folder that disappears is
/// passed over, one that is moved while the walk is deep below it makes the walk fail (ESTALE).
std::optional<Error> walkFolder(std::shared_ptr<FolderReader> folder, FolderVisitor& visitor,
                                unsigned threads);

}  // namespace corvane

#endif
