#include "tests/platform/linux/authorization/AuthorizationFolder.h"

#include <cstdlib>

#include <gtest/gtest.h>

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

const TemporaryFolder& authorizationFolder() {
  static const TemporaryFolder folder;
  return folder;
}

}  // namespace corvane
