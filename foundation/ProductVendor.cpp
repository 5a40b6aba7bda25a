#include "foundation/ProductVendor.h"

namespace corvane {

namespace {

// Plain, and so there before any static object of another file is made.
constinit std::string_view vendorName = "Corvane";
constinit std::string_view vendorURL = "https://www.corvane.com/";

}  // namespace

ProductVendor::ProductVendor(std::string_view name, std::string_view url) {
  vendorName = name;
  vendorURL = url;
}

std::string_view ProductVendor::name() {
  return vendorName;
}

std::string_view ProductVendor::url() {
  return vendorURL;
}

}  // namespace corvane
