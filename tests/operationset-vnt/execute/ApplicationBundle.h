#ifndef CORVANE_TESTS_OPERATIONSET_VNT_EXECUTE_APPLICATIONBUNDLE_H
#define CORVANE_TESTS_OPERATIONSET_VNT_EXECUTE_APPLICATIONBUNDLE_H

#include <string>

#include "tests/support/TemporaryFolder.h"

namespace corvane::tests {

/// The bundle of a client application with the executable "Application".
class ApplicationBundle {
 public:
  ApplicationBundle() {
    setExecutableName("<string>Application</string>");
    _folder.makeScript("Application.app/Contents/MacOS/Application", "");
  }

  std::string path() const { return _folder.path("Application.app"); }
  std::string path(const std::string& name) const { return path() + "/Contents/" + name; }
  std::string utilityPath() const { return path("MacOS/lipo"); }
  const TemporaryFolder& folder() const { return _folder; }

  /// The element that the information property list has under CFBundleExecutable.
  void setExecutableName(const std::string& element) const {
    _folder.makeFile(
        "Application.app/Contents/Info.plist",
        "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key>" + element + "</dict></plist>");
  }
  /// Adds the utility, a shell script.
  void addUtility(const std::string& script) const {
    _folder.makeScript("Application.app/Contents/MacOS/lipo", script);
  }

 private:
  TemporaryFolder _folder;
};

}  // namespace corvane::tests

#endif
