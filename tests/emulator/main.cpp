// Runs a program for macOS, of x86_64, as far as it needs nothing of that system but what is here:
//   macos-emulator [--with LIBRARY]... PROGRAM [ARGUMENT...]
// It is the program's own machine code that runs, with this system's C library in the place of that
// one's and those of the system's frameworks that a LIBRARY for macOS stands in for. Status 126: it
// cannot go on, and says why.
#include <cstdlib>
#include <cstring>

#include <sys/prctl.h>
#include <unistd.h>

#include "tests/emulator/Image.h"

int main(int argc, char** argv) {
  ++argv;
  --argc;
  for (; argc > 2 && std::strcmp(argv[0], "--with") == 0; argv += 2, argc -= 2) {
    emulator::Image::load(argv[1]);
  }
  if (argc < 1) emulator::fail("which program?");
  emulator::Image::load(argv[0]);
  // By which the process is known from outside.
  const char* const slash = std::strrchr(argv[0], '/');
  ::prctl(PR_SET_NAME, slash != nullptr ? slash + 1 : argv[0]);
  std::exit(emulator::Image::run(argc, argv, environ));
}
