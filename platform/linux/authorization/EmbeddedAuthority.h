#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_EMBEDDEDAUTHORITY_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_EMBEDDEDAUTHORITY_H

#include <map>
#include <mutex>
#include <string>

#include "platform/linux/authorization/Authority.h"
#include "platform/linux/authorization/FileStamp.h"

namespace corvane {

/// The authority of a system that has no other. It never asks anybody: root holds every right,
/// everyone the rights whose rule is "allow", and that is all.
///
/// Definitions are property lists, a file a right, in a folder that only root can change.
class EmbeddedAuthority : public Authority {
 public:
  explicit EmbeddedAuthority(std::string rightsDirectory);

  Result<Decision> decide(const ProcessIdentity& subject, const RightRequest& request) override;
  bool canShowDialog(const ProcessIdentity& /*subject*/) override { return false; }
  void revoke(const ProcessIdentity& /*subject*/) override {}

  Result<RightDefinition> rightGet(const std::string& rightName) override;
  Result<void> rightSet(const std::string& rightName, const RightDefinition& definition) override;
  Result<void> rightRemove(const std::string& rightName) override;
  std::vector<RightFault> faultsOf(const std::string& rightName,
                                   const RightDefinition& definition) override;

 private:
  bool isAllowedToAll(const std::string& rightName);

  struct KnownRight {
    FileStamp stamp;
    bool isAllowedToAll;
  };

  const std::string _directory;
  std::mutex _lock;
  std::map<std::string, KnownRight> _knownRights;
};

}  // namespace corvane

#endif
