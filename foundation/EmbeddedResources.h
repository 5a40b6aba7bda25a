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

/// The strings tables that every program has.
std::span<const EmbeddedResource> embeddedResources();

/// Those of one product, which is what its program is linked with; their texts go before. Meant for
/// one static object, of files that are there for good.
class ProductResources {
 public:
  explicit ProductResources(std::span<const EmbeddedResource> files);
  ProductResources(const ProductResources&) = delete;
  ProductResources& operator=(const ProductResources&) = delete;

  /// Empty if the program has none.
  static std::span<const EmbeddedResource> files();
};

}  // namespace corvane

#endif
