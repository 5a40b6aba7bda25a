#ifndef CORVANE_CLIENT_CLI_OUTPUT_ACTION_H
#define CORVANE_CLIENT_CLI_OUTPUT_ACTION_H

#include <cstddef>
#include <string>

namespace corvane::cli {

/// What a command has done, for the line about its failure.
enum class Action {
  ContactHelper,
  AskForVersion,
  AskWhetherAllowed,
  SwitchDebugMessages,
  DiscardAuthorization,
  Delete,
  DeleteTree,
  DeleteSeveral,
  ReadList,
  Run,
  PassOnOutput,
  SetPreference,
  RemovePreference,
  ReadPreference,
  Install,
  Uninstall,
};

/// How the line begins, as in "Cannot delete '/tmp/x'", in the user's language.
std::string failureOf(Action action, const std::string& subject);

}  // namespace corvane::cli

#endif
