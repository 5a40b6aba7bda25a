#include <gtest/gtest.h>

#include "platform/linux/authorization/ExternalForm.h"

namespace corvane {
namespace {

AuthorizationKey keyOf(unsigned char byte) {
  AuthorizationKey key{};
  key.fill(std::byte{byte});
  return key;
}

constexpr ProcessIdentity identity{1234, 1000, 0x123456789abcdef0};

TEST(ExternalFormTest, CarriesTheIdentity) {
  const AuthorizationKey key = keyOf(7);
  EXPECT_EQ(readExternalForm(makeExternalForm(identity, key), key), identity);
}

TEST(ExternalFormTest, AnyChangedBitIsNoticed) {
  const AuthorizationKey key = keyOf(7);
  for (std::size_t bit = 0; bit < 8 * kAuthorizationExternalFormLength; ++bit) {
    AuthorizationExternalForm form = makeExternalForm(identity, key);
    form.bytes[bit / 8] ^= std::byte{1} << (bit % 8);
    EXPECT_EQ(readExternalForm(form, key), std::nullopt) << "bit " << bit;
  }
}

TEST(ExternalFormTest, AnotherKeyMakesAnotherForm) {
  EXPECT_EQ(readExternalForm(makeExternalForm(identity, keyOf(1)), keyOf(2)), std::nullopt);
}

TEST(ExternalFormTest, ZeroBytesAreNoForm) {
  EXPECT_EQ(readExternalForm({}, keyOf(0)), std::nullopt);
}

}  // namespace
}  // namespace corvane
