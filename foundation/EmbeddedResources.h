#ifndef CORVANE_FOUNDATION_EMBEDDEDRESOURCES_H
#define CORVANE_FOUNDATION_EMBEDDEDRESOURCES_H

#include <cstddef>
#include <span>
#include <string_view>

namespace corvane {

/// A file of the program's resources, linked into it.
struct EmbeddedResource {
  /// Its path below the folder of resources: "de.lproj/PrivilegedOperations.strings".
  std::string_view path;
  std::span<const std::byte> bytes;
};

/// All strings tables.
std::span<const EmbeddedResource> embeddedResources();

}  // namespace corvane

#endif
