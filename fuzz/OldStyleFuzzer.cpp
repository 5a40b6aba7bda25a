#include <cstdint>

#include "fuzz/PropertyListChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  corvane::checkOldStyle(std::as_bytes(std::span(bytes, size)));
  return 0;
}
