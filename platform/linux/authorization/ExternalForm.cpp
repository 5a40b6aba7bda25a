#include "platform/linux/authorization/ExternalForm.h"

#include <algorithm>
#include <array>
#include <bit>
#include <type_traits>

#include <sodium.h>

namespace corvane {

namespace {

// A form never leaves its machine, so numbers stay in the machine's byte order.
struct Content {
  std::int32_t pid;
  std::uint32_t uid;
  std::uint64_t startTime;
};
using Hash = std::array<std::byte, 16>;
struct Layout {
  Content content;
  Hash hash;
};
static_assert(sizeof(Layout) == kAuthorizationExternalFormLength);
static_assert(std::has_unique_object_representations_v<Layout>, "no bytes between the fields");

const unsigned char* bytesOf(const std::byte* bytes) {
  return reinterpret_cast<const unsigned char*>(bytes);
}

Hash hashOf(const Content& content, const AuthorizationKey& key) {
  const auto bytes = std::bit_cast<std::array<unsigned char, sizeof(Content)>>(content);
  std::array<unsigned char, sizeof(Hash)> hash{};
  crypto_generichash(hash.data(), hash.size(), bytes.data(), bytes.size(), bytesOf(key.data()),
                     key.size());
  return std::bit_cast<Hash>(hash);
}

}  // namespace

AuthorizationExternalForm makeExternalForm(const ProcessIdentity& identity,
                                           const AuthorizationKey& key) {
  const Content content = {identity.pid, identity.uid, identity.startTime};
  return std::bit_cast<AuthorizationExternalForm>(Layout{content, hashOf(content, key)});
}

std::optional<ProcessIdentity> readExternalForm(const AuthorizationExternalForm& form,
                                                const AuthorizationKey& key) {
  const auto layout = std::bit_cast<Layout>(form);
  const Hash expected = hashOf(layout.content, key);
  // In constant time: else the time would tell how many bytes of a forged hash are right.
  if (sodium_memcmp(expected.data(), layout.hash.data(), expected.size()) != 0) return std::nullopt;
  return ProcessIdentity{layout.content.pid, layout.content.uid, layout.content.startTime};
}

}  // namespace corvane
