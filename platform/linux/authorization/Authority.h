#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_AUTHORITY_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_AUTHORITY_H

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Result.h"
#include "platform/RightFaults.h"
#include "platform/linux/processes/ProcessIdentity.h"

namespace corvane {

/// What a process asks for, and how the person may be asked.
struct RightRequest {
  std::string rightName;
  /// What the dialog shows, as the client wrote it; empty for the authority's own.
  std::string prompt;
  std::string iconPath;
  bool isInteractionAllowed = false;
  /// Closes the dialog; the decision is then that it was dismissed.
  std::stop_token stop{};
};

struct RightDefinition {
  /// "allow", "default" or "authenticate-admin".
  std::string rule;
  /// The sentence of the dialog, which is also its key in the strings table.
  std::string description;
  std::string stringsTable;

  bool operator==(const RightDefinition&) const = default;
};

/// What an authority says to a request.
enum class Decision {
  Granted,
  Denied,
  Dismissed,     ///< by the person who was asked, or by who asked and wants no answer any more
  DialogNeeded,  ///< somebody would have to be asked, and may not or cannot be
  Outdated,      ///< the process that asked is not what it was then
};

/// Who says which process holds which right. Any thread may call any of its functions at any time.
/// Names of rights are ones that `isRightName` accepts.
class Authority {
 public:
  virtual ~Authority() = default;

  /// Granted only if `subject` holds the right. May wait for a person to answer.
  virtual Result<Decision> decide(const ProcessIdentity& subject, const RightRequest& request) = 0;
  /// Whether somebody could see a dialog that is shown for `subject`.
  virtual bool canShowDialog(const ProcessIdentity& subject) = 0;
  /// Forgets what was granted to `subject`, so that it is asked for again.
  virtual void revoke(const ProcessIdentity& subject) = 0;

  /// To get and to remove a right that is not defined fails with ENOENT.
  virtual Result<RightDefinition> rightGet(const std::string& rightName) = 0;
  virtual Result<void> rightSet(const std::string& rightName,
                                const RightDefinition& definition) = 0;
  virtual Result<void> rightRemove(const std::string& rightName) = 0;
  /// What keeps a right from being as `rightSet` with the same arguments makes it.
  virtual std::vector<RightFault> faultsOf(const std::string& rightName,
                                           const RightDefinition& definition) = 0;
};

/// True for a text that may name a right: one to 200 ASCII letters, digits, periods and hyphens,
/// beginning with a letter or a digit.
bool isRightName(std::string_view text);

}  // namespace corvane

#endif
