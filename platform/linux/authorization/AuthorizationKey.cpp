#include "platform/linux/authorization/AuthorizationKey.h"

#include <algorithm>
#include <cerrno>

#include <sodium.h>

#include "foundation/POSIXError.h"
#include "platform/linux/authorization/RootFolder.h"

namespace corvane {

namespace {

constexpr const char* fileName = "key";

std::variant<AuthorizationKey, Error> readKey(const RootFolder& folder) {
  std::variant<Data, Error> bytes = folder.read(fileName, rootAlone);
  if (const Error* error = std::get_if<Error>(&bytes)) return *error;
  const Data& data = std::get<Data>(bytes);
  AuthorizationKey key{};
  if (data.size() != key.size()) return folder.errorOf(fileName, EBADMSG);
  std::copy(data.begin(), data.end(), key.begin());
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

std::variant<AuthorizationKey, Error> AuthorizationKeyFile::key() {
  // Nobody waits for the file of another: whoever looks at it may not be given a processor for
  // long.
  const std::optional<FileStamp> stamp = FileStamp::of(_path);
  {
    const std::lock_guard guard(_lock);
    if (stamp && stamp == _stamp) return _key;
  }
  std::variant<AuthorizationKey, Error> key = readOrMake();
  const std::lock_guard guard(_lock);
  _stamp.reset();
  if (const auto* read = std::get_if<AuthorizationKey>(&key); read && stamp && stamp->isSettled()) {
    _key = *read;
    _stamp = stamp;
  }
  return key;
}

std::variant<AuthorizationKey, Error> AuthorizationKeyFile::renewedKey() {
  std::variant<RootFolder, Error> folder = RootFolder::openOrMake(_directory);
  if (const Error* error = std::get_if<Error>(&folder)) return *error;
  if (const std::optional<Error> failure =
          std::get<RootFolder>(folder).replace(fileName, randomKey(), rootAlone)) {
    return *failure;
  }
  return key();
}

std::variant<AuthorizationKey, Error> AuthorizationKeyFile::readOrMake() const {
  std::variant<RootFolder, Error> opened = RootFolder::openOrMake(_directory);
  if (const Error* error = std::get_if<Error>(&opened)) return *error;
  const RootFolder& folder = std::get<RootFolder>(opened);

  std::variant<AuthorizationKey, Error> key = readKey(folder);
  const Error* error = std::get_if<Error>(&key);
  if (error == nullptr || !isPOSIXError(*error, POSIXErrorCode::NoEntry)) return key;

  if (const std::optional<Error> failure = folder.create(fileName, randomKey(), rootAlone);
      failure && !isPOSIXError(*failure, POSIXErrorCode::Exists)) {
    return *failure;
  }
  return readKey(folder);
}

}  // namespace corvane
