#ifndef CORVANE_CLIENT_CLI_SETUP_RIGHTS_H
#define CORVANE_CLIENT_CLI_SETUP_RIGHTS_H

#include <optional>
#include <string>
#include <vector>

#include "foundation/Result.h"
#include "platform/RightFaults.h"

namespace corvane::cli {

/// Whether the system's authorization database has a right; not everybody may look it up.
enum class Registration { Yes, No, Unknown };
Registration registrationOf(const std::string& right);

/// The rights of the catalogue, by whether the system's authorization database has them.
struct Rights {
  std::vector<std::string> registered;
  std::vector<std::string> missing;
  std::vector<std::string> unknown;  ///< those that this process may not look up
};
Rights examineRights();
/// What keeps the rights from being those of this program.
std::vector<RightFault> faultsOfRights();

/// Put the rights into the database, or take all or some out.
/// What was done shows when they are examined.
Result<void> registerRights();
/// The same, and defines those anew that are not as they are to be.
Result<void> mendRights();
Result<void> removeRights();
Result<void> removeRights(const std::vector<std::string>& names);

}  // namespace corvane::cli

#endif
