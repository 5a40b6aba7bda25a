#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "operations/ZELPrivilegedOperation.h"
#include "tests/support/LogLines.h"

namespace corvane {
namespace {

using Description = _ZELPrivilegedOperationDescription;

constexpr Description sound = {7, "do-it", 1, 1, 0, 3, "NSS", "Vantor likes to do it."};

// What building from `description` writes to the standard log.
std::string logOf(const Description& description, bool isAccepted) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(ZELPrivilegedOperation::initWithStaticDescription(description).has_value(), isAccepted);
  return testing::internal::GetCapturedStderr();
}

TEST(OperationDescriptionTest, KeepsWhatTheRecordSays) {
  const auto operation = ZELPrivilegedOperation::initWithStaticDescription(sound);
  ASSERT_TRUE(operation);
  EXPECT_EQ(operation->identifier(), "do-it");
  EXPECT_TRUE(operation->isSupportingProgressFeedback());
  EXPECT_FALSE(operation->isSupportingLiveOutput());
  EXPECT_EQ(operation->argumentCount(), 3);
  EXPECT_EQ(operation->argumentTypeCodes(), "NSS");
  EXPECT_EQ(operation->presentationString(), "Vantor likes to do it.");
}

TEST(OperationDescriptionTest, NullIdentifierNullPresentationAndPolicyThreeAreRejectedSilently) {
  Description description = sound;
  description.identifier = nullptr;
  EXPECT_EQ(logOf(description, false), "");
  description = sound;
  description.userPresentation = nullptr;
  EXPECT_EQ(logOf(description, false), "");
  description = sound;
  description.authenticationPolicy = 3;
  EXPECT_EQ(logOf(description, false), "");
}

TEST(OperationDescriptionTest, ContradictingCapabilitiesAreReported) {
  Description description = sound;
  description.outputCapability = 1;
  EXPECT_THAT(logOf(description, false),
              logLineIs("(null): implementation error - the static description with code 7 "
                        "contains inconsistent data and was not accepted."));
}

TEST(OperationDescriptionTest, EmptyIdentifierAndEmptyPresentationAreReported) {
  Description description = sound;
  description.identifier = "";
  EXPECT_NE(logOf(description, false), "");
  description = sound;
  description.userPresentation = "";
  EXPECT_NE(logOf(description, false), "");
}

TEST(OperationDescriptionTest, WhatIsNoTextHasNoLength) {
  Description description = sound;
  description.identifier = "do-\xFF";
  EXPECT_NE(logOf(description, false), "");
  description = sound;
  description.userPresentation = "\xC3";
  EXPECT_NE(logOf(description, false), "");
  description = sound;
  description.argumentTypes = "NS\xFF";
  EXPECT_NE(logOf(description, false), "");
  description.argumentCount = 0;
  EXPECT_EQ(logOf(description, true), "");
}

TEST(OperationDescriptionTest, TypeLettersMatchTheCount) {
  const auto accepts = [](std::uint64_t count, const char* types) {
    Description description = sound;
    description.argumentCount = count;
    description.argumentTypes = types;
    return ZELPrivilegedOperation::initWithStaticDescription(description).has_value();
  };
  EXPECT_TRUE(accepts(3, "NSS"));
  EXPECT_TRUE(accepts(3, "NS\xC3\xA4"));
  EXPECT_FALSE(accepts(4, "NS\xC3\xA4"));
  EXPECT_FALSE(accepts(3, "NS"));
  EXPECT_FALSE(accepts(2, "NSS"));
  EXPECT_FALSE(accepts(3, nullptr));
  EXPECT_TRUE(accepts(0, nullptr));
  EXPECT_TRUE(accepts(ZELVariableArgumentCount, nullptr));
  EXPECT_FALSE(accepts(ZELVariableArgumentCount, "S"));
  EXPECT_FALSE(accepts(ZELVariableArgumentCount, ""));
}

TEST(OperationDescriptionTest, PoliciesBecomeRules) {
  const auto ruleOf = [](std::uint64_t policy) {
    Description description = sound;
    description.authenticationPolicy = policy;
    return ZELPrivilegedOperation::initWithStaticDescription(description)->authenticationPolicy();
  };
  EXPECT_EQ(ruleOf(0), Value("allow"));
  EXPECT_EQ(ruleOf(1), Value(Dictionary{{"rule", "default"}}));
  EXPECT_EQ(ruleOf(2), Value("authenticate-admin"));
}

TEST(OperationDescriptionTest, ThePolicyIsANonEmptyStringOrDictionary) {
  const auto accepts = [](Value policy) {
    return ZELPrivilegedOperation::initWithIdentifier("x", std::move(policy), false, false, 0,
                                                      std::nullopt, "X.")
        .has_value();
  };
  EXPECT_TRUE(accepts("allow"));
  EXPECT_FALSE(accepts(""));
  EXPECT_FALSE(accepts(Dictionary()));
  EXPECT_FALSE(accepts(5));
}

TEST(OperationDescriptionTest, RightNameCombinesImplementationCodeAndIdentifier) {
  const auto operation = ZELPrivilegedOperation::initWithIdentifier(
      "execute-utility", "allow", false, true, ZELVariableArgumentCount, std::nullopt, "X.");
  EXPECT_EQ(operation->authenticationRightNameForImplementationIdentifier("vnt"),
            "com.corvane.vnt.execute-utility");
  EXPECT_EQ(operation->authenticationRightNameForImplementationIdentifier(""), std::nullopt);
  EXPECT_EQ(operation->authenticationRightNameForImplementationIdentifier(std::nullopt),
            std::nullopt);
}

TEST(OperationDescriptionTest, MethodNameFormCapitalisesWordsAndDropsWhatIsNoLetter) {
  const auto formOf = [](const char* identifier) {
    return ZELPrivilegedOperation::initWithIdentifier(identifier, "allow", false, false, 0,
                                                      std::nullopt, "X.")
        ->operationIdentifierForExecutionSelector();
  };
  EXPECT_EQ(formOf("delete-fileobjects"), "DeleteFileobjects");
  EXPECT_EQ(formOf("discard-auth"), "DiscardAuth");
  EXPECT_EQ(formOf("nop"), "Nop");
  EXPECT_EQ(formOf("modify-preferences"), "ModifyPreferences");
  EXPECT_EQ(formOf("a1-b_c"), "ABc");
  EXPECT_EQ(formOf("1a-bC"), "ABc");
}

}  // namespace
}  // namespace corvane
