#ifndef CORVANE_TESTS_SUPPORT_PROTECTION_H
#define CORVANE_TESTS_SUPPORT_PROTECTION_H

#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "foundation/Error.h"
#include "platform/FileSystem.h"

namespace corvane {

/// Which of FileFlag::UserImmutable and UserAppend the system itself has for a file or folder, set
/// and read as an administrator's tools do it. Failures throw std::system_error.
void setKernelFlags(const std::string& path, FileFlags flags);
FileFlags kernelFlags(const std::string& path);

/// The flags word of the object at `path`, and a change of it, by way of the platform.
FileFlags fileFlags(const std::string& path);
std::optional<Error> changeFileFlags(const std::string& path, FileFlags flags);

/// What a test would need for files in `parent` to be protected; empty if it has that.
std::string obstacleToProtection(const std::string& parent = "/var/tmp");

/// Where a test that needs many files makes them: in memory, if files can be protected there.
/// A disk's file system may take very long to make files shortly after many were removed.
std::string parentForManyFiles();

/// A test that is skipped where files cannot be protected.
class ProtectionTest : public testing::Test {
 protected:
  void SetUp() override;
};

}  // namespace corvane

#endif
