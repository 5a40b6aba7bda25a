#include "tests/platform/linux/installation/InstallationTest.h"

#include <algorithm>
#include <filesystem>

#include <unistd.h>

#include "tests/support/Files.h"

namespace corvane {

namespace fs = std::filesystem;

void InstallationTest::SetUp() {
  if (::geteuid() != 0) GTEST_SKIP() << "what is installed is made root's";
  if (::access("/bin/systemctl", X_OK) != 0) GTEST_SKIP() << "needs systemctl to enable units";
  for (const char* name : {"bin", "etc", "usr/lib", "run"}) fs::create_directories(inRoot(name));
  makePayload("first");
}

void InstallationTest::makePayload(const std::string& version) const {
  const auto make = [&](const std::string& name, const std::string& text) {
    writeFile(payload(name), text + "\n# " + version + "\n");
  };
  const std::string service = "[Service]\nExecStart=/bin/true";
  const std::string socket = "[Socket]\nListenStream=/run/test\n[Install]\nWantedBy=sockets.target";
  make(label, "program");
  make(std::string(label) + ".service", service);
  make(std::string(label) + ".socket", socket);
  make("com.corvane.authorization", "program");
  make("com.corvane.authorization.service", service);
  make("com.corvane.authorization.socket", socket);
  make("launchctl", "launchctl for systemd, version");
}

std::unique_ptr<HelperInstallation> InstallationTest::installation() const {
  return HelperInstallation::ofHelper(label, folder.path("payload"), folder.path("root"));
}

Result<void> InstallationTest::install() const {
  const auto made = installation();
  auto done = made->putInPlace();
  if (done) made->keep();
  return done;
}

int InstallationTest::countOf(State state) const {
  const auto all = installation()->parts();
  return static_cast<int>(std::count_if(all.begin(), all.end(),
                                        [state](const auto& part) { return part.state == state; }));
}

std::map<std::string, std::string> InstallationTest::system() const {
  auto all = contentsOf(folder.path("root"));
  std::erase_if(
      all, [](const auto& entry) { return fs::is_directory(fs::symlink_status(entry.first)); });
  return all;
}

}  // namespace corvane
