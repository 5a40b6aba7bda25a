#ifndef CORVANE_PLATFORM_PIPE_H
#define CORVANE_PLATFORM_PIPE_H

#include <memory>
#include <optional>

#include "platform/FileHandle.h"

namespace corvane {

/// Both ends of a pipe. A program that is started inherits neither unless it is told to.
struct Pipe {
  std::shared_ptr<FileHandle> fileHandleForReading;
  std::shared_ptr<FileHandle> fileHandleForWriting;

  /// Nothing if the process or the system has run out of descriptors.
  static std::optional<Pipe> pipe();
};

}  // namespace corvane

#endif
