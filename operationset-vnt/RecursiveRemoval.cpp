#include "operationset-vnt/RecursiveRemoval.h"

#include <algorithm>
#include <string>
#include <thread>
#include <utility>

#include "foundation/POSIXError.h"
#include "operationset-vnt/FolderWalk.h"

namespace corvane {

namespace {

constexpr unsigned maximumThreads = 4;

std::optional<Error> clearImmutableFlag(int folder, const char* name) {
  return changeImmutableFlag(folder, name, FinalLink::Keep, false);
}

// The first walk: takes the protection off every entry and makes sure that all of the tree can go.
class Unprotection : public FolderVisitor {
 public:
  std::optional<Error> visit(int folder, const FolderEntry& entry, bool& descend) override {
    if (entry.type == FileType::SymbolicLink) return std::nullopt;
    auto error = unprotect(folder, entry.name, descend);
    // Somebody else has removed it meanwhile, so nothing is left to be done.
    return error && isPOSIXError(*error, POSIXErrorCode::NoEntry) ? std::nullopt : error;
  }
  std::optional<Error> leave(int, const char*) override { return std::nullopt; }

 private:
  static std::optional<Error> unprotect(int folder, const char* name, bool& descend) {
    FileStatus status;
    if (auto error = statusOf(folder, name, FinalLink::Keep, status)) return error;
    descend = status.type == FileType::Directory;
    // Another device number would not mean a mount: Btrfs subvolumes have their own, and so have
    // files in an overlay.
    if (status.isMountPoint) return posixError(POSIXErrorCode::Busy);
    return status.flags == 0 ? std::nullopt : clearImmutableFlag(folder, name);
  }
};

// The second walk: removes files at once, folders once they are empty.
class Deletion : public FolderVisitor {
 public:
  std::optional<Error> visit(int folder, const FolderEntry& entry, bool& descend) override {
    std::optional<FileType> type = entry.type;
    std::optional<Error> error;
    if (!type) {
      FileStatus status;
      error = statusOf(folder, entry.name, FinalLink::Keep, status);
      type = status.type;
    }
    descend = !error && type == FileType::Directory;
    if (!error && !descend) error = removeFile(folder, entry.name);
    return error && isPOSIXError(*error, POSIXErrorCode::NoEntry) ? std::nullopt : error;
  }

  // A folder in which another thread is still busy is left to the next walk.
  std::optional<Error> leave(int folder, const char* name) override {
    auto error = removeFolder(folder, name);
    const bool isDone = !error || isPOSIXError(*error, POSIXErrorCode::NoEntry) ||
                        isPOSIXError(*error, POSIXErrorCode::NotEmpty);
    return isDone ? std::nullopt : error;
  }
};

std::optional<Error> removeTree(const ObjectLocation& location, const FileStatus& status,
                                const std::stop_token& stop) {
  // These two could not be removed after all that is in them had been, so they are refused before
  // anything is deleted.
  if (status.isMountPoint) return posixError(POSIXErrorCode::Busy);
  if (location.name == "." || location.name == "..") return posixError(POSIXErrorCode::Invalid);

  const unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1U, maximumThreads);
  const int folder = location.folder.get();
  const char* name = location.name.c_str();
  if (auto error = clearImmutableFlag(folder, name)) return error;
  Unprotection unprotection;
  if (auto error = walkFolder(folder, name, unprotection, threads, stop)) return error;

  // The first round leaves the few folders of which another thread had a part. Alone, the second
  // leaves none, unless entries are added, or file systems skip some, while it removes others.
  Deletion deletion;
  std::optional<Error> error;
  for (const unsigned crew : {threads, 1U, 1U}) {
    if ((error = walkFolder(folder, name, deletion, crew, stop))) return error;
    error = removeFolder(folder, name);
    if (!error || !isPOSIXError(*error, POSIXErrorCode::NotEmpty)) return error;
  }
  return error;
}

}  // namespace

bool meansNoObject(const Error& error) {
  return isPOSIXError(error, POSIXErrorCode::NoEntry) ||
         isPOSIXError(error, POSIXErrorCode::NotDirectory) ||
         isPOSIXError(error, POSIXErrorCode::LinkLoop) ||
         isPOSIXError(error, POSIXErrorCode::NameTooLong);
}

std::optional<Error> changeImmutableFlag(int folder, const char* name, FinalLink link, bool set) {
  constexpr FileFlags flag = FileFlag::UserImmutable;
  auto error = changeFlags(folder, name, link, set ? 0 : flag, set ? flag : 0);
  const bool hasNoFlags = error && isPOSIXError(*error, POSIXErrorCode::NotSupported);
  return hasNoFlags && !set ? std::nullopt : error;
}

std::optional<Error> removeObjectRecursively(const ObjectLocation& location,
                                             const std::stop_token& stop) {
  const int folder = location.folder.get();
  const char* name = location.name.c_str();
  FileStatus status;
  // Unlike elsewhere, a link to a directory counts as the link also where a slash follows it.
  if (auto error = statusOf(folder, name, FinalLink::Keep, status)) {
    return meansNoObject(*error) ? std::nullopt : error;
  }
  switch (status.type) {
    case FileType::Directory:
      return removeTree(location, status, stop);
    case FileType::SymbolicLink: {
      const std::string path = location.namesDirectory ? location.name + "/" : location.name;
      FileStatus target;
      if (auto error = statusOf(folder, path.c_str(), FinalLink::Follow, target)) {
        if (meansNoObject(*error)) return std::nullopt;
        // EACCES: there are links that the kernel does not let even root follow
        // (protected_symlinks). EBUSY: the link leads to a mount that only its user may look at.
        // What matters is that the link itself is there.
        if (!isPOSIXError(*error, POSIXErrorCode::Access) &&
            !isPOSIXError(*error, POSIXErrorCode::Busy)) {
          return error;
        }
      }
      return removeFile(folder, name);
    }
    default:
      if (location.namesDirectory) return std::nullopt;
      if (auto error = clearImmutableFlag(folder, name)) return error;
      return removeFile(folder, name);
  }
}

}  // namespace corvane
