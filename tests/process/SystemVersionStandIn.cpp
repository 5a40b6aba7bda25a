#include "tests/process/SystemVersionStandIn.h"

#include "platform/SystemVersion.h"
#include "process/NSProcessInfoZELAdditions.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {

namespace {

std::string& path() {
  static std::string value = "/nonexistent/SystemVersion.plist";
  return value;
}

}  // namespace

std::string systemVersionPath() {
  return path();
}

namespace tests {

void useSystemVersionFile(const std::string& file) {
  path() = file;
  updateVersionInfo();
}

void useSystemVersion(const std::string& productVersion) {
  const TemporaryFolder folder;
  useSystemVersionFile(folder.makeFile("SystemVersion.plist",
                                       "<plist version=\"1.0\"><dict><key>ProductVersion</key>"
                                       "<string>" +
                                           productVersion + "</string></dict></plist>"));
}

}  // namespace tests
}  // namespace corvane
