#ifndef CORVANE_TESTS_PLATFORM_LINUX_AUTHORIZATION_ANSWERS_H
#define CORVANE_TESTS_PLATFORM_LINUX_AUTHORIZATION_ANSWERS_H

#include <optional>

#include "foundation/POSIXError.h"
#include "platform/linux/authorization/Authority.h"

namespace corvane {

/// What an authority says; nothing where it fails.
inline std::optional<Decision> said(const Result<Decision>& answer) {
  return answer ? std::optional(*answer) : std::nullopt;
}

/// Whether there is no such right, and nothing else went wrong.
template <typename T>
bool isUndefined(const Result<T>& result) {
  return !result && isPOSIXError(result.error(), POSIXErrorCode::NoEntry);
}

/// Whether something went wrong that says nothing about the right.
template <typename T>
bool isFailure(const Result<T>& result) {
  return !result && !isUndefined(result);
}

}  // namespace corvane

#endif
