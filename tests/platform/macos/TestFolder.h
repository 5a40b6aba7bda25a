#ifndef CORVANE_TESTS_PLATFORM_MACOS_TESTFOLDER_H
#define CORVANE_TESTS_PLATFORM_MACOS_TESTFOLDER_H

#include <string>

#include "foundation/FileDescriptor.h"

namespace corvane {

/// An empty folder, which is removed with this object.
class TestFolder {
 public:
  TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder();

  std::string path(const std::string& name = "") const { return _path + "/" + name; }
  void makeFile(const std::string& name) const;
  FileDescriptor open() const;

 private:
  std::string _path;
};

}  // namespace corvane

#endif
