// Exchanges two names with each other, over and over: swapper ONE OTHER [ONE OTHER]... One pair
// after the other, until its standard input ends; then it prints how often. The first output is an
// "x" when the first exchange is done.

#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr unsigned betweenLooks = 256;

bool isOver() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, 0) != 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc < 3 || argc % 2 == 0) return 2;
  unsigned long exchanged = 0;
  for (unsigned turn = 0; turn % betweenLooks != 0 || !isOver(); ++turn) {
    for (int i = 1; i < argc; i += 2) {
      // What is deleted meanwhile fails.
      if (::renameat2(AT_FDCWD, argv[i], AT_FDCWD, argv[i + 1], RENAME_EXCHANGE) != 0) continue;
      if (exchanged++ == 0 && ::write(STDOUT_FILENO, "x", 1) != 1) return 1;
    }
  }
  return std::printf("%lu\n", exchanged) > 0 ? 0 : 1;
}
