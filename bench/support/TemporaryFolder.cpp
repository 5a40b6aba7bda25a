#include "bench/support/TemporaryFolder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace corvane::bench {

TemporaryFolder::TemporaryFolder()
    : _path(std::filesystem::temp_directory_path() / "corvane-bench.XXXXXX") {
  if (::mkdtemp(_path.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "no temporary folder");
  }
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

}  // namespace corvane::bench
