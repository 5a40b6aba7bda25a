#ifndef CORVANE_OPERATIONS_RIGHTS_H
#define CORVANE_OPERATIONS_RIGHTS_H

#include <optional>
#include <string>
#include <vector>

#include "foundation/Result.h"
#include "operations/ZELPrivilegedOperationSet.h"
#include "platform/RightFaults.h"

namespace corvane {

/// Whether the system's authorization database has a right; not everybody may look it up.
enum class Registration { Yes, No, Unknown };
Registration registrationOf(const std::string& right);

/// The rights of a set's operations, by whether the system's authorization database has them.
struct Rights {
  std::vector<std::string> registered;
  std::vector<std::string> missing;
  std::vector<std::string> unknown;  ///< those that this process may not look up
};
Rights examineRights(const ZELPrivilegedOperationSet& set);
/// What keeps the rights from being those of this program.
std::vector<RightFault> faultsOfRights(const ZELPrivilegedOperationSet& set);

/// Put the rights into the database, or take all or some out.
/// What was done shows when they are examined.
Result<void> registerRights(const ZELPrivilegedOperationSet& set);
/// The same, and defines those anew that are not as they are to be.
Result<void> mendRights(const ZELPrivilegedOperationSet& set);
Result<void> removeRights(const ZELPrivilegedOperationSet& set);
Result<void> removeRights(const std::vector<std::string>& names);

}  // namespace corvane

#endif
