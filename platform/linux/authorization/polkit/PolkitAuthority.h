#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_POLKITAUTHORITY_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_POLKITAUTHORITY_H

#include <functional>
#include <string>

#include "platform/linux/authorization/Authority.h"
#include "platform/linux/authorization/polkit/ActionFile.h"
#include "platform/linux/authorization/polkit/DiscardedAuthorizations.h"
#include "platform/linux/authorization/polkit/PolkitClient.h"
#include "platform/linux/authorization/polkit/UserPlaces.h"

namespace corvane {

/// The system's own authority, with another in its place while it is not there.
///
/// A right is an action of its name, in an action file of its own. Rights are defined with both
/// authorities, so that either can decide, and exist only where both have them.
class PolkitAuthority : public Authority {
 public:
  /// The sentence of a dialog in other languages, from its key and the name of its strings table.
  using Translate = std::function<Translations(const std::string& key, const std::string& table)>;

  struct Places {
    std::string busAddress;
    /// Where polkit finds its action files; a system without that folder has no polkit.
    std::string actionsDirectory;
    std::string discardedDirectory;
  };

  /// How many dialogs one user has open, and how many questions polkit is asked for one user, at a
  /// time. Whoever asks more waits until some are answered: polkit answers one after the other, so
  /// that all who come later would wait for them.
  static constexpr int mostDialogs = 4;
  static constexpr int mostQuestions = 8;

  /// `withoutPolkit` is borrowed.
  PolkitAuthority(const Places& places, Translate translate, Authority& withoutPolkit,
                  std::chrono::milliseconds patience = PolkitClient::defaultPatience);

  Result<Decision> decide(const ProcessIdentity& subject, const RightRequest& request) override;
  bool canShowDialog(const ProcessIdentity& subject) override;
  void revoke(const ProcessIdentity& subject) override;

  Result<RightDefinition> rightGet(const std::string& rightName) override;
  Result<void> rightSet(const std::string& rightName, const RightDefinition& definition) override;
  Result<void> rightRemove(const std::string& rightName) override;
  std::vector<RightFault> faultsOf(const std::string& rightName,
                                   const RightDefinition& definition) override;

 private:
  using Answer = Result<PolkitAnswer, PolkitFailure>;

  /// First without a dialog, and with one only if polkit says that it needs one: only requests that
  /// do show a dialog are counted among the user's open dialogs.
  Answer ask(const ProcessIdentity& subject, const RightRequest& request);
  Answer askQuietly(const ProcessIdentity& subject, const RightRequest& request);
  Answer askPerson(const ProcessIdentity& subject, const RightRequest& request);
  Answer askAfterDiscard(const ProcessIdentity& subject, const RightRequest& request,
                         const std::set<std::string>& grantedSince);
  bool hasActions() const;

  PolkitClient _polkit;
  const std::chrono::milliseconds _patience;
  const std::string _actionsDirectory;
  const Translate _translate;
  Authority& _withoutPolkit;
  DiscardedAuthorizations _discarded;
  UserPlaces _questions{mostQuestions};
  UserPlaces _dialogs{mostDialogs};
};

}  // namespace corvane

#endif
