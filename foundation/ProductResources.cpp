#include "foundation/EmbeddedResources.h"

namespace corvane {

namespace {

// Plain, and so there before any static object of another file is made.
constinit std::span<const EmbeddedResource> filesOfProduct;

}  // namespace

ProductResources::ProductResources(std::span<const EmbeddedResource> files) {
  filesOfProduct = files;
}

std::span<const EmbeddedResource> ProductResources::files() {
  return filesOfProduct;
}

}  // namespace corvane
