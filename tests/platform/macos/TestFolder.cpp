#include "tests/platform/macos/TestFolder.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace corvane {

TestFolder::TestFolder() : _path("/tmp/corvane-test.XXXXXX") {
  if (::mkdtemp(_path.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), _path);
  }
}

TestFolder::~TestFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

void TestFolder::makeFile(const std::string& name) const {
  std::ofstream(path(name)) << name;
}

FileDescriptor TestFolder::open() const {
  return FileDescriptor(::open(_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace corvane
