#include "client/cli/commands/AppendOnlyObjects.h"

#include <filesystem>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/FileSystem.h"

namespace corvane::cli {

namespace {

namespace fs = std::filesystem;

constexpr mode_t writableByGroupOrOthers = S_IWGRP | S_IWOTH;

struct Findings {
  std::vector<std::string> appendOnly;
  bool areInVain = false;
};

// Whether only root and this user can replace what is in a folder. In a shared one (such as /tmp)
// everybody can, but only what is their own.
bool isOurs(const std::string& folder, bool orShared) {
  struct stat attributes {};
  return ::lstat(folder.c_str(), &attributes) == 0 && S_ISDIR(attributes.st_mode) &&
         (attributes.st_uid == 0 || attributes.st_uid == ::getuid()) &&
         ((attributes.st_mode & writableByGroupOrOthers) == 0 ||
          (orShared && (attributes.st_mode & S_ISVTX) != 0));
}

// The folder's path without links; nothing if somebody else could put another folder in the place
// of it or of one above it before the path is used.
std::optional<fs::path> lastingPath(const fs::path& folder) {
  std::error_code error;
  const fs::path path = fs::canonical(folder, error);
  if (error) return std::nullopt;
  for (fs::path above = path;; above = above.parent_path()) {
    if (!isOurs(above.string(), true)) return std::nullopt;
    if (above == above.root_path()) return path;
  }
}

// Adds the object to the findings. True if it is a folder to go into.
bool examine(const std::string& path, Findings& findings, const FileStatus* top,
             FileStatus& status) {
  if (statusOf(AT_FDCWD, path.c_str(), FinalLink::Keep, status)) return false;
  findings.areInVain |= (status.flags & (FileFlag::SystemImmutable | FileFlag::SystemAppend)) != 0;
  if ((status.flags & FileFlag::UserAppend) != 0) findings.appendOnly.push_back(path);
  const bool isElsewhere = top != nullptr && status.identity.device != top->identity.device;
  return status.type == FileType::Directory && !status.isMountPoint && !isElsewhere &&
         isOurs(path, false);
}

void search(const std::string& path, Findings& findings) {
  FileStatus top;
  if (!examine(path, findings, nullptr, top)) return;
  std::error_code error;
  fs::recursive_directory_iterator entry(path, fs::directory_options::skip_permission_denied,
                                         error);
  for (; !error && entry != fs::end(entry); entry.increment(error)) {
    FileStatus status;
    if (!examine(entry->path().string(), findings, &top, status)) {
      entry.disable_recursion_pending();
    }
  }
}

}  // namespace

std::vector<std::string> appendOnlyObjects(const std::vector<std::string>& paths) {
  Findings findings;
  for (const fs::path path : paths) {
    if (const auto folder = lastingPath(path.parent_path())) {
      search((*folder / path.filename()).string(), findings);
    }
  }
  if (findings.areInVain) findings.appendOnly.clear();
  return findings.appendOnly;
}

}  // namespace corvane::cli
