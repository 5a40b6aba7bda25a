#include "platform/FolderReader.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "foundation/POSIXError.h"

namespace corvane {

namespace {

struct Name {
  std::string text;
  std::optional<FileType> type;
};

std::optional<FileType> typeFromDirectoryEntry(unsigned char type) {
  switch (type) {
    case DT_DIR:
      return FileType::Directory;
    case DT_LNK:
      return FileType::SymbolicLink;
    case DT_WHT:
      return FileType::Whiteout;
    case DT_UNKNOWN:
      return std::nullopt;
    default:
      return FileType::Other;
  }
}

// All names of the folder. Some file systems skip entries where others are removed between two
// readings, and have no position that outlives its stream, so nothing is removed in between.
std::optional<Error> readNames(int folder, std::vector<Name>& names) {
  // A description of its own: the stream's position is not to be the folder's.
  FileDescriptor own(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // A folder that was removed while it is open has no entries any more.
  if (!own) return errno == ENOENT ? std::nullopt : std::optional(posixErrorFromHost(errno));
  const std::unique_ptr<DIR, decltype(&::closedir)> stream(::fdopendir(own.get()), &::closedir);
  if (!stream) return posixErrorFromHost(errno);
  static_cast<void>(own.release());
  for (;;) {
    errno = 0;
    const dirent* const entry = ::readdir(stream.get());
    if (entry == nullptr) break;
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    names.push_back({entry->d_name, typeFromDirectoryEntry(entry->d_type)});
  }
  if (errno != 0 && errno != ENOENT) return posixErrorFromHost(errno);
  return std::nullopt;
}

}  // namespace

struct FolderReader::Place::State {
  std::vector<Name> left;
  std::size_t next = 0;
};

struct FolderReader::Reading {
  std::vector<Name> names;
  std::size_t next = 0;
  bool isRead = false;
};

FolderReader::Place::Place() = default;
FolderReader::Place::Place(Place&&) noexcept = default;
FolderReader::Place& FolderReader::Place::operator=(Place&&) noexcept = default;
FolderReader::Place::~Place() = default;

FolderReader::FolderReader(FileDescriptor folder, Place place)
    : _folder(std::move(folder)), _reading(std::make_unique<Reading>()) {
  if (place._state == nullptr) return;
  *_reading = {std::move(place._state->left), place._state->next, true};
}

FolderReader::~FolderReader() = default;

FolderReader::Place FolderReader::takePlace() {
  Place place;
  // One that has read nothing yet gives the place before the first entry.
  if (_reading->isRead) {
    place._state =
        std::make_unique<Place::State>(Place::State{std::move(_reading->names), _reading->next});
    *_reading = {{}, 0, true};
  }
  return place;
}

const FolderEntry* FolderReader::next(std::optional<Error>& error) {
  Reading& reading = *_reading;
  _hasJustRead = !std::exchange(reading.isRead, true);
  if (_hasJustRead) {
    if (auto failure = readNames(_folder.get(), reading.names)) {
      error = std::move(failure);
      reading.names.clear();
    }
  }
  if (reading.next == reading.names.size()) return nullptr;
  const Name& name = reading.names[reading.next++];
  _entry = {name.text.c_str(), name.type};
  return &_entry;
}

}  // namespace corvane
