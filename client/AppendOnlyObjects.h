#ifndef CORVANE_CLIENT_APPENDONLYOBJECTS_H
#define CORVANE_CLIENT_APPENDONLYOBJECTS_H

#include <string>
#include <vector>

namespace corvane {

/// What is append-only at and below a path, as far as this user sees it.
struct AppendOnlyObjects {
  /// Those whose paths surely lead to them, folders before what is in them: goes only where nobody
  /// but root and the calling user can make a path found here lead elsewhere later.
  std::vector<std::string> reachable;
  /// There are others: where somebody else can, or with a name that cannot be sent.
  bool areOthersThere = false;
  /// Something is met that no deletion can remove.
  bool areInVain = false;
};
/// Goes to no other file system.
AppendOnlyObjects appendOnlyObjects(const std::string& path);

/// Makes what is append-only at and below `path` ordinary, for a process that may: true if anything
/// was. Follows no link below the path's folder and goes to no other file system, so it does not
/// matter whose the folders are.
bool clearAppendOnlyFlags(const std::string& path);

}  // namespace corvane

#endif
