#include <cerrno>

#include <gtest/gtest.h>

#include "foundation/Error.h"
#include "foundation/POSIXError.h"
#include "foundation/Value.h"

namespace corvane {
namespace {

TEST(POSIXErrorTest, HostNumbersBecomeTheSystemsOwn) {
  EXPECT_EQ(posixErrorFromHost(ENOTEMPTY).code(), 66);
  EXPECT_EQ(posixErrorFromHost(ENOSYS).code(), 78);
  EXPECT_EQ(posixErrorFromHost(ECANCELED).code(), 89);
  EXPECT_EQ(posixErrorFromHost(ENOTSUP).code(), 45);
  EXPECT_EQ(posixErrorFromHost(EAGAIN).code(), 35);
  EXPECT_EQ(posixErrorFromHost(EDEADLK).code(), 11);
}

TEST(POSIXErrorTest, AnUnknownHostNumberIsAnInputOutputErrorUnlessTheHostHasTheseNumbers) {
  EXPECT_EQ(posixErrorFromHost(99999).code(), ENOTEMPTY == 66 ? 99999 : 5);
}

TEST(POSIXErrorTest, AnErrorMayCarryMoreThanItsNumber) {
  const Error error = posixError(POSIXErrorCode::Busy, {{NSFilePathErrorKey, "/a"}});
  EXPECT_TRUE(isPOSIXError(error, POSIXErrorCode::Busy));
  EXPECT_EQ(error.userInfo().text(NSFilePathErrorKey), "/a");
}

TEST(ErrorTest, DescriptionComesFromTheUserInformationFirst) {
  const Error plain = posixError(POSIXErrorCode::NoEntry);
  EXPECT_EQ(plain.localizedDescription(), "No such file or directory");
  const Error described(NSPOSIXErrorDomain, 2, Dictionary{{NSLocalizedDescriptionKey, "Gone."}});
  EXPECT_EQ(described.localizedDescription(), "Gone.");
  EXPECT_EQ(Error("x", -7).localizedDescription(), "x error -7");
}

TEST(ErrorTest, UserInformationMayNestAnError) {
  const Error inner = posixError(POSIXErrorCode::NotPermitted);
  const Error outer("domain", 8, Dictionary{{NSUnderlyingErrorKey, inner}});
  EXPECT_EQ(*outer.userInfo().find(NSUnderlyingErrorKey)->error(), inner);
  EXPECT_NE(outer, inner);
}

}  // namespace
}  // namespace corvane
