#include <cstdint>

#include "fuzz/TransportChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  corvane::checkGuard(std::as_bytes(std::span(bytes, size)));
  return 0;
}
