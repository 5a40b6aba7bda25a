#include <cerrno>

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "tests/platform/linux/support/SystemCallFilter.h"

namespace corvane {
namespace {

// Takes openat2 from the whole program, as the filter of a service does.
class WithoutOpenat2 : public testing::Environment {
 public:
  void SetUp() override { refuseSystemCalls({SYS_openat2}, ENOSYS); }
};

const testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new WithoutOpenat2);

}  // namespace
}  // namespace corvane
