#ifndef CORVANE_PLATFORM_FOLDERREADER_H
#define CORVANE_PLATFORM_FOLDERREADER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"
#include "platform/FileSystem.h"

namespace corvane {

struct FolderEntry {
  /// Lives until the reader is asked for the next entry.
  const char* name;
  /// Absent where the file system does not tell with the name.
  std::optional<FileType> type;
};

/// Reads the entries of one folder in the order of the file system, with a buffer of constant size.
/// "." and ".." are left out. Entries that are added or removed meanwhile may or may not appear;
/// every other entry appears once. One thread.
class FolderReader {
 public:
  /// Begins at `position`, which another reader of the same folder gave, or at the first entry.
  explicit FolderReader(FileDescriptor folder, std::uint64_t position = 0);

  int folder() const { return _folder.get(); }

  /// The next entry; null at the end, and on a failure, which `error` receives.
  const FolderEntry* next(std::optional<Error>& error);
  /// True if the last entry returned is the first of those that were read at once: all of them were
  /// in the folder a moment ago.
  bool hasJustRead() const { return _hasJustRead; }
  /// Where the entry after the last one returned stands.
  std::uint64_t position() const { return _position; }

 private:
  static constexpr std::size_t bufferSize = 32768;

  FileDescriptor _folder;
  std::uint64_t _position;
  std::unique_ptr<std::byte[]> _buffer;
  std::size_t _filled = 0;
  std::size_t _consumed = 0;
  bool _hasJustRead = false;
  FolderEntry _entry{};
};

}  // namespace corvane

#endif
