#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "platform/Pipe.h"

namespace corvane {
namespace {

TEST(PipeTest, NeitherEndTakesThePlaceOfAStandardStreamThatIsClosed) {
  const FileDescriptor input(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  const FileDescriptor output(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  ::close(STDIN_FILENO);
  ::close(STDOUT_FILENO);
  auto pipe = Pipe::pipe();
  const int reading = pipe ? pipe->fileHandleForReading->fileDescriptor() : -1;
  const int writing = pipe ? pipe->fileHandleForWriting->fileDescriptor() : -1;
  pipe.reset();
  ::dup2(input.get(), STDIN_FILENO);
  ::dup2(output.get(), STDOUT_FILENO);
  EXPECT_GT(reading, STDERR_FILENO);
  EXPECT_GT(writing, STDERR_FILENO);
}

}  // namespace
}  // namespace corvane
