#ifndef CORVANE_TESTS_PLATFORM_LINUX_INSTALLATION_INSTALLATIONTEST_H
#define CORVANE_TESTS_PLATFORM_LINUX_INSTALLATION_INSTALLATIONTEST_H

#include <map>
#include <memory>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "platform/HelperInstallation.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {

/// A helper to install on a system that is a folder, on which systemd does not run.
class InstallationTest : public testing::Test {
 protected:
  using State = HelperInstallation::Part::State;

  static constexpr const char* label = "com.corvane.test";
  /// How many parts an installation has, and how many of them are files of the payload.
  static constexpr int parts = 9;
  static constexpr int files = 7;

  void SetUp() override;

  /// Makes the files that are installed those of this version.
  void makePayload(const std::string& version) const;
  std::unique_ptr<HelperInstallation> installation() const;
  /// Puts all in place and keeps it, unless that fails.
  Result<void> install() const;
  /// The number of parts in this state.
  int countOf(State state) const;

  std::string payload(const std::string& name) const { return folder.path("payload/" + name); }
  std::string inRoot(const std::string& name) const { return folder.path("root/" + name); }
  std::string program() const { return inRoot(std::string("usr/libexec/") + label); }
  /// Everything of the system but folders: paths, with contents and targets of links.
  std::map<std::string, std::string> system() const;

  TemporaryFolder folder;
};

}  // namespace corvane

#endif
