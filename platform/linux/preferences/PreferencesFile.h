#ifndef CORVANE_PLATFORM_LINUX_PREFERENCES_PREFERENCESFILE_H
#define CORVANE_PLATFORM_LINUX_PREFERENCES_PREFERENCESFILE_H

#include <chrono>
#include <functional>
#include <optional>

#include "foundation/Result.h"
#include "foundation/Value.h"
#include "platform/linux/preferences/PreferencesPlace.h"

namespace corvane {

/// The daemon is root, and the file is in a folder of a user who may want something of it:
///
///     daemon                                  owner of the folder
///     looks at the file: it is plain
///                                             puts a link to a file of root's in its place
///     opens it and writes there, as root
///                                             puts a fifo in its place, or mounts a file system
///                                             that never answers
///     opens it and hangs, with the request, and cannot be ended
///
/// So the files are touched by a child process. It takes on the rights of the user, which makes the
/// first useless; follows no link, and looks again at what it has opened; does nothing but system
/// calls, and is killed when it takes too long, so that the second wastes ten seconds. Even then it
/// may not end: it is left behind, and there may be few of these. What is in a file is only ever
/// looked at here, in the calling process.

/// How long one of the functions below waits for the work of its child; the end of one that it
/// kills then is waited for a second more. With as many killed children left as there may be, the
/// functions fail at once with ETIMEDOUT.
inline constexpr std::chrono::seconds preferencesFileTimeout{10};

/// The content of a file; nothing if there is no file.
using PreferencesContent = std::optional<Data>;
Result<PreferencesContent> readPreferencesFile(const PreferencesPlace& place);

/// Makes new content from the old; nothing, as well as a failure, leaves the file alone.
using PreferencesChange = std::function<Result<PreferencesContent>(const PreferencesContent& old)>;

/// Changes the file with nobody else changing it meanwhile: a reader sees the old file or the new
/// one, and so does whoever looks after a crash. Makes missing folders if `mayCreate`; without, a
/// missing folder is a missing file. After a failure, that of `change` too, the old file is in
/// place.
Result<void> changePreferencesFile(const PreferencesPlace& place, bool mayCreate,
                                   const PreferencesChange& change);

}  // namespace corvane

#endif
