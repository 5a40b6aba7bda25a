#include <gtest/gtest.h>

#include "foundation/POSIXError.h"
#include "operations/OperationCodes.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"
#include "tests/privilegedhelper-vnt/AuthorizationStandIn.h"

namespace corvane {
namespace {

class AuthorizationCheckTest : public testing::Test {
 protected:
  AuthorizationCheckTest() {
    AuthorizationStandIn::current = {};
    helper = ZELPrivilegedHelper::initForOperationSet(
        &ZELPrivilegedOperationSetVNT::privilegedOperationSet(), nullptr, nullptr);
  }

  std::optional<Error> check(std::size_t length = 32, std::uint64_t code = codeDeleteFileobjects,
                             const std::optional<std::string>& prompt = {},
                             const std::optional<std::string>& icon = {}) {
    return helper->checkAuthorization(Data(length), code, prompt, icon, code == codeDiscardAuth);
  }

  AuthorizationStandIn& services = AuthorizationStandIn::current;
  ZELPrivilegedHelper* helper;
};

TEST_F(AuthorizationCheckTest, FormsOfAnotherLengthAreInvalidWithoutACall) {
  for (const std::size_t length : {0U, 31U, 33U, 1000000U}) {
    EXPECT_EQ(check(length), posixError(POSIXErrorCode::Invalid)) << length;
  }
  EXPECT_EQ(services.forms, 0);
  EXPECT_TRUE(services.freed.empty());
}

TEST_F(AuthorizationCheckTest, AnUnknownCodeIsInvalidWithoutACall) {
  EXPECT_EQ(check(32, 9999), posixError(POSIXErrorCode::Invalid));
  EXPECT_EQ(services.forms, 0);
}

// One operation with the number 1, of an implementation that is called as a test wants it.
class CalledOperationSet : public ZELPrivilegedOperationSet {
 public:
  explicit CalledOperationSet(std::optional<std::string> code) : _code(std::move(code)) {
    _operations.emplace("one", *ZELPrivilegedOperation::initWithIdentifier(
                                   "one", Value("allow"), false, false, 0, {}, "One."));
  }
  std::optional<std::string> implementationCode() const override { return _code; }
  const Operations* implementedOperations() const override { return &_operations; }
  const Identifiers* opIdentifiersByCode() const override { return &_identifiers; }

 private:
  const std::optional<std::string> _code;
  Operations _operations;
  const Identifiers _identifiers = {{1, "one"}};
};

TEST_F(AuthorizationCheckTest, WithoutANameOfTheRightARequestIsInvalid) {
  for (const std::optional<std::string>& code : {std::optional<std::string>(), {""}}) {
    CalledOperationSet set(code);
    helper = ZELPrivilegedHelper::initForOperationSet(&set, nullptr, nullptr);
    EXPECT_EQ(check(32, 1), posixError(POSIXErrorCode::Invalid));
  }
  EXPECT_EQ(services.forms, 0);
}

TEST_F(AuthorizationCheckTest, ANameThatIsNoUTF8IsNotAskedFor) {
  CalledOperationSet set("v\xFFt");
  helper = ZELPrivilegedHelper::initForOperationSet(&set, nullptr, nullptr);
  EXPECT_EQ(check(32, 1), Error(NSOSStatusErrorDomain, -60004));
  EXPECT_TRUE(services.rights.empty());
  EXPECT_EQ(services.freed.size(), 1U);
}

TEST_F(AuthorizationCheckTest, AsksForTheOneRightWithInteractionAllowed) {
  EXPECT_EQ(check(), std::nullopt);
  EXPECT_EQ(services.rights, std::vector<std::string>{"com.corvane.vnt.delete-fileobjects"});
  EXPECT_EQ(services.requestFlags, 3U);
  EXPECT_EQ(services.freed, std::vector<AuthorizationFlags>{kAuthorizationFlagDefaults});
}

TEST_F(AuthorizationCheckTest, AsksForNoInteractionWhereNoneIsWanted) {
  EXPECT_EQ(helper->checkAuthorization(Data(32), codeDeleteFileobjects, {}, {}, false, false),
            std::nullopt);
  EXPECT_EQ(services.requestFlags, AuthorizationFlags{kAuthorizationFlagExtendRights});
}

TEST_F(AuthorizationCheckTest, AQuestionAboutARightTellsWhatARequestWouldMeet) {
  const auto query = [this] { return helper->queryAuthorization(codeDeleteFileobjects, Data(32)); };
  EXPECT_EQ(*query(), AuthorizationState::Granted);
  services.rightsStatus = errAuthorizationDenied;
  EXPECT_EQ(*query(), AuthorizationState::Denied);
  services.rightsStatus = errAuthorizationInteractionNotAllowed;
  EXPECT_EQ(*query(), AuthorizationState::Unavailable);
  services.canShowDialog = true;
  EXPECT_EQ(*query(), AuthorizationState::Challenge);
  services.rightsStatus = errAuthorizationInternal;
  EXPECT_EQ(query().error(), Error(NSOSStatusErrorDomain, errAuthorizationInternal));
  EXPECT_EQ(services.requestFlags, AuthorizationFlags{kAuthorizationFlagExtendRights});
  EXPECT_EQ(services.freed.size(), 5U);
}

TEST_F(AuthorizationCheckTest, StatusesBecomeErrors) {
  services.rightsStatus = errAuthorizationDenied;
  EXPECT_EQ(check(), posixError(POSIXErrorCode::NotPermitted));
  services.rightsStatus = errAuthorizationCanceled;
  EXPECT_EQ(check(), posixError(POSIXErrorCode::Canceled));
  services.rightsStatus = errAuthorizationInteractionNotAllowed;
  EXPECT_EQ(check(), Error(NSOSStatusErrorDomain, -60007));
  services.rightsStatus = errAuthorizationInternal;
  EXPECT_EQ(check(), Error(NSOSStatusErrorDomain, -60008));
}

TEST_F(AuthorizationCheckTest, ARefusedFormEndsTheCheckAndLeavesNothingToFree) {
  services.formStatus = errAuthorizationInvalidRef;
  EXPECT_EQ(check(), Error(NSOSStatusErrorDomain, -60002));
  EXPECT_TRUE(services.rights.empty());
  EXPECT_TRUE(services.freed.empty());
}

TEST_F(AuthorizationCheckTest, DiscardingDestroysTheRightsEvenWhenTheRightWasRefused) {
  EXPECT_EQ(check(32, codeDiscardAuth), std::nullopt);
  services.rightsStatus = errAuthorizationDenied;
  EXPECT_NE(check(32, codeDiscardAuth), std::nullopt);
  EXPECT_EQ(services.freed, (std::vector<AuthorizationFlags>{kAuthorizationFlagDestroyRights,
                                                             kAuthorizationFlagDestroyRights}));
}

TEST_F(AuthorizationCheckTest, ARefusedRightOfAnotherOperationIsFreedWithDefaultFlags) {
  services.rightsStatus = errAuthorizationDenied;
  check();
  EXPECT_EQ(services.freed, std::vector<AuthorizationFlags>{kAuthorizationFlagDefaults});
}

TEST_F(AuthorizationCheckTest, AnEmptyEnvironmentIsPassedAllTheSame) {
  check(32, codeDeleteFileobjects, "", "");
  EXPECT_TRUE(services.hadEnvironment);
  EXPECT_FALSE(services.hadItems);
  EXPECT_TRUE(services.environment.empty());
}

TEST_F(AuthorizationCheckTest, PromptAndIconReachTheServicesInThisOrder) {
  check(32, codeDeleteFileobjects, "Please", "/icon.png");
  EXPECT_EQ(services.environment,
            (std::vector<std::pair<std::string, std::size_t>>{{"prompt", 7}, {"icon", 10}}));
}

TEST_F(AuthorizationCheckTest, MetadataOfAnotherKindThanStringsAreIgnored) {
  std::optional<std::string> prompt;
  std::optional<std::string> icon;
  helper->processMetadataDictionary(
      Dictionary{{"ZELAuthorizationPrompt", 5}, {"ZELAuthorizationIcon", "/icon"}, {"other", "x"}},
      &prompt, &icon);
  EXPECT_EQ(prompt, std::nullopt);
  EXPECT_EQ(icon, "/icon");
}

TEST_F(AuthorizationCheckTest, MetadataIsWrittenOnlyWhereItIsWanted) {
  std::optional<std::string> prompt = "before";
  helper->processMetadataDictionary(Dictionary{{"ZELAuthorizationIcon", "/icon"}}, &prompt,
                                    nullptr);
  EXPECT_EQ(prompt, "before");
}

}  // namespace
}  // namespace corvane
