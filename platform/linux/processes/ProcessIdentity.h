#ifndef CORVANE_PLATFORM_LINUX_PROCESSES_PROCESSIDENTITY_H
#define CORVANE_PLATFORM_LINUX_PROCESSES_PROCESSIDENTITY_H

#include <cstdint>
#include <optional>
#include <utility>

#include <sys/types.h>

#include "foundation/FileDescriptor.h"
#include "foundation/Result.h"

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

  /// True while this very process runs; one that only waits for its parent has ended.
  bool isRunning() const;

  bool operator==(const ProcessIdentity&) const = default;
};

/// A process that is held on to, so that asking whether it still runs costs little.
class WatchedProcess {
 public:
  /// The process that connected the other end of `socket`, an AF_UNIX socket, by the kernel's word.
  /// An error if the process has ended, even if another has its number by now.
  static Result<WatchedProcess> ofPeer(int socket);

  const ProcessIdentity& identity() const { return _identity; }
  bool isRunning() const;

 private:
  WatchedProcess(FileDescriptor descriptor, ProcessIdentity identity)
      : _descriptor(std::move(descriptor)), _identity(identity) {}

  FileDescriptor _descriptor;
  ProcessIdentity _identity;
};

/// What a process runs as: the same for as long as it neither runs another program nor takes on
/// another user, as far as the kernel lets this process see it.
struct RunningProgram {
  uid_t owner;
  /// The address where its stack begins, which is random and another for each program that it runs.
  std::uint64_t stack;

  /// Nothing if no such process runs.
  static std::optional<RunningProgram> of(pid_t pid);

  bool operator==(const RunningProgram&) const = default;
};

/// When the process that has the number `pid` now was started; nothing if there is none that runs.
std::optional<std::uint64_t> processStartTime(pid_t pid);

}  // namespace corvane

#endif
