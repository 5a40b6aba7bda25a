#ifndef CORVANE_PLATFORM_LINUX_PREFERENCESWORKER_H
#define CORVANE_PLATFORM_LINUX_PREFERENCESWORKER_H

#include <cstdint>

#include "platform/linux/PreferencesPlace.h"

namespace corvane {

enum class PreferencesAccess {
  Read,    ///< without a lock
  Change,  ///< locked, if the folders are there
  Create,  ///< locked, the folders made as needed
};

/// What the worker says: first what became of reading, followed by the content if there is one, and
/// after a change what became of writing.
struct PreferencesReport {
  /// 0, or a number of `errno`.
  std::int32_t failure;
  /// After reading, 1 if there is a file.
  std::int32_t isThere;
  /// After reading, the bytes of the content that follow.
  std::uint64_t size;
};

/// The life of the child process: takes on the rights, reads and reports, and with a lock waits for
/// the size (64 bits) and bytes of the new content or for the end of the stream, which means that
/// the file stays. Run right after a fork of a program with threads, so it makes system calls only.
[[noreturn]] void runPreferencesWorker(const PreferencesPlace& place, PreferencesAccess access,
                                       int socket);

}  // namespace corvane

#endif
