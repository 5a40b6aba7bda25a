#ifndef CORVANE_PLATFORM_RIGHTFAULTS_H
#define CORVANE_PLATFORM_RIGHTFAULTS_H

#include <string>
#include <vector>

#include "foundation/Value.h"

namespace corvane {

/// What is wrong with one of the objects that define a right.
struct RightFault {
  enum class Kind {
    Missing,
    Damaged,  ///< it defines nothing
    Unsafe,   ///< others than root can change it
    Changed,  ///< it defines something else
    Unknown,  ///< this process may not look at it
  };
  Kind kind;
  std::string right;
  std::string path;
  /// The same in words that follow the path.
  std::string description;
};

/// What keeps a right from being defined as `AuthorizationRightSet` with these arguments defines
/// it.
std::vector<RightFault> faultsOfRight(const std::string& rightName, const Value& definition,
                                      const std::string& descriptionKey,
                                      const std::string& localeTableName);

}  // namespace corvane

#endif
