#include "platform/Pipe.h"

#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace corvane {

namespace {

// A program that another thread starts at this very moment does not get it either: a task gives its
// program three descriptors and no other.
//
// A process that was started with a standard stream closed gets its number for a pipe's end, which
// would then be in the way of the streams of the programs it starts.
FileDescriptor keptFromPrograms(FileDescriptor descriptor) {
  if (descriptor.get() <= STDERR_FILENO) {
    return FileDescriptor(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  }
  if (fcntl(descriptor.get(), F_SETFD, FD_CLOEXEC) != 0) descriptor.reset();
  return descriptor;
}

}  // namespace

std::optional<Pipe> Pipe::pipe() {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return std::nullopt;
  FileDescriptor reading = keptFromPrograms(FileDescriptor(ends[0]));
  FileDescriptor writing = keptFromPrograms(FileDescriptor(ends[1]));
  if (!reading || !writing) return std::nullopt;
  return Pipe{std::make_shared<FileHandle>(std::move(reading)),
              std::make_shared<FileHandle>(std::move(writing))};
}

}  // namespace corvane
