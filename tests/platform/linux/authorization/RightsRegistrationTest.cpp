#include <filesystem>
#include <sstream>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/ExternalForm.h"
#include "tests/platform/linux/authorization/AuthorizationFolder.h"
#include "tests/platform/linux/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using ::testing::HasSubstr;
using ::testing::UnorderedElementsAreArray;

class RightsRegistrationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root changes rights";
    ASSERT_EQ(AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &root), 0);
  }
  void TearDown() override {
    if (root == nullptr) return;
    set.removeAuthorizationRightsForImplementedOperationsUsingAuthorization(root);
    AuthorizationFree(root, kAuthorizationFlagDefaults);
  }

  static std::optional<Value> definitionOf(const std::string& rightName) {
    std::optional<Value> definition;
    AuthorizationRightGet(rightName.c_str(), &definition);
    return definition;
  }

  /// "WARNING: …" for every right of the catalogue.
  std::vector<std::string> warnings(const std::string& beginning) const {
    std::vector<std::string> lines;
    set.enumerateRightDefinitionsUsingBlock(
        [&](const std::optional<std::string>& rightName, const Value&, const std::string&) {
          lines.push_back(beginning + " right definition for '" + *rightName + "'!");
        });
    return lines;
  }

  static std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }

  /// An authorization that may change nothing, and the process it is of.
  struct Powerless {
    ChildProcess child = ChildProcess::connectedOfUser(someUser);
    AuthorizationRef authorization = nullptr;

    Powerless() {
      AuthorizationKeyFile file(authorizationFolder().path());
      const AuthorizationExternalForm form =
          makeExternalForm(WatchedProcess::ofPeer(child.socket())->identity(), *file.key());
      EXPECT_EQ(AuthorizationCreateFromExternalForm(&form, &authorization), 0);
    }
    ~Powerless() { AuthorizationFree(authorization, kAuthorizationFlagDefaults); }
  };

  const ZELPrivilegedOperationSetVNT set;
  AuthorizationRef root = nullptr;
};

TEST_F(RightsRegistrationTest, WithoutAnAuthorizationNothingIsRegisteredAndNothingIsSaid) {
  testing::internal::CaptureStderr();
  set.setAuthorizationRightsForImplementedOperationsUsingAuthorization(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(definitionOf("com.corvane.vnt.nop"), std::nullopt);
}

TEST_F(RightsRegistrationTest, RegistersTheCatalogueAndRemovesIt) {
  set.setAuthorizationRightsForImplementedOperationsUsingAuthorization(root);
  int count = 0;
  set.enumerateRightDefinitionsUsingBlock([&](const std::optional<std::string>& rightName,
                                              const Value& rule, const std::string& description) {
    const Value* name = rule.dictionary() == nullptr ? &rule : rule.dictionary()->find("rule");
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(definitionOf(*rightName),
              Value(Dictionary{{"rule", *name}, {"description", description}}));
    ++count;
  });
  EXPECT_EQ(count, 8);

  set.removeAuthorizationRightsForImplementedOperationsUsingAuthorization(root);
  set.enumerateRightDefinitionsUsingBlock(
      [&](const std::optional<std::string>& rightName, const Value&, const std::string&) {
        EXPECT_EQ(AuthorizationRightGet(rightName->c_str(), nullptr), errAuthorizationDenied);
      });
}

TEST_F(RightsRegistrationTest, LeavesAnExistingRightUntouched) {
  constexpr const char* existing = "com.corvane.vnt.nop";
  ASSERT_EQ(AuthorizationRightSet(root, existing, "authenticate-admin", "Mine", nullptr), 0);
  set.setAuthorizationRightsForImplementedOperationsUsingAuthorization(root);
  EXPECT_EQ(definitionOf(existing),
            Value(Dictionary{{"rule", "authenticate-admin"}, {"description", "Mine"}}));
  EXPECT_NE(definitionOf("com.corvane.vnt.execute-utility"), std::nullopt);
}

TEST_F(RightsRegistrationTest, ActionsSpeakTheLanguagesOfTheProgram) {
  const std::string actions = authorizationFolder().path("actions");
  ASSERT_EQ(::mkdir(actions.c_str(), 0755), 0);
  set.setAuthorizationRightsForImplementedOperationsUsingAuthorization(root);
  const std::string content = contentOf(actions + "/com.corvane.vnt.delete-files.policy");
  std::filesystem::remove_all(actions);
  EXPECT_THAT(content, HasSubstr("<message>Vantor likes to delete files of the privileged "
                                 "auxiliary program.</message>"));
  EXPECT_THAT(content,
              HasSubstr("<message xml:lang=\"de\">Vantor möchte Dateien des privilegierten "
                        "Hilfsprogramms löschen.</message>"));
}

TEST_F(RightsRegistrationTest, ANullAuthorizationRegistersNothing) {
  set.setAuthorizationRightsForImplementedOperationsUsingAuthorization(nullptr);
  EXPECT_EQ(definitionOf("com.corvane.vnt.nop"), std::nullopt);
}

TEST_F(RightsRegistrationTest, WarnsOfEveryRightThatIsNotAccepted) {
  const Powerless powerless;
  ::testing::internal::CaptureStderr();
  set.setAuthorizationRightsForImplementedOperationsUsingAuthorization(powerless.authorization);
  EXPECT_THAT(
      linesOf(::testing::internal::GetCapturedStderr()),
      UnorderedElementsAreArray(warnings("WARNING: authorization database did not accept")));
}

TEST_F(RightsRegistrationTest, WarnsOfEveryRightThatIsNotRemoved) {
  const Powerless powerless;
  set.setAuthorizationRightsForImplementedOperationsUsingAuthorization(root);
  ::testing::internal::CaptureStderr();
  set.removeAuthorizationRightsForImplementedOperationsUsingAuthorization(powerless.authorization);
  EXPECT_THAT(
      linesOf(::testing::internal::GetCapturedStderr()),
      UnorderedElementsAreArray(warnings("WARNING: authorization database did not remove")));
  EXPECT_NE(definitionOf("com.corvane.vnt.nop"), std::nullopt);
}

TEST_F(RightsRegistrationTest, RemovingSkipsWhatIsNotThere) {
  ::testing::internal::CaptureStderr();
  set.removeAuthorizationRightsForImplementedOperationsUsingAuthorization(root);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(RightsRegistrationTest, TheProgramRegistersListsAndRemoves) {
  const FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  const auto run = [&](const std::string& command) {
    return ChildProcess::program({RIGHTS_PROGRAM, command},
                                 {.output = nothing.get(), .errors = nothing.get()})
        .reap();
  };
  EXPECT_EQ(run("register"), 0);
  EXPECT_NE(definitionOf("com.corvane.vnt.nop"), std::nullopt);
  EXPECT_EQ(run("list"), 0);
  EXPECT_EQ(run("remove"), 0);
  EXPECT_EQ(definitionOf("com.corvane.vnt.nop"), std::nullopt);
  EXPECT_EQ(run("other"), 2);
}

TEST_F(RightsRegistrationTest, TheProgramWritesTheFilesThatRegisteringMakes) {
  const std::string actions = authorizationFolder().path("actions");
  ASSERT_EQ(::mkdir(actions.c_str(), 0755), 0);
  set.setAuthorizationRightsForImplementedOperationsUsingAuthorization(root);
  const TemporaryFolder written;
  const FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  const auto writeTo = [&](const std::string& folder) {
    return ChildProcess::program({RIGHTS_PROGRAM, "write", folder}, {.errors = nothing.get()})
        .reap();
  };
  EXPECT_EQ(writeTo(written.path("")), 0);
  int count = 0;
  for (const auto& file : std::filesystem::directory_iterator(actions)) {
    EXPECT_EQ(contentOf(written.path(file.path().filename().string())),
              contentOf(file.path().string()));
    ++count;
  }
  std::filesystem::remove_all(actions);
  EXPECT_EQ(count, 8);
  EXPECT_EQ(writeTo("/nonexistent"), 1);
}

TEST_F(RightsRegistrationTest, TheProgramTellsOfADamagedRightAndRemovesIt) {
  const auto run = [&](const std::string& command, int status) {
    auto [messages, messagesEnd] = makePipe();
    ChildProcess program =
        ChildProcess::program({RIGHTS_PROGRAM, command}, {.errors = messagesEnd.get()});
    messagesEnd.reset();
    std::string text = readToEnd(messages);
    EXPECT_EQ(program.reap(), status) << text;
    return text;
  };
  const std::string rights = authorizationFolder().path("rights");
  EXPECT_EQ(run("register", 0), "");
  writeFile(rights + "/com.corvane.vnt.nop.plist", "damaged");
  EXPECT_EQ(run("register", 1),
            "com.corvane.rights-vnt: 'com.corvane.vnt.nop' is there and cannot be read; remove the "
            "rights first.\n");
  EXPECT_EQ(run("remove", 0), "");
  EXPECT_TRUE(std::filesystem::is_empty(rights));
}

TEST_F(RightsRegistrationTest, TheProgramRemovesWhatOneAuthorityAloneHas) {
  const FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  const auto run = [&](const std::string& command) {
    return ChildProcess::program({RIGHTS_PROGRAM, command}, {.output = nothing.get()}).reap();
  };
  const std::string actions = authorizationFolder().path("actions");
  const std::string rights = authorizationFolder().path("rights");
  ASSERT_EQ(run("register"), 0);
  // Where polkit came later.
  ASSERT_EQ(::mkdir(actions.c_str(), 0755), 0);
  EXPECT_EQ(run("remove"), 0);
  EXPECT_TRUE(std::filesystem::is_empty(rights));

  ASSERT_EQ(run("register"), 0);
  EXPECT_FALSE(std::filesystem::is_empty(actions));
  std::filesystem::remove_all(rights);
  EXPECT_EQ(run("remove"), 0);
  EXPECT_TRUE(std::filesystem::is_empty(actions));
  std::filesystem::remove_all(actions);
}

}  // namespace
}  // namespace corvane
