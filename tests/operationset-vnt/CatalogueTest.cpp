#include <gtest/gtest.h>

#include "operations/PrincipalClass.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane {
namespace {

TEST(CatalogueTest, HoldsTheEightOperationsUnderTheirCodes) {
  const ZELPrivilegedOperationSetVNT set;
  const ZELPrivilegedOperationSet::Identifiers expected = {
      {0, "delete-fileobjects"},   {1, "modify-preferences"},
      {2, "execute-utility"},      {9994, "perform-uninstall"},
      {9995, "prepare-uninstall"}, {9996, "delete-files"},
      {9997, "discard-auth"},      {9998, "nop"}};
  EXPECT_EQ(*set.opIdentifiersByCode(), expected);
  EXPECT_EQ(set.implementedOperations()->size(), 8);
  for (const auto& [code, identifier] : expected) {
    EXPECT_NE(set.operationWithIdentifier(identifier), nullptr) << identifier;
  }
}

TEST(CatalogueTest, CapabilitiesAndArgumentsAreThoseOfTheTable) {
  const ZELPrivilegedOperationSetVNT set;
  EXPECT_TRUE(set.operationWithIdentifier("delete-fileobjects")->isSupportingProgressFeedback());
  EXPECT_TRUE(set.operationWithIdentifier("execute-utility")->isSupportingLiveOutput());
  EXPECT_EQ(set.operationWithIdentifier("perform-uninstall")->argumentTypeCodes(), "NSS");
  EXPECT_EQ(set.operationWithIdentifier("modify-preferences")->argumentTypeCodes(), "SSSSS");
  EXPECT_EQ(set.operationWithIdentifier("delete-files")->argumentCount(), ZELVariableArgumentCount);
  EXPECT_EQ(set.operationWithIdentifier("nop")->authenticationPolicy(), Value("allow"));
  EXPECT_EQ(set.operationWithIdentifier("prepare-uninstall")->authenticationPolicy(),
            Value(Dictionary{{"rule", "default"}}));
}

TEST(CatalogueTest, CodeVersionAndNamesOfTheSet) {
  const ZELPrivilegedOperationSetVNT set;
  EXPECT_EQ(set.implementationCode(), "vnt");
  EXPECT_EQ(set.implementationVersion(), "1.3");
  EXPECT_EQ(set.minimumHelperVersionImplementingSelfUninstall(), 1.3F);
  EXPECT_EQ(set.serviceIdentifierForHelper(), "com.corvane.system.privilegedhelper-vnt");
  EXPECT_EQ(set.fileNameForHelper(), set.serviceIdentifierForHelper());
  EXPECT_EQ(set.nameOfXPCRequestorForHelper(), "com.corvane.xpc.privilegerequestor-vnt");
  EXPECT_EQ(set.authorizationRightNameForOperationWithIdentifier("execute-utility"),
            "com.corvane.vnt.execute-utility");
  EXPECT_EQ(set.authorizationRightNameForOperationWithIdentifier("unheard-of"), std::nullopt);
}

TEST(CatalogueTest, ARowThatBreaksARuleIsMissingAndTheOthersStay) {
  const _ZELPrivilegedOperationDescription table[] = {
      {1, "first", 0, 0, 0, 0, nullptr, "First."},
      {2, "both", 0, 1, 1, 0, nullptr, "Both."},
      {3, "third", 0, 0, 0, 0, nullptr, "Third."},
      {ZELEndOfDescriptions, nullptr, 0, 0, 0, 0, nullptr, nullptr}};
  testing::internal::CaptureStderr();
  const ZELPrivilegedOperationSetVNT set(table);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("with code 2 contains"), std::string::npos);
  EXPECT_EQ(*set.opIdentifiersByCode(),
            (ZELPrivilegedOperationSet::Identifiers{{1, "first"}, {3, "third"}}));
  EXPECT_EQ(set.operationWithIdentifier("both"), nullptr);
}

TEST(CatalogueTest, TheFirstRecordIsAlwaysHandledAndTheClosingOneNever) {
  const _ZELPrivilegedOperationDescription table[] = {
      {ZELEndOfDescriptions, "odd", 0, 0, 0, 0, nullptr, "Odd."},
      {ZELEndOfDescriptions, "never", 0, 0, 0, 0, nullptr, "Never."}};
  const ZELPrivilegedOperationSetVNT set(table);
  EXPECT_NE(set.operationWithIdentifier("odd"), nullptr);
  EXPECT_EQ(set.operationWithIdentifier("never"), nullptr);
}

TEST(CatalogueTest, TheClassIsFoundByItsName) {
  const PrincipalClass* principalClass = PrincipalClass::named("ZELPrivilegedOperationSetVNT");
  ASSERT_NE(principalClass, nullptr);
  EXPECT_EQ(principalClass->privilegedOperationSet().implementationCode(), "vnt");
  EXPECT_EQ(PrincipalClass::named("ZELPrivilegedOperationSet"), nullptr);
  EXPECT_EQ(PrincipalClass::named(""), nullptr);
}

}  // namespace
}  // namespace corvane
