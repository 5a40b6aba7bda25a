// The least that a program started on demand can do: take one connection and answer it.

#include <sys/socket.h>
#include <unistd.h>

int main(void) {
  char byte;
  const int connection = accept(3, NULL, NULL);
  return connection >= 0 && read(connection, &byte, 1) == 1 && write(connection, &byte, 1) == 1
             ? 0
             : 1;
}
