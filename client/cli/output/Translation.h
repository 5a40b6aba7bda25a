#ifndef CORVANE_CLIENT_CLI_OUTPUT_TRANSLATION_H
#define CORVANE_CLIENT_CLI_OUTPUT_TRANSLATION_H

#include <string>

#include "foundation/Value.h"

namespace corvane::cli {

/// The strings table of the client's texts. Its keys are the English texts, with $1$, $2$ and so on
/// for what differs.
inline constexpr const char* clientStringsTable = "PrivilegedHelperClient";

/// `text` in the user's language. All that people are told begins as English, in whatever part of
/// the system: a text that is no key of the table, but was made from one of its keys, is translated
/// like that one, and so is what stands in it for $1$ and the others. One that no key fits stays.
std::string translated(const std::string& text);
/// `key`, which is one of the table's, in the user's language, with what $1$ and the others in it
/// stand for, as it is.
std::string translated(const std::string& key, const std::string& parameter);
std::string translated(const std::string& key, const Array& parameters);

/// Texts beside those of errors, actions and advice.
inline constexpr const char* causeText = "because: $1$";
inline constexpr const char* needsRootText = "Only root may do this.";
inline constexpr const char* runAsRootText = "Run the command as root.";
inline constexpr const char* runLineAsRootText = "Run it as root: $1$";
inline constexpr const char* grantedText = "granted";
inline constexpr const char* wouldAskText = "would ask";
inline constexpr const char* deniedText = "denied";
inline constexpr const char* nobodyToAskText = "nobody to ask";
inline constexpr const char* stoppingText = "Stopping. Press Ctrl-C again to leave at once.";
inline constexpr const char* answerRefusedText = "The password was not accepted.";
inline constexpr const char* tryAgainText = "Try again.";
inline constexpr const char* deletedByThenText = "Deleted by then: $1$ of $2$.";
inline constexpr const char* knownUtilitiesText = "The helper can run: $1$.";
inline constexpr const char* nothingThereText = "There was nothing at '$1$'.";
inline constexpr const char* mountedAtText =
    "A file system is mounted at '$1$'. Unmount it first: the helper never leaves the file system "
    "that it was asked to work on.";
inline constexpr const char* appendOnlyLeftText =
    "Append-only objects are left: their names cannot be sent, or others can change the folders "
    "that they are in. Run the command as root.";
inline constexpr const char* cannotPrintText = "The output cannot be written: $1$";
inline constexpr const char* unexpectedText = "Something unexpected went wrong: $1$";
inline constexpr const char* aboutText = "$1$: $2$";

/// What is wrong with a command line, and where to read on.
inline constexpr const char* helpText = "'privilegerequestor-vnt help' tells what there is.";
inline constexpr const char* noCommandText = "No command was named.";
inline constexpr const char* noSuchCommandText = "'$1$' is not a command.";
inline constexpr const char* noSuchOptionText = "'$1$' is not an option here.";
inline constexpr const char* tooMuchText = "'$1$' is one argument too many.";
inline constexpr const char* missingText = "$1$ is missing on the command line.";
inline constexpr const char* neededText = "'$1$' needs one of these behind it: $2$.";
inline constexpr const char* excludedText = "'$1$' and '$2$' exclude each other.";
inline constexpr const char* alsoNeededText = "'$1$' needs '$2$' beside it.";
inline constexpr const char* noValueText = "'$1$' takes no value.";
inline constexpr const char* valueNeededText = "'$1$' needs a value behind it.";
inline constexpr const char* notOfKindText = "'$1$' is no value of the kind that was named.";
inline constexpr const char* noSwitchText = "'$1$' is neither 'on' nor 'off'.";
inline constexpr const char* noSuchOperationText =
    "'$1$' is not an operation. 'operations' lists them.";
inline constexpr const char* noObjectText =
    "Refusing to delete '$1$': that does not name an object.";
inline constexpr const char* notUTF8Text =
    "The name '$1$' is not UTF-8 and cannot be sent; delete its folder.";

}  // namespace corvane::cli

#endif
