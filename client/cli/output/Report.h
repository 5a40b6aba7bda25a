#ifndef CORVANE_CLIENT_CLI_OUTPUT_REPORT_H
#define CORVANE_CLIENT_CLI_OUTPUT_REPORT_H

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "PrivilegedHelperClient.h"
#include "client/cli/output/Action.h"

namespace corvane::cli {

using Outcome = PrivilegedHelperClient::Outcome;

enum ExitStatus : int {
  ExitDone = 0,
  ExitFailed = 1,
  ExitUsage = 2,
  ExitNotAuthorized = 3,
  ExitCanceled = 4,
  ExitOutOfReach = 5,
  // A command that runs a utility ends with the utility's own status, or with one of these.
  ExitUtilityRefused = 126,
  ExitUtilityNotFound = 127,
};

/// The options that all commands share.
struct Context {
  PrivilegedHelperClient::Options client;
  bool isJSON = false;
  bool isQuiet = false;
  bool isWithoutFeedback = false;
};

/// Tells how a command ended and returns the status to exit with. `action` and `subject` say what
/// was to be done. With --json one object goes to standard output; otherwise a failure goes to
/// standard error and success says nothing.
int report(const Context& context, Action action, const std::string& subject,
           const Answer<Outcome>& outcome);

/// The same for a deletion of `paths` that was carried out or begun, object by object.
int report(const Context& context, Action action, const std::vector<std::string>& paths,
           const PrivilegedHelperClient::DeletionOutcome& outcome);

/// A command that was called wrongly; both texts in the user's language.
int reportUsage(const Context& context, const std::string& description,
                const std::string& suggestion = "");

/// A command that ended by an exception.
int reportException(const Context& context, const std::exception& exception);

/// Prints the result of a command that answers with data: the object with `result` in it as JSON,
/// and with the error if there is one beside it.
void printResult(const nlohmann::ordered_json& result,
                 const std::optional<Error>& error = std::nullopt);

/// A value of the helper's as JSON has it: data are arrays of numbers, dates seconds since 2001.
nlohmann::ordered_json toJson(const Value& value);

/// How many columns `text` takes on a terminal, and `text` with spaces up to so many.
std::size_t columnsOf(std::string_view text);
std::string padded(const std::string& text, std::size_t columns);

/// `text` as a terminal may show it: control characters are replaced, but those in `kept`.
std::string printable(std::string_view text, std::string_view kept = {});

}  // namespace corvane::cli

#endif
