#include "tests/authorization/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/linux/authorization/AuthorizationDirectory.h"

namespace corvane {

namespace {

// The folder is named in the environment before anything can have looked.
class AuthorizationFolder : public ::testing::Environment {
 public:
  void SetUp() override {
    ::setenv(AuthorizationDirectoryVariable, authorizationFolder().path().c_str(), 1);
  }
};
const auto* const environment =
    ::testing::AddGlobalTestEnvironment(new AuthorizationFolder);  // NOLINT: owned by the library

}  // namespace

TemporaryFolder::TemporaryFolder() : _path("/tmp/authorization-tests.XXXXXX") {
  if (::mkdtemp(_path.data()) == nullptr) std::abort();
  // Other users pass through it to the sockets in it.
  ::chmod(_path.c_str(), 0755);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

const TemporaryFolder& authorizationFolder() {
  static const TemporaryFolder folder;
  return folder;
}

std::string contentOf(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

void writeFile(const std::string& path, const std::string& content, unsigned permissions) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
  ::chmod(path.c_str(), permissions);
}

}  // namespace corvane
