#ifndef CORVANE_OPERATIONSET_VNT_FOLDERWALK_H
#define CORVANE_OPERATIONSET_VNT_FOLDERWALK_H

#include <cstddef>
#include <optional>
#include <stop_token>

#include "foundation/Error.h"
#include "platform/FolderReader.h"

namespace corvane {

// Trees are walked that others may change at the same time, and they may want to see something gone
// that they could not delete themselves:
//
//   walk                                        owner of the tree
//   reads "sub" in /tree, a folder
//                                               puts a link to /etc there, or mounts something
//   opens "sub": no link is followed and no mount entered, so it fails
//   has opened "sub", deletes its entries
//                                               moves /tree/sub to /shared, where all may write
//                                               somebody else puts files into /shared/sub
//   compares what is above "sub" with what was above /tree, and fails
//
// The comparison is made each time entries have been read: what is visited was in the tree when it
// was read, and what came after a move is never seen. It is made again every so often, as entries
// that were read before a move can still go, and before a folder is left, as its name is then used.

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

/// The most folders that may be inside each other in a tree. Each costs up to 650 bytes of memory
/// while the walk is below it.
inline constexpr std::size_t maximumWalkDepth = 16384;

/// Visits every entry below the folder `name` of the open folder `parent`, on the calling thread
/// and, in a tree with enough folders, on up to `threads` - 1 more, which have ended when it
/// returns. The first failure ends the walk; what a visitor raises, too, and is raised again here.
///
/// No link is followed, no other file system entered; each thread holds few folders open, however
/// deep the tree, and what memory is needed depends on the depth only (ENAMETOOLONG beyond the
/// maximum). A folder that disappears is passed over; one that is moved out of `parent` while the
/// walk is in it, at any depth, makes the walk fail (ESTALE). Once `stop` is requested nothing more
/// is visited or left (ECANCELED).
std::optional<Error> walkFolder(int parent, const char* name, FolderVisitor& visitor,
                                unsigned threads, const std::stop_token& stop = {});

}  // namespace corvane

#endif
