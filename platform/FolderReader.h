#ifndef CORVANE_PLATFORM_FOLDERREADER_H
#define CORVANE_PLATFORM_FOLDERREADER_H

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

/// Reads the entries of one folder in the order of the file system. "." and ".." are left out.
/// Entries that are added or removed meanwhile may or may not appear; every other entry appears
/// once. What it holds in memory is constant; where a system has no way to go on in the middle of a
/// folder, it is of the size of the folder's names at most. One thread.
class FolderReader {
 public:
  /// Where a reader has got to, for another reader of the same folder. It holds no descriptor and
  /// is used once.
  class Place {
   public:
    /// Before the first entry.
    Place();
    Place(Place&& other) noexcept;
    Place& operator=(Place&& other) noexcept;
    ~Place();

   private:
    friend class FolderReader;
    struct State;
    std::unique_ptr<State> _state;
  };

  /// Begins at `place`, which another reader of the same folder gave, or at the first entry.
  explicit FolderReader(FileDescriptor folder, Place place = {});
  FolderReader(const FolderReader&) = delete;
  FolderReader& operator=(const FolderReader&) = delete;
  ~FolderReader();

  int folder() const { return _folder.get(); }

  /// The next entry; null at the end, and on a failure, which `error` receives.
  const FolderEntry* next(std::optional<Error>& error);
  /// True if the last entry returned is the first of those that were read at once: all of them were
  /// in the folder a moment ago.
  bool hasJustRead() const { return _hasJustRead; }
  /// Gives up where the entry after the last one returned stands. Nothing more is read here.
  Place takePlace();

 private:
  struct Reading;

  FileDescriptor _folder;
  std::unique_ptr<Reading> _reading;
  bool _hasJustRead = false;
  FolderEntry _entry{};
};

}  // namespace corvane

#endif
