#include "platform/FolderReader.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include <dirent.h>
#include <unistd.h>

#include "foundation/POSIXError.h"

namespace corvane {

struct FolderReader::Place::State {
  off_t offset = 0;
};

struct FolderReader::Reading {
  off_t offset = 0;  // of the entry after the last one returned
  std::size_t filled = 0;
  std::size_t consumed = 0;
  std::array<std::byte, 32768> buffer;
};

FolderReader::Place::Place() = default;
FolderReader::Place::Place(Place&&) noexcept = default;
FolderReader::Place& FolderReader::Place::operator=(Place&&) noexcept = default;
FolderReader::Place::~Place() = default;

namespace {

std::optional<FileType> typeFromDirectoryEntry(unsigned char type) {
  switch (type) {
    case DT_DIR:
      return FileType::Directory;
    case DT_LNK:
      return FileType::SymbolicLink;
    case DT_UNKNOWN:
    case DT_CHR:  // perhaps a whiteout
      return std::nullopt;
    default:
      return FileType::Other;
  }
}

}  // namespace

FolderReader::FolderReader(FileDescriptor folder, Place place)
    : _folder(std::move(folder)), _reading(std::make_unique_for_overwrite<Reading>()) {
  if (place._state == nullptr) return;
  _reading->offset = place._state->offset;
  ::lseek(_folder.get(), _reading->offset, SEEK_SET);
}

FolderReader::~FolderReader() = default;

FolderReader::Place FolderReader::takePlace() {
  Place place;
  place._state = std::make_unique<Place::State>(Place::State{_reading->offset});
  return place;
}

const FolderEntry* FolderReader::next(std::optional<Error>& error) {
  Reading& reading = *_reading;
  _hasJustRead = false;
  for (;;) {
    if (reading.consumed == reading.filled) {
      const ssize_t length =
          ::getdents64(_folder.get(), reading.buffer.data(), reading.buffer.size());
      // A folder that was removed while it is open has no entries any more.
      if (length < 0 && errno != ENOENT) error = posixErrorFromHost(errno);
      if (length <= 0) return nullptr;
      reading.filled = static_cast<std::size_t>(length);
      reading.consumed = 0;
      _hasJustRead = true;
    }
    const auto* record =
        reinterpret_cast<const dirent64*>(reading.buffer.data() + reading.consumed);
    reading.consumed += record->d_reclen;
    reading.offset = record->d_off;
    if (std::strcmp(record->d_name, ".") == 0 || std::strcmp(record->d_name, "..") == 0) continue;
    _entry = {record->d_name, typeFromDirectoryEntry(record->d_type)};
    return &_entry;
  }
}

}  // namespace corvane
