#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_AUTHORIZATIONKEY_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_AUTHORIZATIONKEY_H

#include <array>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>

#include "foundation/Result.h"
#include "platform/linux/authorization/FileStamp.h"

namespace corvane {

/// The secret that external forms are made and checked with.
using AuthorizationKey = std::array<std::byte, 32>;

/// The key as the file "key" of a folder that only root can change. Any thread.
class AuthorizationKeyFile {
 public:
  explicit AuthorizationKeyFile(std::string directory);

  /// What the file holds. If there is none it is made, from random bytes and safely against others
  /// that make it at the same time. A file or a folder that is not root's alone is an error.
  Result<AuthorizationKey> key();
  /// A new key, in the place of whatever the file is but a folder. What was made with the old one
  /// is worth nothing from now on.
  Result<AuthorizationKey> renewedKey();

 private:
  Result<AuthorizationKey> readOrMake() const;

  const std::string _directory;
  const std::string _path;
  std::mutex _lock;
  std::optional<FileStamp> _stamp;
  AuthorizationKey _key{};
};

}  // namespace corvane

#endif
