// Runs a program for macOS, of x86_64, as far as it needs nothing of that system but what is here:
//   macos-emulator PROGRAM [ARGUMENT...]
// It is the program's own machine code that runs, with this system's C library in the place of that
// one's. Status 126: it cannot go on, and says why.
#include <cstdlib>

#include <unistd.h>

#include "tests/emulator/Image.h"

int main(int argc, char** argv) {
  if (argc < 2) emulator::fail("which program?");
  emulator::Image::load(argv[1]);
  std::exit(emulator::Image::run(argc - 1, argv + 1, environ));
}
