#ifndef CORVANE_OPERATIONSET_VNT_RECURSIVEREMOVAL_H
#define CORVANE_OPERATIONSET_VNT_RECURSIVEREMOVAL_H

#include <optional>
#include <stop_token>

#include "foundation/Error.h"
#include "operations/ObjectLocation.h"

namespace corvane {

/// Sets or clears FileFlag::UserImmutable of the object `name` of an open folder. Clearing succeeds
/// where there are no flags to clear.
std::optional<Error> changeImmutableFlag(int folder, const char* name, FinalLink link, bool set);

/// Removes an object with everything below it. Before anything is deleted, the user's
/// immutable flag is cleared on all of it, and a mount point anywhere in it fails with EBUSY. No
/// other flag is looked at. A symbolic link is removed itself. An object that does not exist is a
/// success, and so is a link whose target does not exist, which stays. Once `stop` is requested it
/// fails with ECANCELED at the next entry.
std::optional<Error> removeObjectRecursively(const ObjectLocation& location,
                                             const std::stop_token& stop = {});

/// True for the failures by which a path turns out to lead to no object.
bool meansNoObject(const Error& error);

}  // namespace corvane

#endif
