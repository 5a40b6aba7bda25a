#ifndef CORVANE_TESTS_PLATFORM_LINUX_SUPPORT_CHILDPROCESS_H
#define CORVANE_TESTS_PLATFORM_LINUX_SUPPORT_CHILDPROCESS_H

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "foundation/FileDescriptor.h"
#include "platform/linux/processes/ProcessIdentity.h"

namespace corvane {

inline constexpr uid_t someUser = 65534;
inline constexpr uid_t anotherUser = 65533;

/// A process that does nothing but be there until it is ended.
class ChildProcess {
 public:
  /// One of `user`, which is connected to this process: `socket` is this process's end.
  static ChildProcess connectedOfUser(uid_t user);
  /// One that was given the process number of `ended`; nothing if this process may not choose.
  static std::optional<ChildProcess> successorOf(const ProcessIdentity& ended);
  /// The standard streams of a program; one that is negative is this process's.
  struct Streams {
    int input = -1;
    int output = -1;
    int errors = -1;
  };
  static ChildProcess program(const std::vector<std::string>& arguments, const Streams& streams);

  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;
  ~ChildProcess();

  pid_t pid() const { return _pid; }
  int socket() const { return _socket.get(); }
  /// Ends it, without taking note of that yet: it stays in the process table.
  void kill() const;
  /// Waits until it has ended, and has it leave the process table. Its exit status, or -1.
  int reap();

 private:
  ChildProcess(pid_t pid, FileDescriptor socket);

  pid_t _pid;
  FileDescriptor _socket;
};

/// A socket that listens where only this test knows, and a connection to it from this process.
FileDescriptor listeningSocket();
FileDescriptor connectionTo(const FileDescriptor& listener);

/// The reading and the writing end; not the system's `Pipe`, which tests use beside it.
struct PipeEnds {
  FileDescriptor output;
  FileDescriptor input;
};
PipeEnds makePipe();

/// The next line that comes from `descriptor`, without its end; what there is when the other end is
/// closed.
std::string readLine(const FileDescriptor& descriptor);
/// All that comes from `descriptor` until its other end is closed.
std::string readToEnd(const FileDescriptor& descriptor);

}  // namespace corvane

#endif
