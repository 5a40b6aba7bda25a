#ifndef CORVANE_PLATFORM_FILEHANDLE_H
#define CORVANE_PLATFORM_FILEHANDLE_H

#include <chrono>
#include <cstddef>

#include "foundation/FileDescriptor.h"
#include "foundation/Value.h"

namespace corvane {

/// The name of the exception that the methods of FileHandle raise when the system refuses them.
inline constexpr const char* NSFileHandleOperationException = "NSFileHandleOperationException";

/// One end of a pipe. Used by one thread at a time.
class FileHandle {
 public:
  using Clock = std::chrono::steady_clock;

  /// The most that one read gives, in bytes.
  static constexpr std::size_t maximumReadLength = 65536;

  explicit FileHandle(FileDescriptor descriptor);
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  /// Closes the descriptor if it is still open.
  ~FileHandle();

  /// The descriptor, which stays the handle's; negative once it is closed or given up.
  int fileDescriptor() const { return _descriptor.get(); }
  /// Gives the descriptor up without closing it.
  FileDescriptor releaseFileDescriptor();
  void closeFile();

  /// How many bytes can be read without waiting.
  std::size_t availableLength() const;
  /// What can be read without waiting, maximumReadLength at the most; waits if that is nothing.
  /// Empty at the end of the file.
  Data availableData();
  /// Reads maximumReadLength bytes, or less if the end of the file comes first, or if at
  /// `deadline` no more is there.
  Data readDataUntil(Clock::time_point deadline);

 private:
  FileDescriptor _descriptor;
};

}  // namespace corvane

#endif
