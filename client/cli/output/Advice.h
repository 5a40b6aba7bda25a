#ifndef CORVANE_CLIENT_CLI_OUTPUT_ADVICE_H
#define CORVANE_CLIENT_CLI_OUTPUT_ADVICE_H

#include <cstdint>
#include <set>
#include <string>

#include "client/cli/output/Action.h"
#include "foundation/CommunicationFailure.h"
#include "foundation/Error.h"
#include "foundation/Value.h"

namespace corvane::cli {

/// The domain of the client's own errors, and their codes.
inline constexpr const char* clientErrorDomain = "com.corvane.error.client";
inline constexpr std::int64_t noSuchPreference = 1;
inline constexpr std::int64_t outputIncomplete = 2;
inline constexpr std::int64_t noSuchUser = 3;
inline constexpr std::int64_t noPropertyList = 4;
inline constexpr std::int64_t noSuchUtility = 5;
inline constexpr std::int64_t noUtilityInBundle = 6;

/// What to do about an error, and what it is, in the user's language: its own texts if it carries
/// some, else the client's for what was to be done. `wasAuthorized` tells a refused authorization
/// from an operation that was itself not permitted. A suggestion may be empty.
std::string suggestionFor(const Error& error, Action action, bool wasAuthorized);
std::string descriptionOf(const Error& error);
std::string suggestionFor(const CommunicationFailure& failure);

/// `text`, which is one of the client's, in the user's language, and with what $1$ in it stands
/// for, $2$ and so on.
std::string translated(const std::string& text);
std::string translated(const std::string& text, const std::string& parameter);
std::string translated(const std::string& text, const Array& parameters);

/// Texts beside those of errors, actions and advice.
inline constexpr const char* causeText = "because: $1$";
inline constexpr const char* needsRootText = "Only root may do this.";
inline constexpr const char* runAsRootText = "Run the command as root.";
inline constexpr const char* grantedText = "granted";
inline constexpr const char* wouldAskText = "would ask";
inline constexpr const char* deniedText = "denied";
inline constexpr const char* nobodyToAskText = "nobody to ask";
inline constexpr const char* stoppingText = "Stopping. Press Ctrl-C again to leave at once.";
inline constexpr const char* answerRefusedText = "The password was not accepted.";
inline constexpr const char* tryAgainText = "Try again.";
inline constexpr const char* deletedByThenText = "Deleted by then: $1$ of $2$.";
inline constexpr const char* runLineAsRootText = "Run it as root: $1$";

inline constexpr const char* notOfKindText = "'$1$' is no value of the kind that was named.";
inline constexpr const char* knownUtilitiesText = "The helper can run: $1$.";
inline constexpr const char* nothingThereText = "There was nothing at '$1$'.";
inline constexpr const char* appendOnlyLeftText =
    "Append-only objects are left: their names cannot be sent, or others can change the folders "
    "that "
    "they are in. Run the command as root.";

/// The strings table of the client's texts, and all that has to be in it.
inline constexpr const char* clientStringsTable = "PrivilegedHelperClient";
std::set<std::string> clientTexts();

}  // namespace corvane::cli

#endif
