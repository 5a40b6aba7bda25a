#ifndef CORVANE_BENCH_SUPPORT_POLKIT_H
#define CORVANE_BENCH_SUPPORT_POLKIT_H

#include <map>
#include <string>

#include <sys/types.h>

#include "bench/support/TemporaryFolder.h"
#include "foundation/FileDescriptor.h"

namespace corvane::bench {

/// A bus of its own with a polkitd that serves it, until the object goes. Needs root. Failures
/// throw.
class Polkit {
 public:
  /// `actionFiles` are the contents of the action files that it knows, by their names.
  explicit Polkit(const std::map<std::string, std::string>& actionFiles = {});
  Polkit(const Polkit&) = delete;
  Polkit& operator=(const Polkit&) = delete;
  ~Polkit();

  std::string busAddress() const { return "unix:path=" + _folder.path() + "/bus"; }
  std::string actionsFolder() const { return _folder.path() + "/actions"; }
  /// The process of polkitd.
  pid_t process() const;

 private:
  TemporaryFolder _folder;
  /// It serves until this is closed.
  FileDescriptor _commands;
  pid_t _server = -1;
};

/// The agent of a process, which shows nobody the dialogs that polkit wants shown for it, and so
/// leaves them open, until the object goes. Failures throw.
class SilentAgent {
 public:
  SilentAgent(const Polkit& polkit, pid_t process);
  SilentAgent(const SilentAgent&) = delete;
  SilentAgent& operator=(const SilentAgent&) = delete;
  ~SilentAgent();

 private:
  /// What it tells of its dialogs, which nobody reads.
  FileDescriptor _events;
  pid_t _agent = -1;
};

}  // namespace corvane::bench

#endif
