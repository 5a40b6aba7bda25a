#ifndef CORVANE_FOUNDATION_PROPERTYLISTFORMATS_H
#define CORVANE_FOUNDATION_PROPERTYLISTFORMATS_H

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "foundation/Error.h"
#include "foundation/PropertyList.h"
#include "foundation/Result.h"
#include "foundation/Value.h"

namespace corvane {

/// What the readers and writers of the single formats share. Programs use PropertyList.h.

Result<Value> readXMLPropertyList(std::span<const std::byte> bytes);
Result<Value> readBinaryPropertyList(std::span<const std::byte> bytes);
Result<Value> readOldStylePropertyList(std::span<const std::byte> bytes);

/// The values written are within the bounds and well-formed: writePropertyList has seen to it.
Result<Data> writeXMLPropertyList(const Value& root);
Data writeBinaryPropertyList(const Value& root);

Error propertyListReadError(std::string description);
Error propertyListWriteError(std::string description);

/// The name of the one entry by which a dictionary stands for the UID of a keyed archive.
inline constexpr std::string_view propertyListUIDKey = "CF$UID";

}  // namespace corvane

#endif
