#include "platform/linux/authorization/AuthorizationKey.h"

#include <algorithm>
#include <cerrno>

#include <sodium.h>

#include "foundation/POSIXError.h"
#include "platform/linux/authorization/RootFolder.h"

namespace corvane {

namespace {

constexpr const char* fileName = "key";

Result<AuthorizationKey> readKey(const RootFolder& folder) {
  const Result<Data> bytes = folder.read(fileName, rootAlone);
  if (!bytes) return bytes.error();
  AuthorizationKey key{};
  if (bytes->size() != key.size()) return folder.errorOf(fileName, EBADMSG);
  std::copy(bytes->begin(), bytes->end(), key.begin());
  return key;
}

AuthorizationKey randomKey() {
  AuthorizationKey key{};
  randombytes_buf(key.data(), key.size());
  return key;
}

}  // namespace

AuthorizationKeyFile::AuthorizationKeyFile(std::string directory)
    : _directory(std::move(directory)), _path(_directory + "/" + fileName) {}

Result<AuthorizationKey> AuthorizationKeyFile::key() {
  // Nobody waits for the file of another: whoever looks at it may not be given a processor for
  // long.
  const std::optional<FileStamp> stamp = FileStamp::of(_path);
  {
    const std::lock_guard guard(_lock);
    if (stamp && stamp == _stamp) return _key;
  }
  Result<AuthorizationKey> key = readOrMake();
  const std::lock_guard guard(_lock);
  _stamp.reset();
  if (key && stamp && stamp->isSettled()) {
    _key = *key;
    _stamp = stamp;
  }
  return key;
}

Result<AuthorizationKey> AuthorizationKeyFile::renewedKey() {
  const Result<RootFolder> folder = RootFolder::openOrMake(_directory);
  if (!folder) return folder.error();
  const Result<void> replaced = folder->replace(fileName, randomKey(), rootAlone);
  if (!replaced) return replaced.error();
  return key();
}

Result<AuthorizationKey> AuthorizationKeyFile::readOrMake() const {
  const Result<RootFolder> folder = RootFolder::openOrMake(_directory);
  if (!folder) return folder.error();
  Result<AuthorizationKey> key = readKey(*folder);
  if (key || !isPOSIXError(key.error(), POSIXErrorCode::NoEntry)) return key;

  const Result<void> made = folder->create(fileName, randomKey(), rootAlone);
  if (!made && !isPOSIXError(made.error(), POSIXErrorCode::Exists)) return made.error();
  return readKey(*folder);
}

}  // namespace corvane
