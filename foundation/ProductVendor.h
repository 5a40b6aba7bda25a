#ifndef CORVANE_FOUNDATION_PRODUCTVENDOR_H
#define CORVANE_FOUNDATION_PRODUCTVENDOR_H

#include <string_view>

namespace corvane {

/// Who makes the product that a program is of, for whoever lists its rights. Meant for one static
/// object, of literals; a program without one is of the first product.
class ProductVendor {
 public:
  ProductVendor(std::string_view name, std::string_view url);
  ProductVendor(const ProductVendor&) = delete;
  ProductVendor& operator=(const ProductVendor&) = delete;

  static std::string_view name();
  /// Empty if it has none.
  static std::string_view url();
};

}  // namespace corvane

#endif
