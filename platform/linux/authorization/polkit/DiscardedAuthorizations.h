#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_DISCARDEDAUTHORIZATIONS_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_DISCARDEDAUTHORIZATIONS_H

#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "platform/linux/processes/ProcessIdentity.h"

namespace corvane {

/// Which processes have discarded their authorizations, and which they were granted since. polkit
/// keeps an authorization for some minutes, and lets only the process's own session take it back,
/// so the helper cannot. It notes the discard instead, and what was granted later: whatever else
/// polkit answers from counts as discarded.
///
/// A file a process, in a folder that only root can change: a helper that ends does not forget.
/// Files of processes that have ended are removed. Any thread.
class DiscardedAuthorizations {
 public:
  explicit DiscardedAuthorizations(std::string directory);

  /// Nothing that was granted to `subject` before counts any more. False if that cannot be kept.
  bool discard(const ProcessIdentity& subject);

  /// The names of the authorizations that `subject` was granted since it discarded the earlier
  /// ones; nothing if it never did.
  std::optional<std::set<std::string>> grantedSince(const ProcessIdentity& subject);
  /// Adds to them.
  void grant(const ProcessIdentity& subject, const std::string& authorization);

 private:
  std::optional<std::set<std::string>> read(const ProcessIdentity& subject) const;
  bool write(const ProcessIdentity& subject, const std::set<std::string>& authorizations) const;
  void forgetEndedProcesses() const;

  const std::string _directory;
  std::mutex _lock;
};

}  // namespace corvane

#endif
