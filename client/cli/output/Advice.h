#ifndef CORVANE_CLIENT_CLI_OUTPUT_ADVICE_H
#define CORVANE_CLIENT_CLI_OUTPUT_ADVICE_H

#include <cstdint>
#include <string>

#include "client/cli/output/Action.h"
#include "foundation/CommunicationFailure.h"
#include "foundation/Error.h"

namespace corvane::cli {

/// The domain of the client's own errors, and their codes.
inline constexpr const char* clientErrorDomain = "com.corvane.error.client";
inline constexpr std::int64_t noSuchPreference = 1;
inline constexpr std::int64_t outputIncomplete = 2;
inline constexpr std::int64_t noSuchUser = 3;
inline constexpr std::int64_t noPropertyList = 4;
inline constexpr std::int64_t noSuchUtility = 5;
inline constexpr std::int64_t noUtilityInBundle = 6;
inline constexpr std::int64_t wrongUsage = 7;
inline constexpr std::int64_t problemsFound = 8;
inline constexpr std::int64_t partsLeft = 9;
inline constexpr std::int64_t unexpected = 10;
inline constexpr std::int64_t noApplicationName = 11;
inline constexpr std::int64_t applicationNameTooLong = 12;
inline constexpr std::int64_t otherHost = 13;

/// What to do about an error, and what it is, in the user's language: its own texts if it carries
/// some, else the client's for what was to be done. `wasAuthorized` tells a refused authorization
/// from an operation that was itself not permitted. A suggestion may be empty.
std::string suggestionFor(const Error& error, Action action, bool wasAuthorized);
std::string descriptionOf(const Error& error);
std::string suggestionFor(const CommunicationFailure& failure);
std::string descriptionOf(const CommunicationFailure& failure);

}  // namespace corvane::cli

#endif
