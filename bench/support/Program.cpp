#include "bench/support/Program.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace corvane::bench {

int runProgram(void (*measure)()) {
  try {
    measure();
    return EXIT_SUCCESS;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return EXIT_FAILURE;
  }
}

}  // namespace corvane::bench
