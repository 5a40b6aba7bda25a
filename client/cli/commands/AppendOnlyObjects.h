#ifndef CORVANE_CLIENT_CLI_COMMANDS_APPENDONLYOBJECTS_H
#define CORVANE_CLIENT_CLI_COMMANDS_APPENDONLYOBJECTS_H

#include <string>
#include <vector>

namespace corvane::cli {

/// What is append-only at and below the paths, folders before what is in them; empty if anything is
/// met that no deletion can remove.
///
/// Goes only where nobody but root and the calling user can make a path found here lead elsewhere
/// later, and to no other file system. Shows only what this user may see.
std::vector<std::string> appendOnlyObjects(const std::vector<std::string>& paths);

}  // namespace corvane::cli

#endif
