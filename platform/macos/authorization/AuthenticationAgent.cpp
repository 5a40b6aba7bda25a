#include "platform/AuthenticationAgent.h"

#include <unistd.h>

#include "platform/macos/authorization/SystemRights.h"

namespace corvane {

std::unique_ptr<AuthenticationAgent> AuthenticationAgent::startOnTerminal() {
  // The system shows its dialogs itself.
  return nullptr;
}

bool AuthenticationAgent::leavePrompt() {
  return false;
}

AuthorizationDialogs authorizationDialogsOfThisProcess() {
  if (::geteuid() == 0) return AuthorizationDialogs::NotNeeded;
  return hasGraphicSession() ? AuthorizationDialogs::Served : AuthorizationDialogs::Nobody;
}

}  // namespace corvane
