#include "platform/Pipe.h"

#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace corvane {

namespace {

// A process that was started with a standard stream closed gets its number for a pipe's end, which
// would then be in the way of the streams of the programs it starts.
FileDescriptor awayFromStandardStreams(FileDescriptor descriptor) {
  if (descriptor.get() > STDERR_FILENO) return descriptor;
  return FileDescriptor(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace

std::optional<Pipe> Pipe::pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
  FileDescriptor reading = awayFromStandardStreams(FileDescriptor(ends[0]));
  FileDescriptor writing = awayFromStandardStreams(FileDescriptor(ends[1]));
  if (!reading || !writing) return std::nullopt;
  return Pipe{std::make_shared<FileHandle>(std::move(reading)),
              std::make_shared<FileHandle>(std::move(writing))};
}

}  // namespace corvane
