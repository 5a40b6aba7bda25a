#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process/ZELTaskExecutor.h"
#include "tests/process/FileHandleStandIn.h"
#include "tests/process/RecordingDelegate.h"
#include "tests/process/SystemVersionStandIn.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using tests::handleLog;

class ClosingOrderTest : public testing::TestWithParam<const char*> {};

TEST_P(ClosingOrderTest, IsOutputErrorInput) {
  tests::useSystemVersion(GetParam());
  handleLog() = {};
  const auto delegate = std::make_shared<tests::RecordingDelegate>();
  const auto executor = ZELTaskExecutor::init();
  executor->setDelegate(delegate);
  // The program tells the numbers of its pipes.
  const char* const script = "for n in 0 1 2; do ls -iL /dev/fd/$n; done";
  ASSERT_EQ(executor->executeProgramAtPath("/bin/sh", ZELTaskExecutor::Arguments{"-c", script}), 0);
  std::istringstream numbers(delegate->output());
  ino_t input = 0;
  ino_t output = 0;
  ino_t error = 0;
  std::string name;
  ASSERT_TRUE(numbers >> input >> name >> output >> name >> error);
  EXPECT_THAT(handleLog().pipes, ElementsAre(output, error, input));
}

INSTANTIATE_TEST_SUITE_P(OfFilesAndOfDescriptors, ClosingOrderTest,
                         testing::Values("10.10.15", "10.11"));

}  // namespace
}  // namespace corvane
