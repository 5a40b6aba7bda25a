#include <set>

#include <gtest/gtest.h>

#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane {
namespace {

TEST(OperationSetTest, TheFirstCallDecidesTheClassOfTheSharedSet) {
  ZELPrivilegedOperationSet& concrete = ZELPrivilegedOperationSetVNT::privilegedOperationSet();
  EXPECT_EQ(&ZELPrivilegedOperationSet::privilegedOperationSet(), &concrete);
  EXPECT_EQ(concrete.implementationCode(), "vnt");
}

TEST(OperationSetTest, ASetWithoutImplementationCodeHasNullInItsNamesAndNoRightNames) {
  const ZELPrivilegedOperationSet set;
  EXPECT_EQ(set.serviceIdentifierForHelper(), "com.corvane.system.privilegedhelper-(null)");
  EXPECT_EQ(set.nameOfXPCRequestorForHelper(), "com.corvane.xpc.privilegerequestor-(null)");
  EXPECT_EQ(set.authorizationRightNameForOperationWithIdentifier("nop"), std::nullopt);
  EXPECT_EQ(set.minimumHelperVersionImplementingSelfUninstall(), 1.0F);
  EXPECT_EQ(set.identifierForCode(0), nullptr);
  EXPECT_EQ(set.selectorForExecutionOfPrivilegedOperationWithCode(0, true), std::nullopt);
}

TEST(OperationSetTest, FixedNames) {
  EXPECT_EQ(ZELPrivilegedOperationSet::errorDomain(), "com.corvane.error.privileged-operation");
  EXPECT_EQ(ZELPrivilegedOperationSet::nameOfAuthorizationRightLocalizationTable(),
            "PrivilegedOperations");
  EXPECT_EQ(ZELPrivilegedOperationSet::nameOfErrorMessageLocalizationTable(),
            "PrivilegedOperationErrors");
}

TEST(OperationSetTest, CodesOfOperations) {
  const ZELPrivilegedOperationSetVNT set;
  EXPECT_EQ(set.opCodeForOperation(nullptr), 0x7fffffffffffffffU);
  EXPECT_EQ(set.opCodeForOperation(set.operationWithIdentifier("nop")), 9998);
  const auto foreign = ZELPrivilegedOperation::initWithIdentifier("foreign", "allow", false, false,
                                                                  0, std::nullopt, "X.");
  EXPECT_EQ(set.opCodeForOperation(&*foreign), ZELNoSuchOperation);
}

TEST(OperationSetTest, OperationsWithoutImplementingMethodHaveNoSelector) {
  const ZELPrivilegedOperationSetVNT set;
  EXPECT_EQ(set.selectorForExecutionOfPrivilegedOperationWithCode(9998, false), std::nullopt);
  EXPECT_EQ(set.selectorForExecutionOfPrivilegedOperationWithCode(9999, false), std::nullopt);
}

TEST(OperationSetTest, PreferenceModificationHasNoFormWithFeedback) {
  const ZELPrivilegedOperationSetVNT set;
  EXPECT_EQ(set.selectorForExecutionOfPrivilegedOperationWithCode(1, true), std::nullopt);
}

TEST(OperationSetTest, EnumerationCallsTheBlockOncePerOperation) {
  const ZELPrivilegedOperationSetVNT set;
  std::set<std::string> names;
  set.enumerateRightDefinitionsUsingBlock(
      [&](const std::optional<std::string>& name, const Value& rule, const std::string& text) {
        EXPECT_TRUE(names.insert(name.value()).second);
        EXPECT_TRUE(rule.string() != nullptr || rule.dictionary() != nullptr);
        EXPECT_TRUE(text.starts_with("Vantor likes to "));
      });
  EXPECT_EQ(names.size(), 8);
  EXPECT_TRUE(names.contains("com.corvane.vnt.modify-preferences"));
}

TEST(OperationSetTest, TheFeedbackInterfaceIsNamedByItsProtocol) {
  EXPECT_EQ(ZELPrivilegedOperationSetVNT().interfaceForFeedbackProtocol().protocolName,
            "ZELPrivilegedOperationFeedbackProtocol");
}

}  // namespace
}  // namespace corvane
