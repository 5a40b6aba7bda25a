#ifndef CORVANE_PLATFORM_LINUX_PREFERENCES_PREFERENCESFILE_H
#define CORVANE_PLATFORM_LINUX_PREFERENCES_PREFERENCESFILE_H

#include <chrono>
#include <functional>
#include <optional>
#include <variant>

#include "foundation/Value.h"
#include "platform/linux/preferences/PreferencesPlace.h"

namespace corvane {

/// The files are touched by a child process that takes on the rights of the place, does nothing but
/// system calls, and is ended when it takes too long: a folder of a hostile user can at most waste
/// that time. What is in a file is only ever looked at here, in the calling process.

/// How long one of the functions below waits for the work of its child; the end of one that it
/// kills then is waited for a second more. With as many killed children left as there may be, the
/// functions fail at once with ETIMEDOUT.
inline constexpr std::chrono::seconds preferencesFileTimeout{10};

/// The content of the file, or nothing if there is none; else a number of `errno`.
using PreferencesContent = std::variant<std::optional<Data>, int>;
PreferencesContent readPreferencesFile(const PreferencesPlace& place);

/// Makes new content from the old (nothing if there is no file); nothing leaves the file alone.
using PreferencesChange = std::function<std::optional<Data>(const std::optional<Data>& content)>;

/// Changes the file with nobody else changing it meanwhile: a reader sees the old file or the new
/// one, and so does whoever looks after a crash. Makes missing folders if `mayCreate`; without, a
/// missing folder is a missing file. 0 on success, else a number of `errno`, with the old file in
/// place.
int changePreferencesFile(const PreferencesPlace& place, bool mayCreate,
                          const PreferencesChange& change);

}  // namespace corvane

#endif
