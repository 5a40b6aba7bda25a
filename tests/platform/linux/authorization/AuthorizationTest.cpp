#include <array>
#include <cstring>

#include <gtest/gtest.h>

#include "platform/Authorization.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/ExternalForm.h"
#include "platform/linux/transport/CurrentPeer.h"
#include "tests/platform/linux/authorization/AuthorizationFolder.h"
#include "tests/platform/linux/support/ChildProcess.h"

namespace corvane {
namespace {

constexpr const char* allowedRight = "com.corvane.test.allowed";
constexpr const char* guardedRight = "com.corvane.test.guarded";

class AuthorizationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "the authorization service is root's";
    ASSERT_EQ(AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &own), 0);
    ASSERT_EQ(AuthorizationRightSet(own, allowedRight, "allow", "Allowed?", nullptr), 0);
    ASSERT_EQ(
        AuthorizationRightSet(own, guardedRight, Dictionary{{"rule", "default"}}, "Guarded?", "T"),
        0);
  }
  void TearDown() override {
    if (own == nullptr) return;
    AuthorizationRightRemove(own, allowedRight);
    AuthorizationRightRemove(own, guardedRight);
    EXPECT_EQ(AuthorizationFree(own, kAuthorizationFlagDefaults), 0);
  }

  static AuthorizationExternalForm formOf(const ProcessIdentity& identity) {
    AuthorizationKeyFile file(authorizationFolder().path());
    return makeExternalForm(identity, *file.key());
  }
  static ProcessIdentity identityOf(const ChildProcess& child) {
    return WatchedProcess::ofPeer(child.socket())->identity();
  }

  /// The status of making an authorization of `form`, which is freed again.
  static OSStatus accept(const AuthorizationExternalForm& form) {
    AuthorizationRef authorization = nullptr;
    const OSStatus status = AuthorizationCreateFromExternalForm(&form, &authorization);
    EXPECT_EQ(authorization != nullptr, status == errAuthorizationSuccess);
    if (authorization != nullptr) AuthorizationFree(authorization, kAuthorizationFlagDefaults);
    return status;
  }

  static OSStatus ask(AuthorizationRef authorization, const char* rightName) {
    AuthorizationItem item{rightName, 0, nullptr, 0};
    const AuthorizationRights rights{1, &item};
    const AuthorizationEnvironment environment{0, nullptr};
    return AuthorizationCopyRights(
        authorization, &rights, &environment,
        kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights, nullptr);
  }

  AuthorizationRef own = nullptr;
};

TEST_F(AuthorizationTest, OwnFormIsAccepted) {
  EXPECT_EQ(accept(formOf(ProcessIdentity::ofThisProcess())), errAuthorizationSuccess);
}

TEST_F(AuthorizationTest, AForgedHashIsRefused) {
  AuthorizationExternalForm form = formOf(ProcessIdentity::ofThisProcess());
  form.bytes[31] ^= std::byte{1};
  EXPECT_EQ(accept(form), errAuthorizationInvalidRef);
  EXPECT_EQ(accept({}), errAuthorizationInvalidRef);
}

TEST_F(AuthorizationTest, ARefusedFormLeavesTheReferenceUntouched) {
  const AuthorizationExternalForm form = {};
  AuthorizationRef authorization = own;
  EXPECT_EQ(AuthorizationCreateFromExternalForm(&form, &authorization), errAuthorizationInvalidRef);
  EXPECT_EQ(authorization, own);
}

TEST_F(AuthorizationTest, AFormIsOfUseToItsUserAndToRootAlone) {
  const ChildProcess child = ChildProcess::connectedOfUser(someUser);
  const AuthorizationExternalForm form = formOf(identityOf(child));
  const AuthorizationExternalForm formOfRoot = formOf(ProcessIdentity::ofThisProcess());
  {
    const Peer peer{child.pid(), someUser, someUser};
    const CurrentPeerScope scope(peer);
    EXPECT_EQ(accept(form), errAuthorizationSuccess);
    EXPECT_EQ(accept(formOfRoot), errAuthorizationInvalidRef);
  }
  {
    const Peer peer{child.pid(), anotherUser, someUser};
    const CurrentPeerScope scope(peer);
    EXPECT_EQ(accept(form), errAuthorizationInvalidRef);
  }
  {
    const Peer peer{1, 0, 0};
    const CurrentPeerScope scope(peer);
    EXPECT_EQ(accept(form), errAuthorizationSuccess);
  }
  EXPECT_EQ(accept(form), errAuthorizationSuccess) << "outside of a request the caller is root";
}

TEST_F(AuthorizationTest, AFormOfAnEndedProcessIsRefused) {
  ChildProcess child = ChildProcess::connectedOfUser(someUser);
  const AuthorizationExternalForm form = formOf(identityOf(child));
  child.kill();
  EXPECT_EQ(accept(form), errAuthorizationInvalidRef);
  child.reap();
  EXPECT_EQ(accept(form), errAuthorizationInvalidRef);
}

TEST_F(AuthorizationTest, AFormOfAReusedProcessNumberIsRefused) {
  ChildProcess child = ChildProcess::connectedOfUser(0);
  const ProcessIdentity identity = identityOf(child);
  const AuthorizationExternalForm form = formOf(identity);
  child.kill();
  child.reap();
  const std::optional<ChildProcess> successor = ChildProcess::successorOf(identity);
  if (!successor) GTEST_SKIP() << "process numbers cannot be chosen here";
  EXPECT_EQ(accept(form), errAuthorizationInvalidRef);
}

TEST_F(AuthorizationTest, DecidesForTheProcessOfTheForm) {
  const ChildProcess child = ChildProcess::connectedOfUser(someUser);
  const AuthorizationExternalForm form = formOf(identityOf(child));
  AuthorizationRef authorization = nullptr;
  ASSERT_EQ(AuthorizationCreateFromExternalForm(&form, &authorization), 0);
  EXPECT_EQ(ask(authorization, allowedRight), errAuthorizationSuccess);
  EXPECT_EQ(ask(authorization, guardedRight), errAuthorizationInteractionNotAllowed);
  EXPECT_EQ(AuthorizationFree(authorization, kAuthorizationFlagDestroyRights), 0);
  EXPECT_EQ(ask(own, guardedRight), errAuthorizationSuccess) << "this process is root's";
}

TEST_F(AuthorizationTest, AllRightsOfASetMustBeGranted) {
  const ChildProcess child = ChildProcess::connectedOfUser(someUser);
  const AuthorizationExternalForm form = formOf(identityOf(child));
  AuthorizationRef authorization = nullptr;
  ASSERT_EQ(AuthorizationCreateFromExternalForm(&form, &authorization), 0);
  std::array items = {AuthorizationItem{allowedRight, 0, nullptr, 0},
                      AuthorizationItem{guardedRight, 0, nullptr, 0}};
  const AuthorizationRights rights{items.size(), items.data()};
  EXPECT_EQ(AuthorizationCopyRights(authorization, &rights, nullptr, 3, nullptr),
            errAuthorizationInteractionNotAllowed);
  AuthorizationFree(authorization, kAuthorizationFlagDefaults);
}

TEST_F(AuthorizationTest, ASetThatNamesNothingIsNeverGranted) {
  const AuthorizationRights empty{0, nullptr};
  EXPECT_EQ(AuthorizationCopyRights(own, &empty, nullptr, 3, nullptr), errAuthorizationInvalidSet);
  EXPECT_EQ(AuthorizationCopyRights(own, nullptr, nullptr, 3, nullptr), errAuthorizationInvalidSet);
  for (const char* name : {"", "../key", "a b", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(ask(own, name), errAuthorizationInvalidSet);
  }
}

TEST_F(AuthorizationTest, NullPointersAreRefused) {
  const AuthorizationExternalForm form = formOf(ProcessIdentity::ofThisProcess());
  AuthorizationRef authorization = nullptr;
  EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, 0, nullptr), errAuthorizationInvalidPointer);
  EXPECT_EQ(AuthorizationCreateFromExternalForm(nullptr, &authorization),
            errAuthorizationInvalidPointer);
  EXPECT_EQ(AuthorizationCreateFromExternalForm(&form, nullptr), errAuthorizationInvalidPointer);
  EXPECT_EQ(ask(nullptr, allowedRight), errAuthorizationInvalidRef);
  EXPECT_EQ(AuthorizationFree(nullptr, 0), errAuthorizationInvalidRef);
}

TEST_F(AuthorizationTest, AnAuthorizationCanBeMadeWithItsRights) {
  AuthorizationItem item{guardedRight, 0, nullptr, 0};
  const AuthorizationRights rights{1, &item};
  AuthorizationRef authorization = nullptr;
  EXPECT_EQ(AuthorizationCreate(&rights, nullptr, kAuthorizationFlagExtendRights, &authorization),
            0);
  EXPECT_EQ(AuthorizationFree(authorization, 0), 0);
}

TEST_F(AuthorizationTest, RightsAreFoundAsTheyWereDefined) {
  std::optional<Value> definition;
  ASSERT_EQ(AuthorizationRightGet(guardedRight, &definition), 0);
  EXPECT_EQ(definition, Value(Dictionary{{"rule", "default"}, {"description", "Guarded?"}}));
  EXPECT_EQ(AuthorizationRightGet("com.corvane.test.unknown", nullptr), errAuthorizationDenied);
  EXPECT_EQ(AuthorizationRightGet("../key", nullptr), errAuthorizationDenied);
  EXPECT_EQ(AuthorizationRightRemove(own, "com.corvane.test.unknown"), errAuthorizationDenied);
}

TEST_F(AuthorizationTest, UnusableDefinitionsAreRefused) {
  constexpr const char* name = "com.corvane.test.new";
  for (const Value& definition : {Value(""), Value(7), Value(Dictionary()),
                                  Value(Dictionary{{"rule", 7}}), Value(Array{"allow"})}) {
    EXPECT_EQ(AuthorizationRightSet(own, name, definition, "", nullptr),
              errAuthorizationInvalidSet);
  }
  EXPECT_EQ(AuthorizationRightSet(own, "../new", "allow", "", nullptr), errAuthorizationInvalidSet);
  EXPECT_EQ(AuthorizationRightSet(nullptr, name, "allow", "", nullptr), errAuthorizationInvalidRef);
  EXPECT_EQ(AuthorizationRightGet(name, nullptr), errAuthorizationDenied);
}

TEST_F(AuthorizationTest, OnlyRootChangesRights) {
  const ChildProcess child = ChildProcess::connectedOfUser(someUser);
  const AuthorizationExternalForm form = formOf(identityOf(child));
  AuthorizationRef authorization = nullptr;
  ASSERT_EQ(AuthorizationCreateFromExternalForm(&form, &authorization), 0);
  EXPECT_EQ(AuthorizationRightSet(authorization, guardedRight, "allow", "", nullptr),
            errAuthorizationDenied);
  EXPECT_EQ(AuthorizationRightRemove(authorization, guardedRight), errAuthorizationDenied);
  AuthorizationFree(authorization, kAuthorizationFlagDefaults);
  EXPECT_EQ(AuthorizationRightGet(guardedRight, nullptr), 0);
}

}  // namespace
}  // namespace corvane
