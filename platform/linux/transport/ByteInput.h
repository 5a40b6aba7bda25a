#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_BYTEINPUT_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_BYTEINPUT_H

#include <cstddef>
#include <memory>
#include <utility>

#include "foundation/FileDescriptor.h"
#include "foundation/Result.h"

namespace corvane {

/// What the bus library reads of a peer that has no descriptors to send. The library would take
/// them all the same, keep some for good, and close others, which may never come to an end (see
/// DescriptorReceiver.h). This passes on the peer's bytes alone.
class ByteInput {
 public:
  /// Reads from `socket`, which stays the caller's.
  explicit ByteInput(int socket);

  int socket() const { return _socket; }
  /// Where the library reads; once. None when the process has no descriptors left.
  FileDescriptor takeReadingEnd() { return std::move(_readingEnd); }

  /// Passes on what is there, without waiting. Fails if the peer has closed its side (ECONNRESET)
  /// or sent descriptors (EPROTO). The library must have read what came before.
  Result<void> pump() const;

 private:
  int _socket;
  /// What is on its way; not on the stack, which is the caller's.
  std::unique_ptr<std::byte[]> _portion;
  FileDescriptor _forward;
  FileDescriptor _readingEnd;
};

}  // namespace corvane

#endif
