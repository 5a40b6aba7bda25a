#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "tests/support/Files.h"
#include "tests/support/RecordingConnection.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using testing::ElementsAre;

constexpr const char* selector =
    "performOperationDeleteFileobjectsWithArguments:feedbackConnection:";

class DeleteFileobjectsTest : public testing::Test {
 protected:
  std::optional<Error> perform(const Array& arguments) {
    return set.performOperationDeleteFileobjectsWithArguments(arguments, connection);
  }

  std::vector<double> progress() const {
    std::vector<double> fractions;
    for (const Dictionary& message : connection->messages()) {
      EXPECT_EQ(message.size(), 1U);
      const Value* fraction = message.find("ProgressFraction");
      if (fraction == nullptr || fraction->number() == nullptr) return {};
      EXPECT_TRUE(fraction->number()->isDouble());
      fractions.push_back(fraction->number()->doubleValue());
    }
    return fractions;
  }

  ZELPrivilegedOperationSetVNT set;
  TemporaryFolder folder;
  std::shared_ptr<RecordingConnection> connection = std::make_shared<RecordingConnection>();
};

TEST_F(DeleteFileobjectsTest, IsFoundByItsMethodName) {
  EXPECT_EQ(set.selectorForExecutionOfPrivilegedOperationWithCode(0, true), selector);
  const std::string file = folder.makeFile("file");
  EXPECT_EQ(set.performSelector(selector, Array{"0", "0", file}, connection, {}), std::nullopt);
  EXPECT_FALSE(exists(file));
  EXPECT_THAT(progress(), ElementsAre(1.0, 1.0));
}

TEST_F(DeleteFileobjectsTest, FailsWithoutAPath) {
  EXPECT_EQ(perform({"1", "0"}), posixError(POSIXErrorCode::Invalid));
  EXPECT_EQ(perform({}), posixError(POSIXErrorCode::Invalid));
  EXPECT_TRUE(progress().empty());
}

TEST_F(DeleteFileobjectsTest, FailsWithAnArgumentThatIsNeither0Nor1BeforeAnyPathIsTouched) {
  const std::string file = folder.makeFile("file");
  for (const char* wrong : {"yes", "01", "true", " 1", "1 ", "", "2"}) {
    EXPECT_EQ(perform({wrong, "0", file}), posixError(POSIXErrorCode::Invalid)) << wrong;
    EXPECT_EQ(perform({"0", wrong, file}), posixError(POSIXErrorCode::Invalid)) << wrong;
  }
  EXPECT_EQ(perform({Value(1), "0", file}), posixError(POSIXErrorCode::Invalid));
  EXPECT_TRUE(exists(file));
  EXPECT_TRUE(progress().empty());
}

TEST_F(DeleteFileobjectsTest, ReadsBooleansExactly) {
  bool value = false;
  EXPECT_TRUE(set.getBool(value, "1"));
  EXPECT_TRUE(value);
  EXPECT_FALSE(set.getBool(value, "00"));
  EXPECT_TRUE(value);
  EXPECT_TRUE(set.getBool(value, "0"));
  EXPECT_FALSE(value);
}

TEST_F(DeleteFileobjectsTest, ReportsProgressAfterEachObjectAndOnceMore) {
  EXPECT_EQ(perform({"0", "0", folder.makeFile("a"), folder.makeFile("b"), folder.makeFolder("c"),
                     folder.makeFile("d")}),
            std::nullopt);
  EXPECT_THAT(progress(), ElementsAre(0.25, 0.5, 0.75, 1.0, 1.0));
}

TEST_F(DeleteFileobjectsTest, AMissingPathRemovedRecursivelySucceedsWithItsProgress) {
  EXPECT_EQ(perform({"1", "1", folder.path("missing"), folder.makeFile("a")}), std::nullopt);
  EXPECT_THAT(progress(), ElementsAre(0.5, 1.0, 1.0));
}

TEST_F(DeleteFileobjectsTest, GoesOnAfterAFailureAndReturnsItsError) {
  const std::string file = folder.makeFile("a");
  EXPECT_EQ(perform({"0", "0", folder.path("missing"), file}), posixError(POSIXErrorCode::NoEntry));
  EXPECT_FALSE(exists(file));
  EXPECT_THAT(progress(), ElementsAre(0.5, 1.0, 1.0));
}

TEST_F(DeleteFileobjectsTest, ReturnsTheLastOfSeveralErrors) {
  folder.makeFolder("full");
  folder.makeFile("full/file");
  EXPECT_EQ(perform({"0", "0", folder.path("missing"), folder.path("full"), folder.makeFile("a")}),
            posixError(POSIXErrorCode::NotEmpty));
  EXPECT_EQ(perform({"0", "0", folder.path("full"), folder.path("missing")}),
            posixError(POSIXErrorCode::NoEntry));
}

TEST_F(DeleteFileobjectsTest, StopsOnTheFirstErrorInSilence) {
  const std::string file = folder.makeFile("a");
  EXPECT_EQ(perform({"0", "1", folder.path("missing"), file}), posixError(POSIXErrorCode::NoEntry));
  EXPECT_TRUE(exists(file));
  EXPECT_TRUE(progress().empty());
}

TEST_F(DeleteFileobjectsTest, StoppingKeepsTheProgressOfWhatWentBefore) {
  EXPECT_EQ(perform({"0", "1", folder.makeFile("a"), folder.path("missing"), folder.path("b")}),
            posixError(POSIXErrorCode::NoEntry));
  EXPECT_THAT(progress(), ElementsAre(1.0 / 3));
}

TEST_F(DeleteFileobjectsTest, WithoutAConnectionDoesTheSameWork) {
  const std::string file = folder.makeFile("a");
  EXPECT_EQ(set.performOperationDeleteFileobjectsWithArguments(
                {"0", "0", folder.path("missing"), file}, nullptr),
            posixError(POSIXErrorCode::NoEntry));
  EXPECT_FALSE(exists(file));
}

TEST_F(DeleteFileobjectsTest, AnEmptyListSendsOnlyTheClosingProgress) {
  EXPECT_EQ(set.deleteFileSystemObjectsAtPaths({}, true, true, connection), std::nullopt);
  EXPECT_THAT(progress(), ElementsAre(1.0));
}

TEST_F(DeleteFileobjectsTest, AnEmptyPathIsInvalidInBothForms) {
  EXPECT_EQ(perform({"0", "0", ""}), posixError(POSIXErrorCode::Invalid));
  EXPECT_EQ(perform({"1", "0", ""}), posixError(POSIXErrorCode::Invalid));
  std::optional<Error> error;
  EXPECT_FALSE(set.setImmutableFlag(false, "", true, &error));
  EXPECT_EQ(error, posixError(POSIXErrorCode::Invalid));
  EXPECT_FALSE(set.isSIPRestrictedObjectAtPath("", &error));
}

TEST_F(DeleteFileobjectsTest, APathWithAZeroByteIsInvalid) {
  const std::string file = folder.makeFile("file");
  EXPECT_EQ(perform({"0", "0", file + std::string("\0more", 5)}),
            posixError(POSIXErrorCode::Invalid));
  EXPECT_TRUE(exists(file));
}

TEST_F(DeleteFileobjectsTest, AFailureWithoutASlotForItsErrorIsJustAFailure) {
  EXPECT_FALSE(set.enforceRemovalOfFileSystemObjectAtPath(folder.path("missing"), false, nullptr));
  EXPECT_TRUE(set.enforceRemovalOfFileSystemObjectAtPath(folder.path("missing"), true, nullptr));
}

TEST_F(DeleteFileobjectsTest, ASuccessLeavesTheErrorOfAnEarlierCall) {
  std::optional<Error> error = posixError(POSIXErrorCode::Busy);
  EXPECT_TRUE(set.enforceRemovalOfFileSystemObjectAtPath(folder.makeFile("a"), false, &error));
  EXPECT_EQ(error, posixError(POSIXErrorCode::Busy));
}

}  // namespace
}  // namespace corvane
