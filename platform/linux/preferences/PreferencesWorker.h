#ifndef CORVANE_PLATFORM_LINUX_PREFERENCES_PREFERENCESWORKER_H
#define CORVANE_PLATFORM_LINUX_PREFERENCES_PREFERENCESWORKER_H

#include <cstdint>

#include "platform/linux/preferences/PreferencesPlace.h"

namespace corvane {

enum class PreferencesAccess {
  Read,    ///< without a lock
  Change,  ///< locked, if the folders are there
  Create,  ///< locked, the folders made as needed
};

/// What the worker says: first what became of reading, and after a change what became of writing.
struct PreferencesReport {
  /// 0, or a number of `errno`.
  std::int32_t failure;
  /// After reading, 1 if there is a file.
  std::int32_t isThere;
  /// After reading, how many bytes of content are at the begin of the shared memory.
  std::uint64_t size;
};

/// The life of the child process; PreferencesFile.h says what it is for. A change, in time:
///
///     parent                                  worker
///                                             takes on the rights, opens the folder
///                                             takes the lock
///                                             copies the file into `memory`, and reports
///     makes the new content of the old,
///     puts it into `memory`, sends its size
///     (64 bits)
///                                             writes it to a new file, and gives that the old name
///                                             reports, and ends, which gives the lock back
///
/// A parent that closes the stream instead leaves the file as it is. Whoever else changes the file
/// waits for the lock, and a worker that is killed halfway leaves the old file in place. Run right
/// after a fork of a program with threads, so it makes system calls only. `memory` is a file
/// without a name; contents are passed in it since every piece sent through a socket would cost a
/// change of processes.
[[noreturn]] void runPreferencesWorker(const PreferencesPlace& place, PreferencesAccess access,
                                       int socket, int memory);

}  // namespace corvane

#endif
