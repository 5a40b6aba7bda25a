#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/linux/installation/UnitFaults.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using Kind = HelperInstallation::Fault::Kind;
using testing::IsEmpty;

UnitProperties with(UnitProperties properties, const UnitProperties& others) {
  for (const auto& [name, value] : others) properties[name] = value;
  return properties;
}

UnitProperties socketWith(const UnitProperties& others) {
  return with({{"Id", "test.socket"},
               {"LoadState", "loaded"},
               {"UnitFileState", "enabled"},
               {"ActiveState", "active"},
               {"NeedDaemonReload", "no"}},
              others);
}

UnitProperties serviceWith(const UnitProperties& others) {
  return with({{"Id", "test.service"},
               {"LoadState", "loaded"},
               {"UnitFileState", "static"},
               {"ActiveState", "inactive"},
               {"DropInPaths", ""},
               {"User", ""},
               {"MainPID", "0"}},
              others);
}

/// Kinds and descriptions.
using Told = std::vector<std::pair<Kind, std::string>>;
Told told(const InstallationFaults& faults) {
  Told told;
  for (const auto& fault : faults) {
    EXPECT_FALSE(fault.cure.empty()) << fault.description;
    EXPECT_EQ(fault.cure.find("UNIT"), std::string::npos) << fault.cure;
    told.emplace_back(fault.kind, fault.description);
  }
  return told;
}

TEST(UnitFaultsTest, ASocketThatWaitsAndAServiceThatIsNotNeededHaveNone) {
  EXPECT_THAT(faultsOfUnit(socketWith({})), IsEmpty());
  EXPECT_THAT(faultsOfUnit(serviceWith({})), IsEmpty());
}

TEST(UnitFaultsTest, WhatKeepsASocketFromWaitingIsToldApart) {
  const std::vector<std::pair<UnitProperties, Told>> states = {
      {{{"LoadState", "masked"}, {"UnitFileState", "masked"}, {"ActiveState", "inactive"}},
       {{Kind::Broken, "test.socket is masked"}}},
      {{{"LoadState", "not-found"}, {"UnitFileState", ""}, {"ActiveState", "inactive"}},
       {{Kind::Broken, "test.socket is missing"}}},
      {{{"LoadState", "bad-setting"}},
       {{Kind::Broken, "test.socket cannot be used as it is written (bad-setting)"}}},
      {{{"UnitFileState", "disabled"}},
       {{Kind::Broken,
         "test.socket is disabled: it is not there after the next start of the system"}}},
      {{{"ActiveState", "inactive"}}, {{Kind::Broken, "test.socket is stopped"}}},
      {{{"ActiveState", "failed"}, {"Result", "service-start-limit-hit"}},
       {{Kind::Broken, "test.socket has failed (service-start-limit-hit)"}}},
      {{{"NeedDaemonReload", "yes"}},
       {{Kind::Broken, "test.socket was changed, and systemd works with what it was"}}},
  };
  for (const auto& [state, expected] : states) {
    EXPECT_EQ(told(faultsOfUnit(socketWith(state))), expected);
  }
}

TEST(UnitFaultsTest, ThatAServiceIsMaskedOrHasFailedIsTold) {
  EXPECT_EQ(told(faultsOfUnit(serviceWith({{"LoadState", "masked"}}))),
            (Told{{Kind::Broken, "test.service is masked"}}));
  EXPECT_EQ(told(faultsOfUnit(serviceWith({{"ActiveState", "failed"}, {"Result", "signal"}}))),
            (Told{{Kind::Broken, "test.service has failed (signal)"}}));
}

TEST(UnitFaultsTest, AChangeIsNotedWithItsFilesAndAnotherUserIsAFault) {
  const UnitProperties changed = {{"DropInPaths", "/etc/a.conf /run/b.conf"}};
  EXPECT_EQ(told(faultsOfUnit(serviceWith(changed))),
            (Told{{Kind::Changed, "test.service is changed by /etc/a.conf /run/b.conf"}}));
  EXPECT_EQ(told(faultsOfUnit(serviceWith(with(changed, {{"User", "nobody"}})))),
            (Told{{Kind::Broken, "test.service runs as nobody, and can do its work only as root"},
                  {Kind::Changed, "test.service is changed by /etc/a.conf /run/b.conf"}}));
  EXPECT_THAT(faultsOfUnit(serviceWith({{"User", "root"}})), IsEmpty());
}

TEST(UnitFaultsTest, AProgramThatWasReplacedWhileItRunsIsNoted) {
  const std::string own = std::filesystem::read_symlink("/proc/self/exe").string();
  const auto running =
      serviceWith({{"ActiveState", "active"}, {"MainPID", std::to_string(::getpid())}});
  EXPECT_THAT(faultsOfRunningProgram(own, running), IsEmpty());
  EXPECT_THAT(faultsOfRunningProgram(own, serviceWith({})), IsEmpty());

  const TemporaryFolder folder;
  const std::string other = folder.path("program");
  EXPECT_THAT(faultsOfRunningProgram(other, running), IsEmpty()) << "there is none to compare with";
  writeFile(other, "another");
  EXPECT_EQ(told(faultsOfRunningProgram(other, running)),
            (Told{{Kind::Changed, "test.service runs as process " + std::to_string(::getpid()) +
                                      " with another program than " + other + " is now"}}));
}

}  // namespace
}  // namespace corvane
