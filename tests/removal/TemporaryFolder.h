#ifndef CORVANE_TESTS_REMOVAL_TEMPORARYFOLDER_H
#define CORVANE_TESTS_REMOVAL_TEMPORARYFOLDER_H

#include <string>

#include <gtest/gtest.h>

#include "foundation/FileDescriptor.h"
#include "platform/FileSystem.h"

namespace corvane {

/// A folder of a test, gone with all that is in it when the test is over, protected or not. What
/// it makes throws std::system_error on a failure.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const std::string& parent = "/var/tmp");
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  const std::string& path() const { return _path; }
  std::string path(const std::string& name) const { return _path + "/" + name; }

  /// Each makes an object and returns its path.
  std::string makeFile(const std::string& name) const;
  std::string makeFolder(const std::string& name) const;
  std::string makeLink(const std::string& name, const std::string& target) const;
  std::string makeWhiteout(const std::string& name) const;
  std::string makeFifo(const std::string& name) const;

 private:
  std::string _path;
};

/// Where a test that needs many files makes them: in memory, if files can be protected there.
/// A disk's file system may take very long to make files shortly after many were removed.
std::string parentForManyFiles();

/// True if there is an object at `path`, be it a link without a target.
bool exists(const std::string& path);

/// The kernel's own flags of a file or folder (FS_IMMUTABLE_FL, FS_APPEND_FL), set and read as an
/// administrator's tools do it.
void setKernelFlags(const std::string& path, int flags);
int kernelFlags(const std::string& path);

/// The flags word of the object at `path`, and a change of it, by way of the platform.
FileFlags fileFlags(const std::string& path);
std::optional<Error> changeFileFlags(const std::string& path, FileFlags flags);

/// Tests of protection need to be root on a file system that has it.
class ProtectionTest : public testing::Test {
 protected:
  void SetUp() override;
};

}  // namespace corvane

#endif
