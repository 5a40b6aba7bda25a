#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_PROCESSIDENTITY_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_PROCESSIDENTITY_H

#include <cstdint>
#include <optional>
#include <variant>

#include <sys/types.h>

#include "foundation/Error.h"

namespace corvane {

/// One process, told apart from a later one that was given the same number, and the user it
/// belonged to when it was identified.
struct ProcessIdentity {
  pid_t pid;
  uid_t uid;
  /// In clock ticks since the system was started.
  std::uint64_t startTime;

  /// The calling process.
  static ProcessIdentity ofThisProcess();

  /// The process that connected the other end of `socket`, an AF_UNIX socket, by the kernel's word.
  /// An error if the process has ended, even if another has its number by now.
  static std::variant<ProcessIdentity, Error> ofPeer(int socket);

  /// True while this very process runs; one that only waits for its parent has ended.
  bool isRunning() const;

  bool operator==(const ProcessIdentity&) const = default;
};

/// When the process that has the number `pid` now was started; nothing if there is none that runs.
std::optional<std::uint64_t> processStartTime(pid_t pid);

}  // namespace corvane

#endif
