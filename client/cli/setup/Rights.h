#ifndef CORVANE_CLIENT_CLI_SETUP_RIGHTS_H
#define CORVANE_CLIENT_CLI_SETUP_RIGHTS_H

#include <optional>
#include <string>
#include <vector>

#include "foundation/Error.h"
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

/// Put the rights into the database, or take all or some out; nothing, or why it cannot be done.
/// What was done shows when they are examined.
std::optional<Error> registerRights();
/// The same, and defines those anew that are not as they are to be.
std::optional<Error> mendRights();
std::optional<Error> removeRights();
std::optional<Error> removeRights(const std::vector<std::string>& names);

}  // namespace corvane::cli

#endif
