#include "client/AppendOnlyObjects.h"

#include <filesystem>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/Unicode.h"
#include "platform/FolderReader.h"

namespace corvane {

namespace {

namespace fs = std::filesystem;

// Each level of a tree holds a folder open; what is further below stays as it is.
constexpr int maximumDepth = 512;

constexpr mode_t writableByGroupOrOthers = S_IWGRP | S_IWOTH;

bool isOfRootOrUser(const struct stat& folder) {
  return S_ISDIR(folder.st_mode) && (folder.st_uid == 0 || folder.st_uid == ::getuid());
}

// Whether only root and this user can replace what is in a folder.
bool isClosedToOthers(const struct stat& folder) {
  return isOfRootOrUser(folder) && (folder.st_mode & writableByGroupOrOthers) == 0;
}

// Whether nobody else can replace what is root's or this user's in a folder: in a shared one (such
// as /tmp) everybody can replace only what is their own.
bool keepsOwnersApart(const struct stat& folder) {
  return isClosedToOthers(folder) || (isOfRootOrUser(folder) && (folder.st_mode & S_ISVTX) != 0);
}

// The folder's path without links; nothing if somebody else could put another folder in the place
// of it or of one above it before the path is used.
std::optional<fs::path> lastingPath(const fs::path& folder) {
  std::error_code error;
  const fs::path path = fs::canonical(folder, error);
  if (error) return std::nullopt;
  for (fs::path above = path;; above = above.parent_path()) {
    struct stat attributes {};
    if (::lstat(above.c_str(), &attributes) != 0 || !keepsOwnersApart(attributes))
      return std::nullopt;
    if (above == above.root_path()) return path;
  }
}

// Calls `visit(folder, name, path, status, isReachable)` for the object and for all below it.
template <typename Visit>
class Search {
 public:
  Search(std::uint64_t device, const Visit& visit) : _device(device), _visit(visit) {}

  void examine(int folder, const char* name, const std::string& path, bool isReachable,
               int depth = 0) const {
    FileStatus status;
    if (statusOf(folder, name, FinalLink::Keep, status)) return;
    _visit(folder, name, path, status, isReachable);
    if (status.type != FileType::Directory || status.isMountPoint || depth == maximumDepth ||
        status.identity.device != _device) {
      return;
    }
    FileDescriptor opened;
    struct stat attributes {};
    if (openFolder(folder, name, opened) || ::fstat(opened.get(), &attributes) != 0) return;
    const bool isEveryEntryReachable = isReachable && isClosedToOthers(attributes);
    FolderReader reader(std::move(opened));
    std::optional<Error> error;
    while (const FolderEntry* entry = reader.next(error)) {
      examine(reader.folder(), entry->name, path + "/" + entry->name, isEveryEntryReachable,
              depth + 1);
    }
  }

 private:
  const std::uint64_t _device;
  const Visit& _visit;
};

template <typename Visit>
void search(const fs::path& path, bool isReachable, const Visit& visit) {
  FileStatus status;
  if (statusOf(AT_FDCWD, path.c_str(), FinalLink::Keep, status)) return;
  Search<Visit>(status.identity.device, visit)
      .examine(AT_FDCWD, path.c_str(), path.string(), isReachable);
}

}  // namespace

AppendOnlyObjects appendOnlyObjects(const std::string& path) {
  AppendOnlyObjects found;
  const fs::path given = path;
  const auto folder = lastingPath(given.parent_path());
  search(folder ? *folder / given.filename() : given, folder.has_value(),
         [&found](int, const char*, const std::string& object, const FileStatus& status,
                  bool isReachable) {
           found.areInVain |=
               (status.flags & (FileFlag::SystemImmutable | FileFlag::SystemAppend)) != 0;
           if ((status.flags & FileFlag::UserAppend) == 0) return;
           if (isReachable && isUTF8(object)) {
             found.reachable.push_back(object);
           } else {
             found.areOthersThere = true;
           }
         });
  return found;
}

bool clearAppendOnlyFlags(const std::string& path) {
  bool hasCleared = false;
  search(path, true,
         [&hasCleared](int folder, const char* name, const std::string&, const FileStatus& status,
                       bool) {
           if ((status.flags & FileFlag::UserAppend) == 0) return;
           hasCleared |= !changeFlags(folder, name, FinalLink::Keep, FileFlag::UserAppend, 0);
         });
  return hasCleared;
}

}  // namespace corvane
