#ifndef CORVANE_PLATFORM_AUTHENTICATIONAGENT_H
#define CORVANE_PLATFORM_AUTHENTICATIONAGENT_H

#include <memory>

namespace corvane {

/// Shows the dialogs of the system's authority on the terminal of this process, for requests of
/// this process that nobody else shows dialogs for.
class AuthenticationAgent {
 public:
  /// Starts it, and waits until it is known to the authority. Null where it is of no use: for root,
  /// without a terminal, or where the system has no such agent or shows its dialogs itself.
  static std::unique_ptr<AuthenticationAgent> startOnTerminal();

  /// Begins a new line behind the prompt at which a password is waited for on the terminal, once
  /// for a prompt. False if there is none, or its line has been left. Any thread.
  static bool leavePrompt();

  /// Ends it, and leaves the terminal as it was, and the line of its prompt.
  virtual ~AuthenticationAgent() = default;
};

/// Whom the system's authority can ask when this process needs an authorization.
enum class AuthorizationDialogs {
  NotNeeded,    ///< nobody: the process is root's
  NoAuthority,  ///< nobody: the system has no authority that asks
  Served,       ///< the user, by an agent that runs
  OnTerminal,   ///< the user, by the agent that `startOnTerminal` starts
  Nobody,       ///< nobody: there is neither an agent nor a terminal for one
};
AuthorizationDialogs authorizationDialogsOfThisProcess();

}  // namespace corvane

#endif
