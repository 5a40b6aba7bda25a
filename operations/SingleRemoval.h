#ifndef CORVANE_OPERATIONS_SINGLEREMOVAL_H
#define CORVANE_OPERATIONS_SINGLEREMOVAL_H

#include <cstdint>
#include <optional>

#include "foundation/Error.h"
#include "operations/ObjectLocation.h"

namespace corvane {

/// Why one object was not removed.
struct SingleRemovalFailure {
  enum class Reason : std::uint8_t {
    Whiteout,     ///< it is of that type
    FlagsKept,    ///< its user flags could not be cleared
    SystemFlags,  ///< it has one of these; its user flags were left alone
    System,       ///< it could not be looked at or removed
  };
  Reason reason;
  /// What the operating system said, where it was asked.
  std::optional<Error> error;
};

/// Removes one file, link or empty directory, clearing its user flags first.
/// A symbolic link is removed itself.
std::optional<SingleRemovalFailure> removeSingleObject(const ObjectLocation& location);

}  // namespace corvane

#endif
