#ifndef CORVANE_BENCH_SUPPORT_SOCKETACTIVATION_H
#define CORVANE_BENCH_SUPPORT_SOCKETACTIVATION_H

#include <string>

#include <sys/socket.h>
#include <sys/types.h>

#include "bench/support/TemporaryFolder.h"
#include "foundation/FileDescriptor.h"

namespace corvane::bench {

/// A folder of its own with a listening socket, and programs started on that socket the way a
/// service manager starts them. Needs root. Failures throw.
class SocketActivation {
 public:
  /// `program` is a path, or the name of a program that was built beside this one.
  /// As many clients as `backlog` wait to be accepted, others to get in.
  explicit SocketActivation(const std::string& program, int backlog = SOMAXCONN);
  SocketActivation(const SocketActivation&) = delete;
  SocketActivation& operator=(const SocketActivation&) = delete;
  /// Ends the program.
  ~SocketActivation();

  const std::string& socketPath() const { return _socketPath; }
  const std::string& folder() const { return _folder.path(); }

  /// Lets everybody connect, not root alone, and registers the rights that they may have.
  void serveEverybody() const;

  /// Starts the program now.
  void start();
  /// Starts the program as soon as a client connects; returns at once.
  void startOnDemand();
  /// Ends the program and waits for it.
  void stop();

  /// The program that runs.
  pid_t process() const { return _process; }
  /// A figure of /proc/PID/status of the program in KiB, such as "VmRSS".
  long memory(const std::string& figure) const;

 private:
  std::string _program;
  TemporaryFolder _folder;
  std::string _socketPath;
  FileDescriptor _listening;
  pid_t _process = -1;
};

/// A figure of /proc/PID/status in KiB.
long memoryOf(pid_t process, const std::string& figure);

}  // namespace corvane::bench

#endif
