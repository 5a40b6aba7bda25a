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

std::optional<Error> setFlags(const std::string& path, FileFlags flags) {
  FileDescriptor object;
  if (auto error = openObject(AT_FDCWD, path.c_str(), FinalLink::Keep, object)) return error;
  return chflags(object.get(), flags);
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
  if (auto error = setFlags(file, UF_IMMUTABLE)) return error;
  for (const std::string& folder : foldersOf(_path)) {
    if (auto error = setFlags(folder, UF_IMMUTABLE)) return error;
  }
  return std::nullopt;
}

ProtectedTree::~ProtectedTree() {
  if (_folder.empty()) return;
  for (const std::string& folder : foldersOf(_path)) setFlags(folder, 0);
  setFlags(fileOf(_path), 0);
  std::error_code ignored;
  fs::remove_all(_folder, ignored);
}

bool ProtectedTree::isThere() const {
  std::error_code ignored;
  return fs::symlink_status(_path, ignored).type() != fs::file_type::not_found;
}

}  // namespace corvane::cli
