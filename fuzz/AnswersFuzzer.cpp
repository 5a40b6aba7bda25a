#include <cstdint>

#include "fuzz/HelperChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  corvane::checkAnswers(std::as_bytes(std::span(bytes, size)));
  return 0;
}
