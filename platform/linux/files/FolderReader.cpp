#include "platform/FolderReader.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <dirent.h>
#include <unistd.h>

#include "foundation/POSIXError.h"

namespace corvane {

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

FolderReader::FolderReader(FileDescriptor folder, std::uint64_t position)
    : _folder(std::move(folder)),
      _position(position),
      _buffer(std::make_unique_for_overwrite<std::byte[]>(bufferSize)) {
  if (position != 0) ::lseek(_folder.get(), static_cast<off_t>(position), SEEK_SET);
}

const FolderEntry* FolderReader::next(std::optional<Error>& error) {
  _hasJustRead = false;
  for (;;) {
    if (_consumed == _filled) {
      const ssize_t length = ::getdents64(_folder.get(), _buffer.get(), bufferSize);
      // A folder that was removed while it is open has no entries any more.
      if (length < 0 && errno != ENOENT) error = posixErrorFromHost(errno);
      if (length <= 0) return nullptr;
      _filled = static_cast<std::size_t>(length);
      _consumed = 0;
      _hasJustRead = true;
    }
    const auto* record = reinterpret_cast<const dirent64*>(_buffer.get() + _consumed);
    _consumed += record->d_reclen;
    _position = static_cast<std::uint64_t>(record->d_off);
    if (std::strcmp(record->d_name, ".") == 0 || std::strcmp(record->d_name, "..") == 0) continue;
    _entry = {record->d_name, typeFromDirectoryEntry(record->d_type)};
    return &_entry;
  }
}

}  // namespace corvane
