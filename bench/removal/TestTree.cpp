#include "bench/removal/TestTree.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "platform/FileSystem.h"

namespace corvane {

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

FileDescriptor makeFolder(int parent, const std::string& name) {
  if (::mkdirat(parent, name.c_str(), 0755) != 0) fail(name);
  FileDescriptor folder(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) fail(name);
  return folder;
}

}  // namespace

void makeTree(const std::string& path, const TreeShape& shape) {
  const FileDescriptor top = makeFolder(AT_FDCWD, path);
  std::size_t count = 0;
  for (std::size_t i = 0; i < shape.folders; ++i) {
    const FileDescriptor folder = makeFolder(top.get(), "folder-" + std::to_string(i));
    for (std::size_t j = 0; j < shape.filesPerFolder; ++j) {
      const std::string name = "file-" + std::to_string(j);
      const FileDescriptor file(
          ::openat(folder.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
      if (!file) fail(name);
      if (shape.protectedEvery != 0 && ++count % shape.protectedEvery == 0 &&
          changeFlags(folder.get(), name.c_str(), FinalLink::Keep, 0, FileFlag::UserImmutable)) {
        fail(name);
      }
    }
  }
  if (::syncfs(top.get()) != 0) fail(path);
}

}  // namespace corvane
