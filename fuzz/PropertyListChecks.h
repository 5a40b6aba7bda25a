#ifndef CORVANE_FUZZ_PROPERTYLISTCHECKS_H
#define CORVANE_FUZZ_PROPERTYLISTCHECKS_H

#include <cstddef>
#include <span>

namespace corvane {

/// Reads the bytes as a property list of whatever format, and what was read again after writing it
/// in either. Ends the process if it does not come back as it was.
void checkPropertyList(std::span<const std::byte> bytes);

/// The same for the bytes as the old-style form, which nearly any bytes take otherwise.
void checkOldStyle(std::span<const std::byte> bytes);

}  // namespace corvane

#endif
