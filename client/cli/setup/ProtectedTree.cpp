#include "client/cli/setup/ProtectedTree.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "platform/FileSystem.h"

namespace corvane::cli {

namespace {

namespace fs = std::filesystem;

// In /var/tmp, which is on a disk, as most of what is deleted; /tmp may be in memory.
constexpr const char* nameOfFolder = "/var/tmp/corvane-trial.XXXXXX";

// From the top down.
std::vector<std::string> foldersOf(const std::string& tree) {
  return {tree, tree + "/inner"};
}

std::string fileOf(const std::string& tree) {
  return foldersOf(tree).back() + "/file";
}

std::optional<Error> protect(const std::string& path) {
  return changeFlags(AT_FDCWD, path.c_str(), FinalLink::Keep, 0, FileFlag::UserImmutable);
}

void unprotect(const std::string& path) {
  changeFlags(AT_FDCWD, path.c_str(), FinalLink::Keep, FileFlag::UserImmutable, 0);
}

}  // namespace

ProtectedTree::ProtectedTree() {
  std::string name = nameOfFolder;
  if (::mkdtemp(name.data()) == nullptr) {
    _error = posixErrorAbout(name, errno);
    return;
  }
  _folder = name;
  _path = _folder + "/tree";
  _error = make();
}

std::optional<Error> ProtectedTree::make() {
  for (const std::string& folder : foldersOf(_path)) {
    if (::mkdir(folder.c_str(), 0700) != 0) return posixErrorAbout(folder, errno);
  }
  const std::string file = fileOf(_path);
  if (!FileDescriptor(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600))) {
    return posixErrorAbout(file, errno);
  }
  if (auto error = protect(file)) return error;
  for (const std::string& folder : foldersOf(_path)) {
    if (auto error = protect(folder)) return error;
  }
  return std::nullopt;
}

ProtectedTree::~ProtectedTree() {
  if (_folder.empty()) return;
  for (const std::string& folder : foldersOf(_path)) unprotect(folder);
  unprotect(fileOf(_path));
  std::error_code ignored;
  fs::remove_all(_folder, ignored);
}

bool ProtectedTree::isThere() const {
  std::error_code ignored;
  return fs::symlink_status(_path, ignored).type() != fs::file_type::not_found;
}

}  // namespace corvane::cli
