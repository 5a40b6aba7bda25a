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

}  // namespace corvane::bench

#endif
