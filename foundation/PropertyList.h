#ifndef CORVANE_FOUNDATION_PROPERTYLIST_H
#define CORVANE_FOUNDATION_PROPERTYLIST_H

#include <optional>
#include <span>
#include <variant>

#include "foundation/Error.h"
#include "foundation/Value.h"

namespace corvane {

/// The file formats of property lists.
enum class PropertyListFormat {
  XML,       ///< the XML property list, version 1.0
  Binary,    ///< "bplist00"
  OldStyle,  ///< the text form of OpenStep; read, never written
};

struct PropertyList {
  Value root;
  PropertyListFormat format;
};

/// Reads a property list in any of the formats. Nothing of a damaged list is returned. Safe to call
/// on hostile bytes: depth and size are bounded, and the error's description says what is wrong.
std::variant<PropertyList, Error> readPropertyList(std::span<const std::byte> bytes);

/// Writes `root` as `format` (XML or Binary). A value that property lists cannot hold (an Error)
/// is an error.
std::variant<Data, Error> writePropertyList(const Value& root, PropertyListFormat format);

}  // namespace corvane

#endif
