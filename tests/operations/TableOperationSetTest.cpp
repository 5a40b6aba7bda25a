#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/POSIXError.h"
#include "operations/TableOperationSet.h"
#include "tests/support/RecordingConnection.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Text = std::string;

// Each method gives back what it was given, as the code of an error or its user information.
std::optional<Error> nothing(const OperationRun& /*run*/) {
  return std::nullopt;
}

std::optional<Error> everyKind(const OperationRun& run, const Text& text, double real,
                               std::int64_t whole, bool isSet, const Number& number,
                               const Data& data) {
  return Error("given", static_cast<std::int64_t>(run.arguments().size()),
               {{"text", text},
                {"real", real},
                {"whole", whole},
                {"set", isSet},
                {"number", number},
                {"data", data}});
}

std::optional<Error> anyNumber(const OperationRun& /*run*/, const std::vector<Text>& texts) {
  return Error("given", static_cast<std::int64_t>(texts.size()));
}

std::optional<Error> halfDone(const ProgressRun& run) {
  run.reportProgress(0.5);
  return std::nullopt;
}

std::optional<Error> talking(const OutputRun& run) {
  run.write("out");
  run.writeError("error");
  return std::nullopt;
}

constexpr HelperNames names = {"test", "2.7", "Tester", "Test"};
constexpr auto anybody = OperationPolicy::Allow;

OperationRow row(std::uint64_t code, const Text& identifier) {
  return {code, identifier, anybody, "Sentence.", &nothing};
}

std::vector<Text> faultsOf(const std::vector<OperationRow>& rows) {
  return TableOperationSet(names, rows).faults();
}

class TableOperationSetTest : public testing::Test {
 protected:
  std::optional<Error> perform(std::uint64_t code, const Array& arguments) {
    const ZELPrivilegedOperation& operation =
        *_set.operationWithIdentifier(*_set.identifierForCode(code));
    const auto selector = _set.selectorForExecutionOfPrivilegedOperationWithCode(
        code, operation.isSupportingProgressFeedback() || operation.isSupportingLiveOutput());
    return _set.performSelector(selector.value(), arguments, _connection, {});
  }

  TableOperationSet _set{names,
                         {{0, "every-kind", OperationPolicy::AuthenticateAdmin, "All.", &everyKind},
                          {1, "any-number", OperationPolicy::DefaultRule, "Any.", &anyNumber},
                          {2, "half-done", anybody, "Half.", &halfDone},
                          {3, "talking", anybody, "Talk.", &talking}}};
  std::shared_ptr<RecordingConnection> _connection = std::make_shared<RecordingConnection>();
};

TEST_F(TableOperationSetTest, TheCatalogueFollowsFromTheParametersOfTheMethods) {
  EXPECT_THAT(_set.faults(), ElementsAre());
  const ZELPrivilegedOperation& all = *_set.operationWithIdentifier("every-kind");
  EXPECT_EQ(all.argumentTypeCodes(), "SNNNND");
  EXPECT_EQ(all.argumentCount(), 6U);
  EXPECT_EQ(*all.authenticationPolicy().string(), "authenticate-admin");
  EXPECT_FALSE(all.isSupportingProgressFeedback() || all.isSupportingLiveOutput());
  EXPECT_EQ(_set.operationWithIdentifier("any-number")->argumentCount(), ZELVariableArgumentCount);
  EXPECT_TRUE(_set.operationWithIdentifier("half-done")->isSupportingProgressFeedback());
  EXPECT_TRUE(_set.operationWithIdentifier("talking")->isSupportingLiveOutput());
}

TEST_F(TableOperationSetTest, ItHasWhatEveryHelperHas) {
  EXPECT_EQ(*_set.identifierForCode(9998), "nop");
  EXPECT_EQ(*_set.identifierForCode(9997), "discard-auth");
  EXPECT_EQ(*_set.identifierForCode(9996), "delete-files");
  EXPECT_EQ(*_set.identifierForCode(9994), "perform-uninstall");
  EXPECT_EQ(_set.operationWithIdentifier("perform-uninstall")->argumentTypeCodes(), "NSS");
  EXPECT_EQ(_set.operationWithIdentifier("nop")->presentationString(),
            "Tester would like to contact its privileged component.");
}

TEST_F(TableOperationSetTest, NamesAndVersionAreThoseOfTheProduct) {
  EXPECT_EQ(_set.serviceIdentifierForHelper(), "com.corvane.system.privilegedhelper-test");
  EXPECT_EQ(_set.authorizationRightNameForOperationWithIdentifier("half-done"),
            "com.corvane.test.half-done");
  EXPECT_EQ(_set.implementationVersion(), "2.7");
}

TEST_F(TableOperationSetTest, AMethodGetsItsArgumentsAsWhatTheyAre) {
  const Data data = dataFromString("data");
  const auto given = perform(0, {"text", 1.5, -3, true, Number(7U), data});
  ASSERT_TRUE(given);
  EXPECT_EQ(given->code(), 6);
  EXPECT_EQ(given->userInfo(), (Dictionary{{"text", "text"},
                                           {"real", 1.5},
                                           {"whole", -3},
                                           {"set", true},
                                           {"number", 7},
                                           {"data", data}}));
  EXPECT_EQ(perform(1, {})->code(), 0);
  EXPECT_EQ(perform(1, {"a", "b"})->code(), 2);
}

TEST_F(TableOperationSetTest, ANumberThatDoesNotFitIsNotCut) {
  for (const Number& whole : {Number(1.5), Number(0xffffffffffffffffU)}) {
    const auto refused = perform(0, {"text", 1.5, whole, true, 7, Data()});
    ASSERT_TRUE(refused);
    EXPECT_TRUE(isPOSIXError(*refused, POSIXErrorCode::Invalid));
  }
}

TEST_F(TableOperationSetTest, WithoutTheRightArgumentsAMethodIsNotCalled) {
  EXPECT_TRUE(isPOSIXError(*perform(0, {"text"}), POSIXErrorCode::Invalid));
  EXPECT_TRUE(isPOSIXError(*perform(1, {"text", 1}), POSIXErrorCode::Invalid));
}

TEST_F(TableOperationSetTest, AMethodReportsToItsClient) {
  EXPECT_FALSE(perform(2, {}));
  EXPECT_THAT(_connection->messages(), ElementsAre(Dictionary{{ProgressFractionKey, 0.5}}));
  EXPECT_FALSE(perform(3, {}));
  EXPECT_EQ(_connection->output(), "out");
  EXPECT_EQ(_connection->errorOutput(), "error");
}

TEST_F(TableOperationSetTest, WithoutAClientThatListensAMethodReportsToNobody) {
  _connection = nullptr;
  EXPECT_FALSE(perform(2, {}));
  EXPECT_FALSE(perform(3, {}));
}

TEST_F(TableOperationSetTest, ThereIsNoMethodOfAnotherName) {
  EXPECT_FALSE(_set.respondsToSelector("performOperationNopWithArguments:"));
  const auto error = _set.performSelector("performOperationNopWithArguments:", {}, nullptr, {});
  EXPECT_TRUE(isPOSIXError(*error, POSIXErrorCode::NotImplemented));
}

TEST(TableOperationSetFaultsTest, ACodeOrANameThatIsTakenIsNamed) {
  EXPECT_THAT(faultsOf({row(1, "one"), row(1, "two")}),
              ElementsAre("the operation 'two': its code 1 is that of 'one'"));
  EXPECT_THAT(faultsOf({row(1, "one"), row(2, "one")}),
              ElementsAre("the operation 'one': there is another one of that name"));
  EXPECT_THAT(faultsOf({row(1, "nop")}),
              ElementsAre("the operation 'nop': there is another one of that name"));
  EXPECT_THAT(faultsOf({row(1, "one-a"), row(2, "one-a2")}),
              ElementsAre("the operation 'one-a2': without digits it is named as another one"));
}

TEST(TableOperationSetFaultsTest, WhatIsNoNameOfABusOrAFileIsRefused) {
  for (const Text& identifier :
       {Text(), Text("Upper"), Text("two words"), Text("../up"), Text("-one"), Text("one-"),
        Text("one--two"), Text("one-2"), Text("a.b"), Text("\xc3\xa4"), Text(65, 'a')}) {
    EXPECT_THAT(faultsOf({row(1, identifier)}), ElementsAre(HasSubstr("lower-case words")))
        << identifier;
  }
  EXPECT_THAT(faultsOf({row(1, Text(64, 'a')), row(2, "set2-it")}), ElementsAre());
}

TEST(TableOperationSetFaultsTest, CodesOfEveryHelperAndOfNoOperationAreReserved) {
  for (const std::uint64_t code : {std::uint64_t{9000}, std::uint64_t{9999}, ZELNoSuchOperation}) {
    EXPECT_THAT(faultsOf({row(code, "one")}), ElementsAre(HasSubstr("is not below 9000"))) << code;
  }
  EXPECT_THAT(faultsOf({row(8999, "one")}), ElementsAre());
}

TEST(TableOperationSetFaultsTest, ADialogNeedsASentence) {
  EXPECT_THAT(faultsOf({{1, "one", anybody, "", &nothing}}), ElementsAre(HasSubstr("no sentence")));
  EXPECT_THAT(faultsOf({{1, "one", anybody, "\xff", &nothing}}),
              ElementsAre(HasSubstr("not UTF-8")));
  EXPECT_THAT(faultsOf({{1, "one", static_cast<OperationPolicy>(3), "One.", &nothing}}),
              ElementsAre(HasSubstr("policy")));
}

TEST(TableOperationSetFaultsTest, ARowNeedsAMethod) {
  std::optional<Error> (*const none)(const OperationRun&) = nullptr;
  std::optional<Error> (*const noneOfTexts)(const OutputRun&, const std::vector<Text>&) = nullptr;
  EXPECT_THAT(
      faultsOf({{1, "one", anybody, "One.", none}, {2, "two", anybody, "Two.", noneOfTexts}}),
      ElementsAre("the operation 'one': it has no method",
                  "the operation 'two': it has no method"));
}

TEST(TableOperationSetFaultsTest, NamesOfTheHelperThatWereNotMadeByTheBuildAreCheckedToo) {
  const Text tooLong(25, 'a');
  for (const char* code : {"", "Upper", "a-b", "a.b", "9a", "../up", "\xc3\xa4", tooLong.c_str()}) {
    EXPECT_THAT(TableOperationSet({code, "1.0", "Tester", "Test"}, {}).faults(),
                ElementsAre(HasSubstr("the code of the helper, '" + Text(code) + "'")));
  }
  for (const char* vendor : {"", "\xff"}) {
    EXPECT_THAT(TableOperationSet({"test", "1.0", vendor, "Test"}, {}).faults(),
                ElementsAre(HasSubstr("vendor")));
  }
  EXPECT_THAT(TableOperationSet({tooLong.c_str() + 1, "1.0", "Tester", "Test"}, {}).faults(),
              ElementsAre());
}

TEST(TableOperationSetFaultsTest, EveryFaultIsTold) {
  EXPECT_EQ(faultsOf({row(1, "A"), row(9998, "b"), row(2, "c")}).size(), 2U);
}

}  // namespace
}  // namespace corvane
